#include "tools/host/tag_selection.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <set>
#include <stdexcept>

#include "tag_index/tag_table.h"
#include "tools/common/tag_file_writer.h"
#include "tools/host/dictionary.h"
#include "tools/host/dictionary_shape.h"
#include "tools/host/plc_type.h"
#include "tools/host/tag_check.h"
#include "unitydrv/unitydrv.h"

namespace panelhost {

namespace {

std::map<std::string, type_choice> type_overrides(const std::vector<std::string>& texts) {
  std::map<std::string, type_choice> out;
  for (const std::string& text : texts) {
    const auto assignment = parse_assignment(text);
    out[assignment.first] = parse_type_choice(assignment.second);
  }
  return out;
}

}  // namespace

temp_tag_file::temp_tag_file(const std::vector<tag_choice>& tags) {
  char pattern[] = "/tmp/panelhost-XXXXXX.tags";
  const int fd = mkstemps(pattern, 5);
  if (fd < 0) throw std::runtime_error("cannot create a temporary tag file");
  close(fd);
  path_ = pattern;
  std::vector<std::string> names;
  for (const tag_choice& t : tags) names.push_back(t.name);
  if (!tag_file::write_names(path_, names)) {
    std::remove(path_.c_str());
    throw std::runtime_error("cannot write tag file " + path_);
  }
}

temp_tag_file::~temp_tag_file() {
  std::remove(path_.c_str());
}

tag_selection::tag_selection(const selection_options& options) : options_(options) {
  std::vector<tag_choice> named;
  for (const std::string& n : options.names) named.push_back(parse_tag_choice(n));
  std::set<std::string> unreadable;
  if (!options.tag_file.empty()) {
    tag_file_ = options.tag_file;
  } else {
    const std::vector<tag_choice> listed =
        options.list_file.empty() ? named : read_tag_list(options.list_file);
    if (listed.empty()) throw std::runtime_error("no tags given");
    // A name the driver cannot read would stop it resolving the tags behind it: leave it
    // out of the tag file and refuse it.
    std::vector<tag_choice> readable;
    for (const tag_choice& l : listed) {
      if (std::string error = name_syntax_error(l.name); !error.empty()) {
        errors_.push_back({l.name, fault_name(tag_fault::malformed), error});
        unreadable.insert(l.name);
      } else {
        readable.push_back(l);
      }
    }
    temp_ = std::make_unique<temp_tag_file>(readable);
    tag_file_ = temp_->path();
    if (named.empty()) named = readable;
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
    if (unreadable.count(n.name) != 0) continue;
    auto it = std::find(file_names_.begin(), file_names_.end(), n.name);
    if (it == file_names_.end()) {
      errors_.push_back(
          {n.name, "unknown tag name", "not in the tag file" + suggestion(n.name, file_names_)});
      continue;
    }
    positions_.push_back(static_cast<uint32_t>(it - file_names_.begin()));
    chosen_.push_back(n);
  }
}

namespace {

// The type a tag is requested as: the dictionary's, unless the list or --type gives one. An
// explicit type without a count keeps the dictionary's count of the same type.
void apply_type_choice(const type_choice& type, tag_shape& shape) {
  if (type.code == 0) return;
  const bool same = type.code == shape.code;
  shape.code = type.code;
  shape.count = type.count != 0                     ? type.count
                : same                              ? shape.count
                : type.code == UNITYDRV_TYPE_STRING ? 16
                                                    : 1;
}

// The shape of a tag that passed its check, with the elements of its whole value; a tag
// that names one element of an array is requested as that element alone.
tag_shape checked_shape(const tag_check& check, const dictionary& dict, uint32_t& elements,
                        host_request& request) {
  tag_shape shape = shape_of_type(check.type_id, dict.data_types);
  elements = shape.is_array ? shape.count : 1;
  if (check.element) {
    request.array_index = static_cast<uint16_t>(check.element_number);
    shape.count = 1;
    shape.is_array = false;
  }
  return shape;
}

std::string no_type_reason(const dictionary* dict, offline_CTagTable_578& table,
                           uint32_t position) {
  if (dict == nullptr) {
    return "no type (a tag file carries no types): give Name:TYPE in the list, --type "
           "Name=TYPE, or --offline PROJECT.json";
  }
  return "no PLC type fits " +
         dictionary_type_name(table.Get(position)->type_id, dict->data_types) +
         ": give Name:TYPE in the list or --type Name=TYPE";
}

}  // namespace

std::vector<selected_tag> tag_selection::requests(const dictionary* dict,
                                                  std::vector<tag_refusal>& errors) const {
  const auto overrides = type_overrides(options_.types);
  // The tags resolved as the driver resolves them, so that each is checked where the
  // driver will place it.
  offline_CTagTable_578 table;
  std::optional<uint32_t> stop;
  std::optional<tag_checker> checker;
  if (dict) {
    table.Read(tag_file_.c_str(), 0);
    stop = resolve_as_driver(table, *dict);
    checker.emplace(*dict);
  }
  errors.insert(errors.end(), errors_.begin(), errors_.end());
  std::vector<selected_tag> out;
  for (std::size_t i = 0; i < chosen_.size(); ++i) {
    const tag_choice& choice = chosen_[i];
    host_request request;
    request.tag_index = positions_[i];
    tag_shape shape;
    uint32_t elements = 1;
    if (checker) {
      tag_check check =
          checker->check(choice.name, *table.Get(positions_[i]), table.wide_names != 0);
      explain_stop(check, positions_[i], stop, stop ? file_names_.at(*stop) : std::string());
      if (!check.ok()) {
        errors.push_back({choice.name, fault_name(check.fault), check.message});
        continue;
      }
      if (check.counting_note) notes_.push_back({choice.name, "note", check.notes.back()});
      shape = checked_shape(check, *dict, elements, request);
    }
    const auto given = overrides.find(choice.name);
    apply_type_choice(given != overrides.end() ? given->second : choice.type, shape);
    if (shape.code == 0) {
      errors.push_back({choice.name, "no type", no_type_reason(dict, table, positions_[i])});
      continue;
    }
    request.code = shape.code;
    request.count = shape.count;
    std::string error = apply_range(shape, elements, request);
    if (error.empty()) error = apply_bit(request);
    if (!error.empty()) {
      errors.push_back({choice.name, "outside the bounds", error});
      continue;
    }
    out.push_back({choice.name, request});
  }
  return out;
}

// --index counts from the array's declared low bound, as a subscript does; --count may not
// run past the last element.
std::string tag_selection::apply_range(const tag_shape& shape, uint32_t elements,
                                       host_request& request) const {
  if (options_.index) {
    if (!shape.is_array) return "--index needs a whole array";
    const int64_t first = int64_t{*options_.index} - shape.low_bound;
    if (first < 0 || first >= int64_t{elements}) {
      return "--index " + std::to_string(*options_.index) + " outside the bounds " +
             std::to_string(shape.low_bound) + ".." +
             std::to_string(shape.low_bound + int64_t{elements} - 1);
    }
    request.array_index = static_cast<uint16_t>(first);
    request.count = static_cast<uint16_t>(elements - first);
  }
  const uint16_t declared = request.count;
  if (options_.count) request.count = *options_.count;
  if ((shape.is_array || elements > 1) && request.array_index + request.count > elements) {
    return "--count " + std::to_string(request.count) + " runs past the last of its " +
           std::to_string(elements) + " elements";
  }
  if (shape.is_array || elements > 1 || request.count <= declared) return "";
  if (options_.bit) {
    // A bit read of n bits asks the driver for n elements, although every bit comes from
    // the first one: n elements must be there to read.
    return "--count " + std::to_string(request.count) +
           " with --bit: the driver reads one element for each bit asked, and " +
           std::to_string(request.count) + " run past a single " + plc_type_name(shape.code) +
           "; read the whole value without --bit to see all its bits";
  }
  if (shape.code == UNITYDRV_TYPE_STRING) {
    return "--count " + std::to_string(request.count) + " runs past the " +
           std::to_string(declared) + " characters of its STRING[" + std::to_string(declared) + "]";
  }
  return "--count " + std::to_string(request.count) + " runs past a single " +
         plc_type_name(shape.code) + (declared > 1 ? "[" + std::to_string(declared) + "]" : "");
}

// --bit picks a bit of a value that has bits to pick: not past the width of its type.
std::string tag_selection::apply_bit(host_request& request) const {
  if (!options_.bit) return "";
  const plc_type* type = wire::find_plc_type(request.code);
  const unsigned width = type == nullptr ? 0 : type->bit_source_width * 8u;
  if (width == 0) {
    return "--bit needs a value with bits (INT, WORD, DINT ...): " + plc_type_name(request.code) +
           " has none to pick";
  }
  if (static_cast<unsigned>(*options_.bit) >= width) {
    return "--bit " + std::to_string(*options_.bit) + " is past the " + std::to_string(width) +
           " bits of " + plc_type_name(request.code) + " (0.." + std::to_string(width - 1) + ")";
  }
  // The bits come from the first element only, from --bit on.
  if (options_.count && *options_.bit + unsigned{*options_.count} > width) {
    return "--bit " + std::to_string(*options_.bit) + " --count " +
           std::to_string(*options_.count) + " runs past the " + std::to_string(width) +
           " bits of " + plc_type_name(request.code) + " (bits " + std::to_string(*options_.bit) +
           ".." + std::to_string(width - 1) + " are left)";
  }
  request.bit = *options_.bit;
  return "";
}

}  // namespace panelhost
