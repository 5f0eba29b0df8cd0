// Project files: the controller's type text, its derived types, its variables
// and the initial contents of its memory.
#include <algorithm>
#include <boost/algorithm/hex.hpp>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <stdexcept>

#include "tools/plcsim/plcsim.h"
#include "tools/plcsim/project_layout.h"
#include "tools/plcsim/sim_bytes.h"

namespace plcsim {

using json = nlohmann::json;

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error("plcsim project: " + what);
}

std::vector<uint8_t> from_hex(const std::string& s) {
  if (s.size() % 2) fail("hex text of odd length: " + s);
  std::vector<uint8_t> out;
  try {
    boost::algorithm::unhex(s, std::back_inserter(out));
  } catch (const boost::algorithm::hex_decode_error&) {
    fail("bad hex digit in '" + s + "'");
  }
  return out;
}

std::string to_hex(const std::vector<uint8_t>& b) {
  std::string s;
  boost::algorithm::hex_lower(b.begin(), b.end(), std::back_inserter(s));
  return s;
}

// v little-endian over width bytes of out from at; bytes past the eighth are zero.
void put_le(std::vector<uint8_t>& out, std::size_t at, uint64_t v, std::size_t width) {
  msg_writer encoded;
  encoded.le64(v).zeros(width > 8 ? width - 8 : 0);
  std::copy_n(encoded.bytes().begin(), width, out.begin() + static_cast<std::ptrdiff_t>(at));
}

void encode_value(const project& p, uint16_t type, const json& v, std::vector<uint8_t>& out,
                  std::size_t at);

struct integer_range {
  uint16_t type;
  const char* name;
  int64_t low;
  uint64_t high;
};

// The integer range of each elementary type; TIME, DATE and TOD hold 32 unsigned bits.
const integer_range k_ranges[] = {
    {elementary::bool_, "BOOL", 0, 1},
    {elementary::ebool, "EBOOL", 0, 1},
    {elementary::byte, "BYTE", 0, 255},
    {elementary::int_, "INT", -32768, 32767},
    {elementary::uint, "UINT", 0, 65535},
    {elementary::word, "WORD", 0, 65535},
    {elementary::dint, "DINT", INT32_MIN, INT32_MAX},
    {elementary::udint, "UDINT", 0, UINT32_MAX},
    {elementary::time, "TIME", 0, UINT32_MAX},
    {elementary::date, "DATE", 0, UINT32_MAX},
    {elementary::tod, "TOD", 0, UINT32_MAX},
    {elementary::dword, "DWORD", 0, UINT32_MAX},
    {elementary::bits64, "type 16", INT64_MIN, INT64_MAX},
};

void check_integer(uint16_t type, const json& v) {
  for (const integer_range& r : k_ranges) {
    if (r.type != type) continue;
    const bool fits =
        v.is_number_unsigned()
            ? v.get<uint64_t>() <= r.high
            : v.get<int64_t>() >= r.low &&
                  (v.get<int64_t>() < 0 || static_cast<uint64_t>(v.get<int64_t>()) <= r.high);
    if (!fits) {
      fail("value " + v.dump() + " does not fit " + r.name + " (" + std::to_string(r.low) + ".." +
           std::to_string(r.high) + ")");
    }
  }
}

void encode_elementary(uint16_t type, const json& v, std::vector<uint8_t>& out, std::size_t at) {
  std::size_t width = elementary_width(type);
  if (v.is_string()) {
    std::string s = v.get<std::string>();
    if (s.size() > width) {
      fail("text " + v.dump() + " is longer than " + std::to_string(width) + " characters");
    }
    std::memcpy(out.data() + at, s.data(), s.size());
  } else if (type == elementary::real) {
    if (!v.is_number()) fail("value " + v.dump() + " is not a number for REAL");
    const double d = v.get<double>();
    if (std::fabs(d) > std::numeric_limits<float>::max()) {
      fail("value " + v.dump() + " does not fit REAL");
    }
    float f = static_cast<float>(d);
    uint32_t bits;
    std::memcpy(&bits, &f, 4);
    put_le(out, at, bits, 4);
  } else if (type == elementary::bits64 && v.is_number_float()) {
    double d = v.get<double>();
    uint64_t bits;
    std::memcpy(&bits, &d, 8);
    put_le(out, at, bits, 8);
  } else if (v.is_boolean()) {
    put_le(out, at, v.get<bool>() ? 1 : 0, width);
  } else if (v.is_number_integer()) {
    check_integer(type, v);
    put_le(out, at, static_cast<uint64_t>(v.get<int64_t>()), width);
  } else {
    fail("value " + v.dump() + " does not fit type " + std::to_string(type));
  }
}

