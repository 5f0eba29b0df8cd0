#include "tools/host/tag_selection.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "tag_index/tag_table.h"
#include "tools/common/tag_file_writer.h"
#include "tools/host/dictionary_shape.h"
#include "unitydrv/unitydrv.h"

namespace panelhost {

namespace {

std::string utf8_of_wide(const char* name) {
  std::string out;
  for (const auto* p = reinterpret_cast<const unsigned char*>(name); p[0] != 0 || p[1] != 0;
       p += 2) {
    uint32_t c = p[0] | static_cast<uint32_t>(p[1]) << 8;
    if (c >= 0xD800 && c < 0xDC00 && (p[2] | p[3] << 8) >= 0xDC00) {
      c = 0x10000 + ((c - 0xD800) << 10) + ((p[2] | p[3] << 8) - 0xDC00);
      p += 2;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | c >> 6);
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | c >> 12);
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | c >> 18);
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

std::map<std::string, type_choice> type_overrides(const std::vector<std::string>& texts) {
  std::map<std::string, type_choice> out;
  for (const std::string& text : texts) {
    const auto assignment = parse_assignment(text);
    out[assignment.first] = parse_type_choice(assignment.second);
  }
  return out;
}

// "Alarm[7]" -> 7 when the name ends in a one-number subscript.
std::optional<long> trailing_subscript(const std::string& name) {
  const auto open = name.rfind('[');
  if (name.empty() || name.back() != ']' || open == std::string::npos) return std::nullopt;
  const std::string digits = name.substr(open + 1, name.size() - open - 2);
  char* end = nullptr;
  const long value = std::strtol(digits.c_str(), &end, 10);
  if (digits.empty() || *end != '\0') return std::nullopt;
  return value;
}

struct resolved_types {
  std::vector<uint16_t> type_ids;  // 0: the tag did not resolve
};

resolved_types resolve_against(const std::string& tag_file, const dictionary& dict) {
  offline_CTagTable_578 table;
  table.Read(tag_file.c_str(), 0);
  table.setup_memory_index(dict.tables, dict.struct_members, dict.data_types);
  resolved_types out;
  for (uint32_t i = 0; i < table.tag_count; ++i) out.type_ids.push_back(table.Get(i)->type_id);
  return out;
}

}  // namespace

temp_tag_file::temp_tag_file(const std::vector<tag_choice>& tags) {
  char pattern[] = "/tmp/panelhost-XXXXXX.tags";
  const int fd = mkstemps(pattern, 5);
  if (fd < 0) throw std::runtime_error("cannot create a temporary tag file");
  close(fd);
  path_ = pattern;
  std::vector<tag_file::record> records;
  for (const tag_choice& t : tags) records.push_back({t.name, 0, 0, 0});
  if (!tag_file::write(path_, records, false)) {
    std::remove(path_.c_str());
    throw std::runtime_error("cannot write tag file " + path_);
  }
}

temp_tag_file::~temp_tag_file() {
  std::remove(path_.c_str());
}

std::vector<std::string> read_tag_names(const std::string& path, uint32_t offset) {
  if (!std::ifstream(path, std::ios::binary)) {
    throw std::runtime_error("cannot read tag file " + path);
  }
  offline_CTagTable_578 table;
  table.wide_names = 0;
  table.Read(path.c_str(), offset);
  std::vector<std::string> names;
  for (uint32_t i = 0; i < table.tag_count; ++i) {
    const char* name = table.Get(i)->name;
    names.push_back(table.wide_names != 0 ? utf8_of_wide(name) : std::string(name));
  }
  return names;
}

tag_selection::tag_selection(const selection_options& options) : options_(options) {
  std::vector<tag_choice> named;
  for (const std::string& n : options.names) named.push_back(parse_tag_choice(n));
  if (!options.tag_file.empty()) {
    tag_file_ = options.tag_file;
  } else {
    const std::vector<tag_choice> listed =
        options.list_file.empty() ? named : read_tag_list(options.list_file);
    if (listed.empty()) throw std::runtime_error("no tags given");
    temp_ = std::make_unique<temp_tag_file>(listed);
    tag_file_ = temp_->path();
    if (named.empty()) named = listed;
    // The list's types hold unless a name on the command line gives its own.
    for (tag_choice& n : named) {
      auto it = std::find_if(listed.begin(), listed.end(),
                             [&](const tag_choice& l) { return l.name == n.name; });
      if (it != listed.end() && n.type.code == 0) n.type = it->type;
    }
  }
  file_names_ = read_tag_names(tag_file_);
  if (named.empty()) {
    for (const std::string& n : file_names_) named.push_back({n, {}});
  }
  for (const tag_choice& n : named) {
    auto it = std::find(file_names_.begin(), file_names_.end(), n.name);
    if (it == file_names_.end()) throw std::runtime_error("unknown tag name '" + n.name + "'");
    positions_.push_back(static_cast<uint32_t>(it - file_names_.begin()));
    chosen_.push_back(n);
  }
}

std::vector<selected_tag> tag_selection::requests(const dictionary* dict) const {
  const auto overrides = type_overrides(options_.types);
  const resolved_types resolved = dict ? resolve_against(tag_file_, *dict) : resolved_types{};
  std::vector<selected_tag> out;
  for (std::size_t i = 0; i < chosen_.size(); ++i) {
    const tag_choice& choice = chosen_[i];
    host_request request;
    request.tag_index = positions_[i];
    tag_shape shape;
    if (dict != nullptr) {
      const uint16_t type_id = resolved.type_ids.at(positions_[i]);
      if (type_id == 0) {
        throw std::runtime_error("unknown tag name '" + choice.name + "' (not in the dictionary)");
      }
      shape = shape_of_type(type_id, dict->data_types);
      if (shape.is_array) {
        if (auto sub = trailing_subscript(choice.name)) {
          request.array_index = static_cast<uint16_t>(*sub - shape.low_bound);
          shape.count = 1;
        }
      }
    }
    type_choice type = choice.type;
    if (auto it = overrides.find(choice.name); it != overrides.end()) type = it->second;
    if (type.code != 0) {
      // An explicit type without a count keeps the dictionary's count of the same type.
      const bool same = type.code == shape.code;
      shape.code = type.code;
      shape.count = type.count != 0                     ? type.count
                    : same                              ? shape.count
                    : type.code == UNITYDRV_TYPE_STRING ? 16
                                                        : 1;
    }
    if (shape.code == 0) {
      throw std::runtime_error("no type for tag '" + choice.name +
                               "': give Name:TYPE in the list or --type Name=TYPE");
    }
    request.code = shape.code;
    request.count = options_.count.value_or(shape.count);
    if (options_.index) request.array_index = *options_.index;
    if (options_.bit) request.bit = *options_.bit;
    out.push_back({choice.name, request});
  }
  return out;
}

}  // namespace panelhost
