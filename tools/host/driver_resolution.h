// A tag table resolved against a dictionary as the driver resolves it at initialisation.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tag_index/tag_table.h"
#include "tools/host/dictionary.h"
#include "tools/host/tag_check.h"

namespace panelhost {

// Resolves every tag of table. At a name it cannot read (an empty name part, a subscript
// that is not a list of integers) the driver throws and gives up on the rest of the table:
// the tags from there on stay unresolved. Returns the position of that tag, if any; the
// table is left as the driver leaves it.
std::optional<uint32_t> resolve_as_driver(offline_CTagTable_578& table, const dictionary& dict);

// Adds to the check of the tag at position i what the stop at position stop (named
// stop_name) did to it.
void explain_stop(tag_check& check, uint32_t i, std::optional<uint32_t> stop,
                  const std::string& stop_name);

}  // namespace panelhost
