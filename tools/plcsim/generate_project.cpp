// Large synthetic projects: many variables and structure types, enough to make
// every dictionary answer page. Structure 0 is wide enough that its own
// detail needs several replies.
#include <cstdio>

#include "tools/plcsim/plcsim.h"
#include "tools/plcsim/project_layout.h"

namespace plcsim {

namespace {

constexpr uint16_t first_struct_id = 100;
constexpr uint16_t elementary_cycle[] = {elementary::int_,  elementary::dint,  elementary::udint,
                                         elementary::real,  elementary::word,  elementary::dword,
                                         elementary::ebool, elementary::bits64};

std::string numbered(const char* prefix, std::size_t i) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%s%06zu", prefix, i);
  return buf;
}

derived_type make_struct(std::size_t k) {
  derived_type t;
  t.id = static_cast<uint16_t>(first_struct_id + k);
  t.name = numbered("T_STRUCT_", k);
  t.kind = "struct";
  std::size_t members = k == 0 ? 300 : 3 + k % 6;
  uint32_t offset = 0;
  for (std::size_t m = 0; m < members; ++m) {
    uint16_t type = elementary_cycle[m % 8];
    t.members.push_back({numbered("Member_", m), type, offset});
    offset += static_cast<uint32_t>(elementary_width(type));
  }
  return t;
}

derived_type make_array(uint16_t id, uint16_t element) {
  derived_type t;
  t.id = id;
  t.name = "ARRAY[0..9] OF " + std::to_string(element);
  t.kind = "array";
  t.element_type = element;
  t.dimensions = {{0, 9}};
  return t;
}

}  // namespace

project generate_project(std::size_t variables, std::size_t struct_types, bool m580) {
  project p;
  p.plc_type = m580 ? "BME P58 2040" : "BMX P34 2020";
  for (std::size_t k = 0; k < struct_types; ++k)
    p.types.emplace(first_struct_id + k, make_struct(k));
  // Arrays of structures take higher ids than every structure.
  uint16_t next_id = static_cast<uint16_t>(first_struct_id + struct_types);
  for (std::size_t k = 0; k < struct_types && k < 16; ++k, ++next_id)
    p.types.emplace(next_id, make_array(next_id, static_cast<uint16_t>(first_struct_id + k)));
  derived_type str{next_id, "STRING[16]", "string", {}, 0, {}};
  p.types.emplace(next_id, str);

  std::vector<uint16_t> cycle(std::begin(elementary_cycle), std::end(elementary_cycle));
  for (const auto& [id, t] : p.types) cycle.push_back(id);
  uint32_t offset = 0;
  for (std::size_t i = 0; i < variables; ++i) {
    uint16_t type = cycle[i % cycle.size()];
    p.variables.push_back({numbered("Var_", i), type, 1, offset});
    std::size_t size = type_size(p, type);
    std::vector<uint8_t> init(size);
    for (std::size_t b = 0; b < size; ++b) init[b] = static_cast<uint8_t>(i + b);
    p.initial[1][offset] = init;
    offset += static_cast<uint32_t>((size + 1) & ~std::size_t{1});
  }
  return p;
}

}  // namespace plcsim
