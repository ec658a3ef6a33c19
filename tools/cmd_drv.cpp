// The driver interface table: created as a device application creates it, and asked.
#include "cli.h"

CommandList drv_commands()
{
    return {nullptr, 0};
}
