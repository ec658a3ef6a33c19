// Which layout the stored "network" package is in, read from its marker and "ddns" sections.
#pragma once

#include <string>

// "old", "single", "double", "unmarked" (current sections, no marker yet) or "none" (no
// package); *version gets the marker's value when there is one.
std::string stored_layout(std::string *version);
