// What changed between two downloads of a controller's dictionary (a new program).
#pragma once

#include <string>

#include "tools/host/dictionary.h"
#include "wire/byte_cursor.h"

namespace panelhost {

// "" when the variables and structures are the same; else the changes joined by "; ":
// "Temps removed; Level moved 2:0x0200 -> 2:0x0300; Flow added; Count retyped INT -> DINT;
// structure PUMP changed".
std::string program_changes(const dictionary& before, const dictionary& after);

// "2:0x0200": block and byte offset of a dictionary location.
std::string location_text(const wire::bytes& location);

}  // namespace panelhost
