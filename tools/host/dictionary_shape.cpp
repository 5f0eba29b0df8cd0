#include "tools/host/dictionary_shape.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "dictionary/type_sizes.h"
#include "tools/host/plc_type.h"
#include "unitydrv/unitydrv.h"
#include "wire/byte_cursor.h"
#include "wire/unity_constants.h"

namespace panelhost {

namespace {

struct elementary {
  uint16_t id;
  uint8_t code;
  const char* name;
};

// Elementary type ids of the controller; TIME counts milliseconds, DATE and TOD are BCD.
const elementary k_elementary[] = {
    {1, UNITYDRV_TYPE_BOOL, "BOOL"},     {4, UNITYDRV_TYPE_INT, "INT"},
    {5, UNITYDRV_TYPE_UINT, "UINT"},     {6, UNITYDRV_TYPE_DINT, "DINT"},
    {7, UNITYDRV_TYPE_UDINT, "UDINT"},   {8, UNITYDRV_TYPE_REAL, "REAL"},
    {9, UNITYDRV_TYPE_STRING, "STRING"}, {10, UNITYDRV_TYPE_UDINT, "TIME"},
    {14, UNITYDRV_TYPE_DWORD, "DATE"},   {15, UNITYDRV_TYPE_DWORD, "TOD"},
    {16, UNITYDRV_TYPE_LINT, "LINT"},    {21, UNITYDRV_TYPE_BYTE, "BYTE"},
    {22, UNITYDRV_TYPE_WORD, "WORD"},    {23, UNITYDRV_TYPE_DWORD, "DWORD"},
    {25, UNITYDRV_TYPE_BOOL, "EBOOL"},
};

const elementary* find_elementary(uint16_t id) {
  for (const elementary& e : k_elementary) {
    if (e.id == id) return &e;
  }
  return nullptr;
}

std::string without_zero(const std::string& name) {
  return !name.empty() && name.back() == '\0' ? name.substr(0, name.size() - 1) : name;
}

// An undimensioned STRING holds 16 characters.
uint16_t declared_string_length(const std::string& name) {
  const auto open = name.find('[');
  if (open == std::string::npos) return 16;
  return static_cast<uint16_t>(std::strtoul(name.c_str() + open + 1, nullptr, 10));
}

// The array detail keeps the dimension count byte first, then 8 bytes per dimension
// (low and high bound, i32 each); the last high bound lacks its top byte, which is zero
// for any array a panel can show.
std::vector<std::pair<int32_t, int32_t>> bounds_of(const data_type& type) {
  std::vector<std::pair<int32_t, int32_t>> dims;
  if (type.bounds.empty()) return dims;
  wire::bytes padded = type.bounds;
  padded.resize(1 + 8u * type.bounds[0] + 1, 0);
  wire::le_reader in(padded);
  const unsigned count = in.u8();
  for (unsigned d = 0; d < count; ++d) {
    const auto low = static_cast<int32_t>(in.u32());
    dims.emplace_back(low, static_cast<int32_t>(in.u32()));
  }
  return dims;
}

bool dimensions_of(const data_type& type, uint32_t& elements, int32_t& low_bound) {
  const auto dims = bounds_of(type);
  elements = 1;
  for (const auto& [low, high] : dims) {
    if (high < low) return false;
    elements *= static_cast<uint32_t>(high - low + 1);
  }
  if (!dims.empty()) low_bound = dims.front().first;
  return !dims.empty();
}

}  // namespace

tag_shape shape_of_type(uint16_t type_id, const std::map<unsigned short, data_type>& data_types) {
  tag_shape shape;
  if (const elementary* e = find_elementary(type_id)) {
    shape.code = e->code;
    shape.count = e->code == UNITYDRV_TYPE_STRING ? 16 : 1;
    return shape;
  }
  const auto it = data_types.find(type_id);
  if (it == data_types.end()) return shape;
  const data_type& type = it->second;
  const std::string name = without_zero(type.name);
  if (name.rfind("STRING", 0) == 0 ||
      (type.element_type == dictionary::string_type && type.bounds.empty())) {
    shape.code = UNITYDRV_TYPE_STRING;
    shape.count = declared_string_length(name);
    return shape;
  }
  uint32_t elements = 0;
  const elementary* element = find_elementary(type.element_type);
  if (element == nullptr || element->code == UNITYDRV_TYPE_STRING ||
      !dimensions_of(type, elements, shape.low_bound) || elements > 2048) {
    return shape;
  }
  shape.code = element->code;
  shape.count = static_cast<uint16_t>(elements);
  shape.is_array = true;
  return shape;
}

bool array_elements(const data_type& type, uint32_t& elements, int32_t& low_bound) {
  return type.element_type != 0 && dimensions_of(type, elements, low_bound);
}

std::vector<std::pair<int32_t, int32_t>> array_dimensions(const data_type& type) {
  if (type.element_type == 0) return {};
  return bounds_of(type);
}

namespace {

// Nesting deeper than this is taken for a loop in a damaged dictionary.
constexpr int k_max_depth = 32;

uint64_t size_at_depth(uint16_t type_id, const std::map<unsigned short, data_type>& data_types,
                       const std::map<unsigned short, std::vector<data_type>>& struct_members,
                       int depth) {
  if (depth > k_max_depth) return 0;
  const tag_shape shape = shape_of_type(type_id, data_types);
  const auto type = data_types.find(type_id);
  const bool array = type != data_types.end() && !array_dimensions(type->second).empty();
  if (shape.code != 0 && (!array || shape.is_array)) {
    const plc_type* code = wire::find_plc_type(shape.code);
    return uint64_t{shape.count} * (code ? code->size : 0);
  }
  if (array) {
    uint32_t elements = 0;
    int32_t low = 0;
    if (!array_elements(type->second, elements, low)) return 0;
    return elements *
           size_at_depth(type->second.element_type, data_types, struct_members, depth + 1);
  }
  const auto members = struct_members.find(type_id);
  if (members == struct_members.end()) return 0;
  uint64_t end = 0;
  for (const data_type& m : members->second) {
    if (m.bounds.size() < 2 || m.member_offset_bytes.size() < 4) continue;
    const uint64_t at = wire::le_reader(m.member_offset_bytes).u32();
    const uint16_t member_type = wire::le_reader(m.bounds).u16();
    end = std::max(end, at + size_at_depth(member_type, data_types, struct_members, depth + 1));
  }
  return end;
}

}  // namespace

uint64_t declared_size(uint16_t type_id, const std::map<unsigned short, data_type>& data_types,
                       const std::map<unsigned short, std::vector<data_type>>& struct_members) {
  return size_at_depth(type_id, data_types, struct_members, 0);
}

std::string dictionary_type_name(uint16_t type_id,
                                 const std::map<unsigned short, data_type>& data_types) {
  const auto it = data_types.find(type_id);
  if (it != data_types.end()) return without_zero(it->second.name);
  if (const elementary* e = find_elementary(type_id)) return e->name;
  return "type " + std::to_string(type_id);
}

}  // namespace panelhost
