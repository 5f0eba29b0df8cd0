#include "tools/host/tag_check.h"

#include <algorithm>
#include <charconv>
#include <iomanip>
#include <optional>
#include <sstream>

#include "tools/host/dictionary_shape.h"
#include "tools/host/nearest_name.h"
#include "wire/byte_cursor.h"

namespace panelhost {

namespace {

struct name_part {
  std::string ident;
  bool subscripted = false;
  std::vector<int32_t> subscripts;
};

std::string plain(const std::string& name) {
  return !name.empty() && name.back() == '\0' ? name.substr(0, name.size() - 1) : name;
}

// "Tank[3]" or "M[1, 2]"; nullopt when the brackets or numbers cannot be read.
std::optional<name_part> parse_part(const std::string& text) {
  name_part part;
  const auto open = text.find('[');
  part.ident = text.substr(0, open);
  if (part.ident.empty() || part.ident.find(']') != std::string::npos) return std::nullopt;
  if (open == std::string::npos) return part;
  if (text.back() != ']' || text.find_first_of("[]", open + 1) != text.size() - 1) {
    return std::nullopt;
  }
  part.subscripted = true;
  std::string numbers = text.substr(open + 1, text.size() - open - 2);
  std::size_t at = 0;
  while (at <= numbers.size()) {
    const auto comma = std::min(numbers.find(',', at), numbers.size());
    std::string token = numbers.substr(at, comma - at);
    token.erase(0, token.find_first_not_of(' '));
    token.erase(token.find_last_not_of(' ') + 1);
    int32_t value = 0;
    const char* first = token.data() + (token.size() > 1 && token[0] == '+' ? 1 : 0);
    const auto res = std::from_chars(first, token.data() + token.size(), value);
    if (token.empty() || res.ec != std::errc() || res.ptr != token.data() + token.size()) {
      return std::nullopt;
    }
    part.subscripts.push_back(value);
    at = comma + 1;
  }
  return part;
}

std::vector<std::string> split_at_dots(const std::string& name) {
  std::vector<std::string> parts;
  std::size_t at = 0;
  for (auto dot = name.find('.'); dot != std::string::npos; dot = name.find('.', at)) {
    parts.push_back(name.substr(at, dot - at));
    at = dot + 1;
  }
  parts.push_back(name.substr(at));
  return parts;
}

std::string bounds_text(const std::vector<std::pair<int32_t, int32_t>>& dims) {
  std::string text;
  for (const auto& [low, high] : dims) {
    text += (text.empty() ? "" : ", ") + std::to_string(low) + ".." + std::to_string(high);
  }
  return text;
}

tag_check fault(tag_fault kind, std::string message) {
  tag_check c;
  c.fault = kind;
  c.message = std::move(message);
  return c;
}

std::string malformed_message(const std::string& name, const std::string& part) {
  return part.find_first_of("[]") == std::string::npos
             ? "empty name part in '" + name + "'"
             : "malformed subscript in '" + part +
                   "' (expected integers in one bracket group, e.g. A[3] or M[1, 2])";
}

}  // namespace

std::string name_syntax_error(const std::string& name) {
  for (const std::string& part : split_at_dots(name)) {
    if (!parse_part(part)) return malformed_message(name, part);
  }
  return "";
}

std::string unresolved_reason(const char* driver_name, bool wide_names) {
  if (!wide_names) return "the driver does not resolve it";
  return "the driver reads 16-bit names up to their first zero byte and looks for \"" +
         std::string(driver_name == nullptr ? "" : driver_name) +
         "\": build the tag file without --wide";
}

const char* fault_name(tag_fault fault) {
  switch (fault) {
    case tag_fault::none:
      return "resolved";
    case tag_fault::unknown_variable:
      return "unknown variable";
    case tag_fault::unknown_member:
      return "unknown member";
    case tag_fault::subscript_out_of_bounds:
      return "subscript outside the bounds";
    case tag_fault::subscript_on_elementary:
      return "subscript on an elementary value";
    case tag_fault::member_of_elementary:
      return "member of an elementary value";
    case tag_fault::malformed:
      return "malformed subscript";
    case tag_fault::needs_member:
      return "structure: name a member";
    case tag_fault::needs_subscript:
      return "array of structures: give a subscript";
    case tag_fault::outside_variable:
      return "outside its variable";
    case tag_fault::unresolved:
      return "not resolved";
    case tag_fault::guarded:
      return "refused in guarded mode";
  }
  return "?";
}

bool tag_checker::is_array(uint16_t type) const {
  const auto it = dict_.data_types.find(type);
  return it != dict_.data_types.end() && !array_dimensions(it->second).empty();
}

bool tag_checker::is_structure(uint16_t type) const {
  return !is_array(type) && dict_.struct_members.count(type) != 0;
}

bool tag_checker::is_structure_array(uint16_t type) const {
  return is_array(type) && is_structure(dict_.data_types.at(type).element_type);
}

std::vector<std::string> tag_checker::variable_names() const {
  if (names_.empty()) {
    for (const auto& entry : dict_.tables) names_.push_back(plain(entry.first));
  }
  return names_;
}

// One subscript on an array of structures, as the driver applies it: it takes the first
// number as the element counted from 0 and steps by the element's size.
struct tag_checker::walk {
  struct step {
    std::size_t part = 0;        // which part of the name carries the subscript
    std::string path;            // the name up to the array ("Pumps", "Plant.Pumps")
    std::string type_name;       // "ARRAY[1..3] OF PUMP"
    std::string written;         // "[3]"
    int64_t driver_element = 0;  // the element the driver addresses, from 0
    uint32_t elements = 0;
    bool counted_apart = false;      // declared subscripts differ from the driver's count
    std::optional<uint32_t> meant;   // the element the subscript names as declared
    std::string declared_of_driver;  // "[2]": the driver's element as declared
    bool inside() const { return driver_element >= 0 && driver_element < elements; }
  };
  std::vector<std::string> texts;
  std::vector<step> steps;

