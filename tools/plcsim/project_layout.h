// Sizes and locations derived from a project's types and variables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/plcsim/plcsim.h"

namespace plcsim {

// Size in bytes of any type id of the project (elementary or derived);
// throws std::runtime_error for an unknown id.
std::size_t type_size(const project& p, uint16_t type_id);

// Resolves "Var", "Var.Member", "Arr[3]", "Line[2].Speed" ... to a location and
// the type found there. Array subscripts count from the array's low bound.
bool resolve_location(const project& p, const std::string& path, uint16_t& block, uint32_t& offset,
                      uint16_t& type_id);

}  // namespace plcsim