void encode_derived(const project& p, const derived_type& t, const json& v,
                    std::vector<uint8_t>& out, std::size_t at) {
  if (t.kind == "string") {
    if (!v.is_string()) fail("string type " + t.name + " needs a text value");
    std::string s = v.get<std::string>();
    if (s.size() > type_size(p, t.id)) fail("text " + v.dump() + " is longer than " + t.name);
    std::memcpy(out.data() + at, s.data(), s.size());
  } else if (t.kind == "array") {
    if (!v.is_array()) fail("array type " + t.name + " needs a list value");
    std::size_t esize = type_size(p, t.element_type);
    std::size_t n = type_size(p, t.id) / (esize ? esize : 1);
    if (v.size() > n) fail("too many elements for " + t.name);
    for (std::size_t i = 0; i < v.size(); ++i)
      encode_value(p, t.element_type, v[i], out, at + i * esize);
  } else {
    if (!v.is_object()) fail("structure type " + t.name + " needs an object value");
    for (const auto& item : v.items()) {
      const bool known = std::any_of(t.members.begin(), t.members.end(),
                                     [&](const member& m) { return m.name == item.key(); });
      if (!known) fail("unknown member '" + item.key() + "' of structure " + t.name);
    }
    for (const auto& m : t.members)
      if (v.contains(m.name)) encode_value(p, m.type, v.at(m.name), out, at + m.offset);
  }
}

void encode_value(const project& p, uint16_t type, const json& v, std::vector<uint8_t>& out,
                  std::size_t at) {
  if (elementary_width(type)) return encode_elementary(type, v, out, at);
  encode_derived(p, p.types.at(type), v, out, at);
}

derived_type parse_type(const json& j) {
  derived_type t;
  t.id = j.at("id").get<uint16_t>();
  t.name = j.at("name").get<std::string>();
  t.kind = j.at("kind").get<std::string>();
  if (t.kind == "struct") {
    for (const auto& m : j.at("members"))
      t.members.push_back({m.at("name").get<std::string>(), m.at("type").get<uint16_t>(),
                           m.at("offset").get<uint32_t>()});
    if (t.members.empty()) fail("structure " + t.name + " has no members");
    std::set<std::string> names;
    for (const auto& m : t.members)
      if (!names.insert(m.name).second)
        fail("structure " + t.name + ": duplicate member " + m.name);
  } else if (t.kind == "array") {
    t.element_type = j.at("element").get<uint16_t>();
    for (const auto& d : j.at("dimensions"))
      t.dimensions.emplace_back(d.at(0).get<int32_t>(), d.at(1).get<int32_t>());
    if (t.dimensions.empty()) fail("array " + t.name + " has no dimensions");
    if (t.dimensions.size() > 1)
      fail("array " + t.name + ": only one dimension is supported, it has " +
           std::to_string(t.dimensions.size()));
    for (const auto& d : t.dimensions)
      if (d.second < d.first) fail("array " + t.name + " has a dimension with high < low");
  } else if (t.kind != "string") {
    fail("type " + t.name + ": kind must be struct, array or string");
  }
  if (elementary_width(t.id))
    fail("type " + t.name + " reuses elementary id " + std::to_string(t.id));
  return t;
}