  // The name with each structure-array subscript replaced by pick(step); empty when pick
  // gives nothing for one of them.
  template <typename Pick>
  std::string renamed(Pick pick) const {
    std::vector<std::string> parts = texts;
    for (const step& s : steps) {
      const std::string subscript = pick(s);
      if (subscript.empty()) return "";
      parts[s.part] = parts[s.part].substr(0, parts[s.part].find('[')) + subscript;
    }
    std::string name;
    for (const std::string& p : parts) name += (name.empty() ? "" : ".") + p;
    return name;
  }
};

tag_check tag_checker::check(const std::string& name) const {
  walk w;
  w.texts = split_at_dots(name);
  const std::vector<std::string>& texts = w.texts;
  tag_check result;
  std::string path;
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const std::optional<name_part> part = parse_part(texts[i]);
    if (!part) return fault(tag_fault::malformed, malformed_message(name, texts[i]));
    tag_check step =
        i == 0 ? variable_step(part->ident, result) : member_step(part->ident, path, result);
    if (!step.ok()) return step;
    path += (i == 0 ? "" : ".") + part->ident;
    result.element = false;
    if (!part->subscripted) continue;
    const std::string array_path = path;
    path += texts[i].substr(texts[i].find('['));
    if (i + 1 < texts.size() && is_structure_array(result.type_id)) {
      step = structure_subscript_step(part->subscripts, array_path, i, w, result);
      if (!step.ok()) return step;
      continue;
    }
    step = subscript_step(part->subscripts, texts[i], array_path, result);
    if (!step.ok()) return step;
    if (i + 1 < texts.size()) {
      result.element = false;
      result.type_id = dict_.data_types.at(result.type_id).element_type;
    } else {
      result.notes.push_back("the driver addresses all of " + array_path +
                             "; the host selects element " + std::to_string(result.element_number) +
                             " (counted from 0) with its array index");
    }
  }
  result = end_check(path, result);
  return result.ok() ? counting_verdict(name, w, result) : result;
}

tag_check tag_checker::check(const std::string& name, const tag_entry& entry,
                             bool wide_names) const {
  tag_check result = check(name);
  if (!result.ok()) return result;
  if (entry.type_id == 0) {
    return fault(tag_fault::unresolved, unresolved_reason(entry.name, wide_names));
  }
  return placement_check(name, entry, result);
}

