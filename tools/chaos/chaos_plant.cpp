#include "tools/chaos/chaos_plant.h"

#include "tools/plcsim/project_layout.h"
#include "unitydrv/unitydrv.h"

namespace chaos {

namespace {

using form = plcsim::stepped_value::form;

// A variable of the plant that the changed program moves to a free place of block 1.
struct move {
  const char* name;
  uint32_t offset;
};
constexpr move moved[] = {{"Counter", 400}, {"Levels", 420}};
constexpr const char* removed = "Production";
constexpr uint32_t added_offset = 460;

tag make(std::string name, std::string variable, uint8_t type, unit_form f, std::size_t size,
         uint32_t step, form as = form::integer) {
  tag t;
  t.name = std::move(name);
  t.variable = std::move(variable);
  t.type = type;
  t.form = f;
  t.element_size = size;
  t.step = step;
  t.stepped_as = as;
  return t;
}

std::vector<tag> make_tags() {
  std::vector<tag> out = {
      make("Counter", "Counter", UNITYDRV_TYPE_INT, unit_form::word, 2, 1),
      make("Total", "Total", UNITYDRV_TYPE_DINT, unit_form::dword, 4, 3),
      make("Production", "Production", UNITYDRV_TYPE_UDINT, unit_form::dword, 4, 5),
      make("Motor1.Speed", "Motor1", UNITYDRV_TYPE_REAL, unit_form::dword, 4, 1, form::real),
      make("Motor1.Mode", "Motor1", UNITYDRV_TYPE_INT, unit_form::word, 2, 2),
      make("Line[2].Speed", "Line", UNITYDRV_TYPE_REAL, unit_form::dword, 4, 3, form::real),
      make("Line[3].Starts", "Line", UNITYDRV_TYPE_UDINT, unit_form::dword, 4, 1),
      make("Levels", "Levels", UNITYDRV_TYPE_INT, unit_form::word, 2, 1),
      make("Running", "Running", UNITYDRV_TYPE_BOOL, unit_form::ebool, 1, 1, form::boolean),
      make("Alarms", "Alarms", UNITYDRV_TYPE_WORD, unit_form::word_bit, 2, 1),
      make("Status", "Status", UNITYDRV_TYPE_DWORD, unit_form::dword, 4, 0),
      make("Motor2.Mode", "Motor2", UNITYDRV_TYPE_INT, unit_form::word, 2, 0),
      make("Setpoint", "Setpoint", UNITYDRV_TYPE_REAL, unit_form::dword, 4, 0),
      make("Added", "Added", UNITYDRV_TYPE_INT, unit_form::word, 2, 1),
  };
  out[7].elements = 10;
  for (std::size_t i = 10; i <= 12; ++i) out[i].written = true;
  return out;
}

}  // namespace

const std::vector<tag>& tags() {
  static const std::vector<tag> all = make_tags();
  return all;
}

plcsim::project original_program(const std::string& source_dir) {
  return plcsim::load_project_file(source_dir + "/examples/plant.json");
}

plcsim::project changed_program(const plcsim::project& original) {
  plcsim::project p = original;
  std::vector<plcsim::variable> kept;
  for (plcsim::variable v : p.variables) {
    if (v.name == removed) continue;
    for (const move& m : moved) {
      if (v.name == m.name) v.offset = m.offset;
    }
    kept.push_back(v);
  }
  kept.push_back({"Added", 4, 1, added_offset});  // INT
  p.variables = kept;
  p.dictionary_handle ^= 0x5A5A5A5A;  // a new program has a new dictionary
  return p;
}

bool element_location(const plcsim::project& p, const tag& t, std::size_t k, uint16_t& block,
                      uint32_t& offset) {
  uint16_t type = 0;
  if (!plcsim::resolve_location(p, t.name, block, offset, type)) return false;
  offset += static_cast<uint32_t>(k * t.element_size);
  return true;
}

std::size_t units_per_element(unit_form f) {
  return f == unit_form::dword ? 2 : 1;
}

std::vector<uint16_t> expected_units(unit_form f, const std::vector<uint8_t>& b, uint8_t bit) {
  uint32_t v = 0;
  for (std::size_t i = 0; i < b.size() && i < 4; ++i) v |= uint32_t{b[i]} << (8 * i);
  switch (f) {
    case unit_form::dword:
      return {static_cast<uint16_t>(v), static_cast<uint16_t>(v >> 16)};
    case unit_form::ebool:
      return {static_cast<uint16_t>((v & 0xFD) != 0 ? 1 : 0)};
    case unit_form::word_bit:
      return {static_cast<uint16_t>(((v >> bit) & 1) != 0 ? 0xFFFF : 0)};
    default:
      return {static_cast<uint16_t>(v)};
  }
}

std::vector<plcsim::stepped_value> stepped_values(const plcsim::project& p, uint32_t step_scale) {
  std::vector<plcsim::stepped_value> out;
  for (const tag& t : tags()) {
    if (t.written) continue;
    for (std::size_t k = 0; k < t.elements; ++k) {
      plcsim::stepped_value v;
      if (!element_location(p, t, k, v.block, v.offset)) continue;
      v.width = static_cast<uint8_t>(t.element_size);
      v.as = t.stepped_as;
      v.step = (t.step + static_cast<uint32_t>(k)) * step_scale;
      out.push_back(v);
    }
  }
  return out;
}

}  // namespace chaos
