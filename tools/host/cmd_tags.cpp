#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iomanip>
#include <iostream>

#include "guard/guard.h"
#include "tag_index/guarded_index.h"
#include "tag_index/tag_table.h"
#include "tools/common/tag_file_writer.h"
#include "tools/host/commands.h"
#include "tools/host/dictionary_shape.h"
#include "tools/host/driver_resolution.h"
#include "tools/host/json_report.h"
#include "tools/host/offline_project.h"
#include "tools/host/plc_type.h"
#include "tools/host/tag_check.h"
#include "tools/host/tag_export.h"
#include "tools/host/text_table.h"
#include "unitydrv/unitydrv.h"
#include "wire/byte_cursor.h"

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

// A tag of the file: the checker's verdict and where the driver placed it.
struct checked_tag {
  tag_check check;
  uint16_t block = 0;
  uint64_t offset = 0;  // in the block: the variable's offset plus the member's
  uint32_t read_format = 0;
};

checked_tag check_one(const tag_checker& checker, const std::string& name, const tag_entry& entry,
                      bool wide_names) {
  checked_tag out{checker.check(name, entry, wide_names)};
  wire::basic_le_reader<std::array<unsigned char, 6>> location(entry.location);
  out.block = location.u16();
  out.offset = location.u32() + entry.member_offset;
  out.read_format = entry.read_format;
  return out;
}

void print_check_json(const std::vector<std::string>& names, const std::vector<checked_tag>& tags,
                      const dictionary& dict) {
  json_report report("tags check");
  for (std::size_t i = 0; i < names.size(); ++i) {
    const tag_check& c = tags[i].check;
    if (!c.ok()) {
      report.add_tag(names[i], false, {{"reason", fault_name(c.fault)}, {"message", c.message}});
      continue;
    }
    nlohmann::json fields = {{"block", tags[i].block},
                             {"offset", tags[i].offset},
                             {"type", type_text(c, dict)},
                             {"format", tags[i].read_format}};
    if (c.element) fields["element"] = c.element_number;
    if (!c.notes.empty()) fields["notes"] = c.notes;
    report.add_tag(names[i], true, fields);
  }
  report.print(std::cout);
}

void print_notes(const std::vector<std::string>& names, const std::vector<checked_tag>& tags) {
  bool first = true;
  for (std::size_t i = 0; i < names.size(); ++i) {
    for (const std::string& note : tags[i].check.notes) {
      std::cout << (first ? "\nNotes:\n" : "") << names[i] << ": " << note << '\n';
      first = false;
    }
  }
}

// Resolved tags stream out line by line (a file may hold millions); the few that fail
// follow in a table of their own.
void print_check_tables(const std::vector<std::string>& names, const std::vector<checked_tag>& tags,
                        const dictionary& dict, std::size_t bad) {
  std::size_t width = 3;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (tags[i].check.ok()) width = std::max(width, names[i].size());
  }
  const auto line = [&](const std::string& tag, const std::string& block, const std::string& offset,
                        const std::string& element, const std::string& type,
                        const std::string& format) {
    std::cout << std::left << std::setw(static_cast<int>(width)) << tag << "  " << std::setw(5)
              << block << "  " << std::setw(10) << offset << "  " << std::setw(7) << element << "  "
              << std::setw(12) << type << "  " << format << '\n';
  };
  if (bad < names.size()) {
    line("tag", "block", "offset", "element", "type", "format");
    line(std::string(width, '-'), "-----", "----------", "-------", "------------", "------");
  }
  text_table failed({"tag", "reason"});
  for (std::size_t i = 0; i < names.size(); ++i) {
    const tag_check& c = tags[i].check;
    if (!c.ok()) {
      failed.add({names[i], c.message});
      continue;
    }
    line(names[i], std::to_string(tags[i].block), std::to_string(tags[i].offset),
         c.element ? std::to_string(c.element_number) : "", type_text(c, dict),
         std::to_string(tags[i].read_format));
  }
  print_notes(names, tags);
  if (bad == 0) return;
  std::cout << (bad < names.size() ? "\n" : "") << "Refused:\n";
  failed.print(std::cout);
}

// tags check --guard: what the driver in guarded mode refuses, from the same index build and
// verdict as the loaded library (guard::on here, in this process), and the one array_index
// that it serves a subscripted element of an elementary array with.
void add_guarded_verdicts(offline_CTagTable_578& table, const dictionary& dict,
                          std::vector<checked_tag>& checked) {
  guarded_index::judge(table, dict.tables, dict.struct_members, dict.data_types);
  for (uint32_t i = 0; i < table.tag_count && i < checked.size(); ++i) {
    const tag_entry& entry = *table.Get(i);
    tag_check& check = checked[i].check;
    if (entry.guard_refusal != guard::served) {
      const std::string reason = guard::reason_text(entry.guard_refusal);
      check.message = check.ok() ? "guarded mode refuses it: " + reason
                                 : check.message + " (guarded mode refuses it: " + reason + ")";
      if (check.ok()) check.fault = tag_fault::guarded;
    } else if (entry.guard_element != 0) {
      check.notes.push_back("guarded mode serves it with array_index " +
                            std::to_string(entry.guard_element - 1) +
                            " and one element only (the declared subscript)");
    }
  }
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
  std::vector<std::string> names;
  for (const tag_choice& t : read_tag_list(list)) names.push_back(t.name);
  errno = 0;
  if (!tag_file::write_names(out, names, wide, offset)) {
    std::cerr << "panelhost: cannot write tag file " << out << ": "
              << (errno != 0 ? std::strerror(errno) : "write failed") << '\n';
    return 1;
  }
  std::cout << "wrote " << names.size() << " tags to " << out << (wide ? " (16-bit names)" : "")
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
  if (!file) throw std::runtime_error("cannot write tag list " + out + ": " + std::strerror(errno));
  file << "# tags of " << (conn.offline_project.empty() ? conn.plc : conn.offline_project) << " ("
       << dict.plc_type << ")\n";
  const std::size_t lines = export_tags(
      dict, options, [&](const std::string& line) { file << line << '\n'; },
      [](std::size_t done, std::size_t total) {
        std::cerr << "  exported " << done << " of " << total << " variables\n";
      });
  file.close();
  if (!file) throw std::runtime_error("cannot write tag list " + out + ": write failed");
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
  // Guarded, the build goes on past a name it cannot read.
  guard::on = conn.guard;
  const std::optional<uint32_t> stop = resolve_as_driver(table, dict);
  const tag_checker checker(dict);
  std::vector<checked_tag> checked;
  checked.reserve(names.size());
  std::size_t bad = 0;
  for (std::size_t i = 0; i < names.size(); ++i) {
    checked.push_back(
        check_one(checker, names[i], *table.Get(static_cast<uint32_t>(i)), table.wide_names != 0));
    explain_stop(checked.back().check, static_cast<uint32_t>(i), stop,
                 stop ? names.at(*stop) : std::string());
  }
  if (conn.guard) add_guarded_verdicts(table, dict, checked);
  for (const checked_tag& c : checked) bad += c.check.ok() ? 0 : 1;
  if (as_json) {
    print_check_json(names, checked, dict);
  } else {
    print_check_tables(names, checked, dict, bad);
  }
  std::cerr << names.size() << " tags: " << names.size() - bad << " resolve, " << bad
            << " do not\n";
  return bad == 0 ? 0 : 1;
}

}  // namespace panelhost