tag_check tag_checker::structure_subscript_step(const std::vector<int32_t>& subscripts,
                                                const std::string& path, std::size_t part, walk& w,
                                                tag_check& result) const {
  const data_type& array = dict_.data_types.at(result.type_id);
  const auto dims = array_dimensions(array);
  if (subscripts.size() != 1 && subscripts.size() != dims.size()) {
    return fault(tag_fault::malformed, path + " has " + std::to_string(dims.size()) +
                                           " dimension(s), '" + w.texts[part] + "' gives " +
                                           std::to_string(subscripts.size()));
  }
  walk::step s;
  s.part = part;
  s.path = path;
  s.type_name = dictionary_type_name(result.type_id, dict_.data_types);
  s.written = w.texts[part].substr(w.texts[part].find('['));
  s.driver_element = subscripts.front();
  s.elements = 1;
  for (const auto& [low, high] : dims) s.elements *= static_cast<uint32_t>(high - low + 1);
  s.counted_apart = dims.size() > 1 || dims.front().first != 0;
  if (subscripts.size() == dims.size()) {
    uint32_t number = 0;
    bool inside = true;
    for (std::size_t d = 0; d < dims.size(); ++d) {
      inside = inside && subscripts[d] >= dims[d].first && subscripts[d] <= dims[d].second;
      number = number * static_cast<uint32_t>(dims[d].second - dims[d].first + 1) +
               static_cast<uint32_t>(subscripts[d] - dims[d].first);
    }
    if (inside) s.meant = number;
  }
  if (s.inside()) {
    // The driver's element as the declared subscripts name it, last dimension fastest.
    std::vector<int64_t> at(dims.size());
    int64_t rest = s.driver_element;
    for (std::size_t d = dims.size(); d-- > 0;) {
      const int64_t extent = dims[d].second - dims[d].first + 1;
      at[d] = dims[d].first + rest % extent;
      rest /= extent;
    }
    for (int64_t a : at)
      s.declared_of_driver += (s.declared_of_driver.empty() ? "" : ",") + std::to_string(a);
    s.declared_of_driver = "[" + s.declared_of_driver + "]";
  }
  w.steps.push_back(s);
  result.type_id = array.element_type;
  return {};
}

// A structure-array subscript outside the driver's count fails; inside it, a declared low
// bound other than 0 gets a note saying which element the name reaches.
tag_check tag_checker::counting_verdict(const std::string& name, const walk& w,
                                        tag_check result) const {
  if (w.steps.empty()) return result;
  const bool apart = std::any_of(w.steps.begin(), w.steps.end(),
                                 [](const walk::step& s) { return s.counted_apart; });
  const std::string meant_name = w.renamed([](const walk::step& s) {
    return s.meant ? "[" + std::to_string(*s.meant) + "]" : std::string();
  });
  const auto outside =
      std::find_if(w.steps.begin(), w.steps.end(), [](const walk::step& s) { return !s.inside(); });
  if (outside != w.steps.end()) {
    const walk::step& s = *outside;
    std::string text = name + " lies " + (s.driver_element < 0 ? "before " : "past ") + s.path +
                       " (" + s.type_name + ")";
    const std::string range = "0.." + std::to_string(s.elements - 1);
    if (!apart) {
      text += ": " + s.path + " takes subscripts " + range;
    } else if (!meant_name.empty()) {
      text += ": the driver counts structure-array subscripts from 0; the element declared as " +
              s.path + s.written + " is " + meant_name;
    } else {
      text +=
          ": the driver counts structure-array subscripts from 0, so " + s.path + " takes " + range;
    }
    return fault(tag_fault::outside_variable, text);
  }
  if (!apart) return result;
  std::string note = "the driver counts structure-array subscripts from 0: " + name +
                     " is the element declared as " +
                     w.renamed([](const walk::step& s) { return s.declared_of_driver; });
  if (!meant_name.empty() && meant_name != name) {
    note += "; the element declared as " + name + " is " + meant_name;
  }
  result.notes.push_back(note);
  result.counting_note = true;
  return result;
}

namespace {

std::string location_text(uint16_t block, uint64_t offset) {
  std::ostringstream text;
  text << block << ":0x" << std::hex << std::setw(4) << std::setfill('0') << offset;
  return text.str();
}

}  // namespace

// The bytes the driver placed the tag at, against the variable's declared extent: catches
// what the name alone does not, such as a structure whose size the driver counts short.
tag_check tag_checker::placement_check(const std::string& name, const tag_entry& entry,
                                       tag_check result) const {
  const std::string variable = name.substr(0, name.find_first_of(".["));
  const auto var = dict_.tables.find(variable + '\0');
  if (var == dict_.tables.end() || var->second.location.size() < 6) return result;
  wire::le_reader declared(var->second.location);
  const uint16_t block = declared.u16();
  const uint64_t begin = declared.u32();
  const uint64_t end =
      begin + declared_size(var->second.type_id, dict_.data_types, dict_.struct_members);
  wire::basic_le_reader<std::array<unsigned char, 6>> placed(entry.location);
  const uint16_t at_block = placed.u16();
  const uint64_t at = placed.u32() + entry.member_offset;
  const uint64_t size = declared_size(entry.type_id, dict_.data_types, dict_.struct_members);
  if (end == begin || (at_block == block && at >= begin && at + size <= end)) return result;
  return fault(tag_fault::outside_variable,
               name + " lies " + (at_block == block && at < begin ? "before " : "past ") +
                   variable + " (" + dictionary_type_name(var->second.type_id, dict_.data_types) +
                   "): the driver places its " + std::to_string(size) + " bytes at " +
                   location_text(at_block, at) + ", the variable takes " +
                   std::to_string(end - begin) + " bytes from " + location_text(block, begin));
}

