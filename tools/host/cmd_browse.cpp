#include <iostream>

#include "tools/host/commands.h"
#include "tools/host/dictionary_shape.h"
#include "tools/host/report_formats.h"
#include "wire/byte_cursor.h"

namespace panelhost {

namespace {

std::string plain(const std::string& name) {
  return !name.empty() && name.back() == '\0' ? name.substr(0, name.size() - 1) : name;
}

void print_variables(const dictionary& dict) {
  text_table table({"variable", "type", "block", "offset"});
  for (const auto& [name, var] : dict.tables) {
    wire::le_reader location(var.location);
    const uint16_t block = location.u16();
    const uint32_t offset = location.u32();
    table.add({plain(name), dictionary_type_name(var.type_id, dict.data_types),
               std::to_string(block), std::to_string(offset)});
  }
  std::cout << "\nVariables (" << dict.tables.size() << ")\n";
  table.print(std::cout);
}

void print_structures(const dictionary& dict) {
  for (const auto& [id, members] : dict.struct_members) {
    const auto type = dict.data_types.find(id);
    // An array of structures shares its element's member list; show it once.
    if (type != dict.data_types.end() && type->second.element_type != 0) continue;
    text_table table({"member", "type", "offset"});
    for (const data_type& m : members) {
      const uint16_t member_type = wire::le_reader(m.bounds).u16();
      const uint32_t offset = wire::le_reader(m.member_offset_bytes).u32();
      table.add({plain(m.name), dictionary_type_name(member_type, dict.data_types),
                 std::to_string(offset)});
    }
    std::cout << "\nStructure " << dictionary_type_name(id, dict.data_types) << " (type " << id
              << ")\n";
    table.print(std::cout);
  }
}

void print_arrays(const dictionary& dict) {
  text_table table({"array type", "id", "element", "elements", "first index"});
  for (const auto& [id, type] : dict.data_types) {
    if (type.element_type == 0 || type.bounds.empty()) continue;
    uint32_t elements = 0;
    int32_t low = 0;
    const bool known = array_elements(type, elements, low);
    table.add({plain(type.name), std::to_string(id),
               dictionary_type_name(type.element_type, dict.data_types),
               known ? std::to_string(elements) : "?", known ? std::to_string(low) : "?"});
  }
  std::cout << "\nArray types\n";
  table.print(std::cout);
}

void print_json(const dictionary& dict) {
  json_report report("browse");
  report.set("controller", dict.plc_type);
  for (const auto& [name, var] : dict.tables) {
    wire::le_reader location(var.location);
    const uint16_t block = location.u16();
    report.add_tag(plain(name), true,
                   {{"type", dictionary_type_name(var.type_id, dict.data_types)},
                    {"type_id", var.type_id},
                    {"block", block},
                    {"offset", location.u32()}});
  }
  nlohmann::json structures = nlohmann::json::array();
  for (const auto& [id, members] : dict.struct_members) {
    nlohmann::json list = nlohmann::json::array();
    for (const data_type& m : members) {
      const uint16_t member_type = wire::le_reader(m.bounds).u16();
      list.push_back({{"name", plain(m.name)},
                      {"type", dictionary_type_name(member_type, dict.data_types)},
                      {"offset", wire::le_reader(m.member_offset_bytes).u32()}});
    }
    structures.push_back(
        {{"id", id}, {"name", dictionary_type_name(id, dict.data_types)}, {"members", list}});
  }
  report.set("structures", structures);
  nlohmann::json arrays = nlohmann::json::array();
  for (const auto& [id, type] : dict.data_types) {
    uint32_t elements = 0;
    int32_t low = 0;
    if (type.bounds.empty() || !array_elements(type, elements, low)) continue;
    arrays.push_back({{"id", id},
                      {"name", plain(type.name)},
                      {"element", dictionary_type_name(type.element_type, dict.data_types)},
                      {"elements", elements},
                      {"first_index", low}});
  }
  report.set("arrays", arrays);
  report.print(std::cout);
}

}  // namespace

int run_browse(const connection_options& conn, bool as_json) {
  const dictionary dict = load_dictionary(conn);
  if (as_json) {
    print_json(dict);
    return 0;
  }
  std::cout << "Controller: " << dict.plc_type << '\n';
  print_variables(dict);
  print_structures(dict);
  print_arrays(dict);
  return 0;
}

}  // namespace panelhost