void check_type_ids(const project& p) {
  auto known = [&](uint16_t id) { return elementary_width(id) || p.types.count(id); };
  for (const auto& [id, t] : p.types) {
    for (const auto& m : t.members)
      if (!known(m.type)) fail("member " + t.name + "." + m.name + " has unknown type");
    if (t.kind != "array") continue;
    if (!known(t.element_type)) fail("array " + t.name + " has an unknown element type");
    // The client copies an element structure's members to the array only when
    // it detailed the structure first, i.e. when the structure's id is lower.
    auto el = p.types.find(t.element_type);
    if (el != p.types.end() && el->second.kind == "struct" && t.element_type > id)
      fail("array " + t.name + " must have a higher id than its element structure");
  }
  for (const auto& v : p.variables)
    if (!known(v.type)) fail("variable " + v.name + " has unknown type " + std::to_string(v.type));
}

// The parser's reason without its "[json.exception.type_error.302] " tag.
std::string json_reason(const json::exception& e) {
  const std::string text = e.what();
  const auto tag_end = text.find("] ");
  return text.rfind("[json.exception", 0) == 0 && tag_end != std::string::npos
             ? text.substr(tag_end + 2)
             : text;
}

void parse_variable(project& p, const json& j) {
  variable v;
  // Name the variable (or its position) in a field error: a project has many of them.
  const std::string which = j.is_object() && j.contains("name") && j.at("name").is_string()
                                ? "variable '" + j.at("name").get<std::string>() + "'"
                                : "variable " + std::to_string(p.variables.size() + 1);
  try {
    v.name = j.at("name").get<std::string>();
    v.type = j.at("type").get<uint16_t>();
    v.block = j.at("block").get<uint16_t>();
    v.offset = j.at("offset").get<uint32_t>();
  } catch (const json::exception& e) {
    fail(which + ": " + json_reason(e));
  }
  p.variables.push_back(v);
}

void apply_value(project& p, const variable& v, const json& value) {
  std::vector<uint8_t> bytes(type_size(p, v.type), 0);
  try {
    encode_value(p, v.type, value, bytes, 0);
  } catch (const std::runtime_error& e) {
    // Name the variable: the same structure type may serve many of them.
    fail("variable " + v.name + ": " +
         std::string(e.what()).substr(std::strlen("plcsim project: ")));
  }
  p.initial[v.block][v.offset] = bytes;
}

void check_variables(const project& p) {
  std::set<std::string> names;
  std::vector<std::pair<std::pair<uint16_t, uint64_t>, const variable*>> placed;
  for (const auto& v : p.variables) {
    if (!names.insert(v.name).second) fail("duplicate variable " + v.name);
    placed.push_back({{v.block, v.offset}, &v});
  }
  std::sort(placed.begin(), placed.end());
  for (std::size_t i = 1; i < placed.size(); ++i) {
    const variable& a = *placed[i - 1].second;
    const variable& b = *placed[i].second;
    if (a.block == b.block && uint64_t{a.offset} + type_size(p, a.type) > b.offset)
      fail("variable " + b.name + " (block " + std::to_string(b.block) + ", offset " +
           std::to_string(b.offset) + ") overlaps variable " + a.name + " (offset " +
           std::to_string(a.offset) + ", " + std::to_string(type_size(p, a.type)) + " bytes)");
  }
}

// Where the parser stopped, as an editor shows it (line and column from 1), and what it
// found there; the parser's own text names its internals.
std::string syntax_error_at(const std::string& text, std::size_t byte) {
  std::size_t at = std::min(byte == 0 ? 0 : byte - 1, text.size());
  // A whole string was read before it proved unexpected: point at its start.
  std::string token;
  if (at < text.size() && at > 0 && text[at] == '"') {
    const std::size_t open = text.rfind('"', at - 1);
    if (open != std::string::npos && text.find('\n', open) > at) {
      token = text.substr(open, at - open + 1);
      at = open;
    }
  }
  const std::size_t line_start = text.rfind('\n', at == 0 ? 0 : at - 1);
  const std::size_t line = 1 + std::count(text.begin(), text.begin() + at, '\n');
  const std::size_t column = at - (line_start == std::string::npos ? 0 : line_start + 1) + 1;
  std::string found = "the text ends early";
  if (at < text.size()) {
    const unsigned char c = static_cast<unsigned char>(text[at]);
    found = !token.empty()    ? "unexpected " + token
            : std::isprint(c) ? std::string("unexpected '") + char(c) + "'"
                              : "unexpected byte " + std::to_string(c);
  }
  return "not valid JSON at line " + std::to_string(line) + ", column " + std::to_string(column) +
         ": " + found;
}

}  // namespace

