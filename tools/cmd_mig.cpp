// Configuration layouts: conversion at start and the roll-back checks. Filled in as the
// migration calls land in the library.
#include "cli.h"

CommandList mig_commands()
{
    return {nullptr, 0};
}