tag_check tag_checker::variable_step(const std::string& ident, tag_check& result) const {
  const auto var = dict_.tables.find(ident + '\0');
  if (var == dict_.tables.end()) {
    return fault(tag_fault::unknown_variable,
                 "unknown variable '" + ident + "'" + suggestion(ident, variable_names()));
  }
  result.type_id = var->second.type_id;
  return {};
}

tag_check tag_checker::member_step(const std::string& ident, const std::string& path,
                                   tag_check& result) const {
  const std::string type_name = dictionary_type_name(result.type_id, dict_.data_types);
  if (is_array(result.type_id)) {
    return fault(tag_fault::needs_subscript,
                 path + " is an array (" + type_name + "): give a subscript before ." + ident);
  }
  if (!is_structure(result.type_id)) {
    return fault(tag_fault::member_of_elementary,
                 path + " is " + type_name + ", which has no member '" + ident + "'");
  }
  const auto& list = dict_.struct_members.at(result.type_id);
  const std::string key = ident + '\0';
  const auto found =
      std::find_if(list.begin(), list.end(), [&](const data_type& m) { return m.name == key; });
  if (found == list.end() || found->bounds.size() < 2) {
    std::vector<std::string> members;
    for (const data_type& m : list) members.push_back(plain(m.name));
    return fault(tag_fault::unknown_member, "unknown member '" + ident + "' of " + path + " (" +
                                                type_name + ")" + suggestion(ident, members));
  }
  result.type_id = wire::le_reader(found->bounds).u16();
  return {};
}

// Marks result as one element of the array result.type_id.
tag_check tag_checker::subscript_step(const std::vector<int32_t>& subscripts,
                                      const std::string& text, const std::string& path,
                                      tag_check& result) const {
  const auto type = dict_.data_types.find(result.type_id);
  const auto dims = type == dict_.data_types.end() ? std::vector<std::pair<int32_t, int32_t>>{}
                                                   : array_dimensions(type->second);
  const std::string declared = dictionary_type_name(result.type_id, dict_.data_types);
  if (dims.empty()) {
    return fault(tag_fault::subscript_on_elementary,
                 "subscript on " + path + ", which is " + declared + ", not an array");
  }
  if (subscripts.size() != dims.size()) {
    return fault(tag_fault::malformed, path + " has " + std::to_string(dims.size()) +
                                           " dimension(s), '" + text + "' gives " +
                                           std::to_string(subscripts.size()));
  }
  uint32_t number = 0;
  for (std::size_t d = 0; d < dims.size(); ++d) {
    const int32_t s = subscripts[d];
    if (s < dims[d].first || s > dims[d].second) {
      return fault(tag_fault::subscript_out_of_bounds,
                   "subscript " + std::to_string(s) + " outside the bounds of " + path + " (" +
                       declared + ": " + bounds_text(dims) + ")");
    }
    number = number * static_cast<uint32_t>(dims[d].second - dims[d].first + 1) +
             static_cast<uint32_t>(s - dims[d].first);
  }
  result.element = true;
  result.element_number = number;
  return {};
}

// A name must end on a value a request can carry: not on a structure.
tag_check tag_checker::end_check(const std::string& path, const tag_check& result) const {
  const uint16_t last =
      result.element ? dict_.data_types.at(result.type_id).element_type : result.type_id;
  const auto last_name = [&] { return dictionary_type_name(last, dict_.data_types); };
  if (is_structure(last)) {
    const auto& first = dict_.struct_members.at(last).front();
    return fault(tag_fault::needs_member, path + " is a structure (" + last_name() +
                                              "): name a member, e.g. " + path + "." +
                                              plain(first.name));
  }
  if (!result.element && is_array(last)) {
    const data_type& array = dict_.data_types.at(last);
    if (is_structure(array.element_type)) {
      return fault(tag_fault::needs_subscript,
                   path + " is an array of structures (" + last_name() +
                       "): name one element's member, e.g. " + path + "[0]." +
                       plain(dict_.struct_members.at(array.element_type).front().name));
    }
  }
  return result;
}

}  // namespace panelhost