project parse_project(const std::string& json_text) {
  json j;
  try {
    j = json::parse(json_text, nullptr, true, true);  // comments allowed
  } catch (const json::parse_error& e) {
    fail(syntax_error_at(json_text, e.byte));
  } catch (const json::exception& e) {
    fail("not valid JSON: " + json_reason(e));
  }
  project p;
  try {
    p.plc_type = j.value("plc_type", p.plc_type);
    p.table_address = j.value("table_address", p.table_address);
    if (j.contains("dictionary_handle")) {
      auto h = from_hex(j.at("dictionary_handle").get<std::string>());
      if (h.size() != 8) fail("dictionary_handle must be 8 bytes of hex");
      p.dictionary_handle = msg_reader(h).le64();
    }
    for (const auto& t : j.value("types", json::array())) {
      derived_type d = parse_type(t);
      if (!p.types.emplace(d.id, d).second) fail("duplicate type id " + std::to_string(d.id));
    }
    for (const auto& v : j.value("variables", json::array())) parse_variable(p, v);
    check_type_ids(p);
    check_variables(p);
    const auto vars = j.value("variables", json::array());
    for (std::size_t i = 0; i < vars.size(); ++i)
      if (vars[i].contains("value")) apply_value(p, p.variables[i], vars[i].at("value"));
    for (const auto& m : j.value("memory", json::array()))
      p.initial[m.at("block").get<uint16_t>()][m.at("offset").get<uint32_t>()] =
          from_hex(m.at("hex").get<std::string>());
  } catch (const json::exception& e) {
    fail("bad field: " + json_reason(e));
  }
  if (p.table_address % 2) fail("table_address must be even");
  return p;
}

project load_project_file(const std::string& path) {
  std::ifstream in(path);
  if (!in)
    throw std::runtime_error("plcsim project: cannot open " + path + ": " + std::strerror(errno));
  std::stringstream ss;
  ss << in.rdbuf();
  try {
    return parse_project(ss.str());
  } catch (const std::runtime_error& e) {
    throw std::runtime_error(path + ": " + e.what());
  }
}

static json type_to_json(const derived_type& t) {
  json j = {{"id", t.id}, {"name", t.name}, {"kind", t.kind}};
  if (t.kind == "struct") {
    j["members"] = json::array();
    for (const auto& m : t.members)
      j["members"].push_back({{"name", m.name}, {"type", m.type}, {"offset", m.offset}});
  } else if (t.kind == "array") {
    j["element"] = t.element_type;
    j["dimensions"] = json::array();
    for (const auto& d : t.dimensions) j["dimensions"].push_back({d.first, d.second});
  }
  return j;
}

std::string project_to_json(const project& p) {
  json j;
  j["plc_type"] = p.plc_type;
  j["table_address"] = p.table_address;
  j["dictionary_handle"] = to_hex(msg_writer().le64(p.dictionary_handle).bytes());
  j["types"] = json::array();
  for (const auto& [id, t] : p.types) j["types"].push_back(type_to_json(t));
  j["variables"] = json::array();
  for (const auto& v : p.variables)
    j["variables"].push_back(
        {{"name", v.name}, {"type", v.type}, {"block", v.block}, {"offset", v.offset}});
  j["memory"] = json::array();
  for (const auto& [block, runs] : p.initial)
    for (const auto& [offset, bytes] : runs)
      j["memory"].push_back({{"block", block}, {"offset", offset}, {"hex", to_hex(bytes)}});
  return j.dump(1);
}

}  // namespace plcsim
