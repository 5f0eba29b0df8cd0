#include <fstream>
#include <iostream>

#include "tag_index/tag_file_writer.h"
#include "tag_index/tag_table.h"
#include "tools/host/commands.h"
#include "tools/host/dictionary_shape.h"
#include "tools/host/json_report.h"
#include "tools/host/offline_project.h"
#include "tools/host/plc_type.h"
#include "tools/host/tag_check.h"
#include "tools/host/tag_export.h"
#include "tools/host/text_table.h"
#include "unity/byte_cursor.h"
#include "unitydrv/unitydrv.h"

namespace panelhost {

namespace {

struct located {
  uint16_t block = 0;
  uint64_t offset = 0;  // in the block: variable offset + member offset
  uint32_t read_format = 0;
};

std::string type_text(const tag_check& check, const dictionary& dict) {
  tag_shape shape = shape_of_type(check.type_id, dict.data_types);
  if (check.element) shape.count = 1;
  if (shape.code == 0) return dictionary_type_name(check.type_id, dict.data_types);
  const bool counted = shape.code == UNITYDRV_TYPE_STRING || shape.count > 1;
  return plc_type_name(shape.code) + (counted ? "[" + std::to_string(shape.count) + "]" : "");
}

}  // namespace

dictionary load_dictionary(const connection_options& conn) {
  if (conn.offline && conn.offline_project.empty()) {
    throw std::runtime_error("--offline needs PROJECT.json here: a tag file carries no types");
  }
  if (!conn.offline_project.empty()) return project_dictionary(conn.offline_project, std::cerr);
  return download_dictionary(conn.plc, std::cerr);
}

int run_tags_build(const std::string& list, const std::string& out, bool wide, uint32_t offset) {
  std::vector<tag_file::record> records;
  for (const tag_choice& t : read_tag_list(list)) records.push_back({t.name, 0, 0, 0});
  if (!tag_file::write(out, records, wide, offset)) {
    std::cerr << "panelhost: cannot write tag file " << out << '\n';
    return 1;
  }
  std::cout << "wrote " << records.size() << " tags to " << out << (wide ? " (16-bit names)" : "")
            << '\n';
  return 0;
}

int run_tags_list(const std::string& file, uint32_t offset) {
  text_table table({"#", "tag"});
  const std::vector<std::string> names = read_tag_names(file, offset);
  for (std::size_t i = 0; i < names.size(); ++i) table.add({std::to_string(i), names[i]});
  table.print(std::cout);
  return 0;
}

int run_tags_export(const connection_options& conn, const std::string& out,
                    const export_options& options) {
  const dictionary dict = load_dictionary(conn);
  std::ofstream file(out);
  if (!file) throw std::runtime_error("cannot write tag list " + out);
  file << "# tags of " << (conn.offline_project.empty() ? conn.plc : conn.offline_project) << " ("
       << dict.plc_type << ")\n";
  const std::size_t lines = export_tags(
      dict, options, [&](const std::string& line) { file << line << '\n'; },
      [](std::size_t done, std::size_t total) {
        std::cerr << "  exported " << done << " of " << total << " variables\n";
      });
  file.close();
  if (!file) throw std::runtime_error("cannot write tag list " + out);
  std::cerr << "wrote " << lines << " tags of " << dict.tables.size() << " variables to " << out
            << '\n';
  return 0;
}

int run_tags_check(const connection_options& conn, const std::string& file, uint32_t offset,
                   bool as_json) {
  const std::vector<std::string> names = read_tag_names(file, offset);
  const dictionary dict = load_dictionary(conn);
  offline_CTagTable_578 table;
  table.Read(file.c_str(), offset);
  table.setup_memory_index_in_place(dict.tables, dict.struct_members);
  const tag_checker checker(dict);
  json_report report("tags check");
  text_table ok_rows({"tag", "block", "offset", "element", "type", "format"});
  text_table bad_rows({"tag", "reason"});
  for (std::size_t i = 0; i < names.size(); ++i) {
    tag_check check = checker.check(names[i]);
    const tag_entry& entry = *table.Get(static_cast<uint32_t>(i));
    if (check.ok() && entry.type_id == 0) {
      check.fault = tag_fault::unknown_variable;
      check.message = "the driver does not resolve it";
    }
    if (!check.ok()) {
      bad_rows.add({names[i], check.message});
      report.add_tag(names[i], false,
                     {{"reason", fault_name(check.fault)}, {"message", check.message}});
      continue;
    }
    wire::basic_le_reader<std::array<unsigned char, 6>> location(entry.location);
    const uint16_t block = location.u16();
    const uint64_t at = location.u32() + entry.member_offset;
    const std::string element = check.element ? std::to_string(check.element_number) : "";
    const std::string type = type_text(check, dict);
    ok_rows.add({names[i], std::to_string(block), std::to_string(at), element, type,
                 std::to_string(entry.read_format)});
    nlohmann::json fields = {
        {"block", block}, {"offset", at}, {"type", type}, {"format", entry.read_format}};
    if (check.element) fields["element"] = check.element_number;
    report.add_tag(names[i], true, fields);
  }
  if (as_json) {
    report.print(std::cout);
  } else {
    if (ok_rows.line_count() > 2) ok_rows.print(std::cout);
    if (bad_rows.line_count() > 2) {
      std::cout << (ok_rows.line_count() > 2 ? "\n" : "") << "Not resolved:\n";
      bad_rows.print(std::cout);
    }
  }
  const std::size_t bad = bad_rows.line_count() - 2;
  std::cerr << names.size() << " tags: " << names.size() - bad << " resolve, " << bad
            << " do not\n";
  return bad == 0 ? 0 : 1;
}

}  // namespace panelhost
