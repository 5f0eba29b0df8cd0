#include "tools/plcsim/project_layout.h"

#include <cstdlib>
#include <stdexcept>

namespace plcsim {

std::size_t elementary_width(uint16_t type_id) {
  switch (type_id) {
    case elementary::bool_:
    case elementary::byte:
    case elementary::ebool:
      return 1;
    case elementary::int_:
    case elementary::uint:
    case elementary::word:
      return 2;
    case elementary::dint:
    case elementary::udint:
    case elementary::real:
    case elementary::time:
    case elementary::date:
    case elementary::tod:
    case elementary::dword:
      return 4;
    case elementary::bits64:
      return 8;
    case elementary::string:
      return 16;  // an undimensioned STRING
    default:
      return 0;
  }
}

static std::size_t string_length(const std::string& name) {
  auto open = name.find('[');
  if (open == std::string::npos) return 16;
  return static_cast<std::size_t>(std::strtoul(name.c_str() + open + 1, nullptr, 10));
}

static std::size_t element_count(const derived_type& t) {
  std::size_t n = 1;
  for (const auto& d : t.dimensions) n *= static_cast<std::size_t>(d.second - d.first + 1);
  return n;
}

std::size_t type_size(const project& p, uint16_t type_id) {
  if (std::size_t w = elementary_width(type_id)) return w;
  auto it = p.types.find(type_id);
  if (it == p.types.end()) throw std::runtime_error("unknown type id " + std::to_string(type_id));
  const derived_type& t = it->second;
  if (t.kind == "string") return string_length(t.name);
  if (t.kind == "array") return element_count(t) * type_size(p, t.element_type);
  std::size_t end = 0;
  for (const auto& m : t.members) {
    std::size_t e = m.offset + type_size(p, m.type);
    if (e > end) end = e;
  }
  return end;
}

// Moves into one "name[i,j]" step of a path below a structure or array.
static bool step_subscript(const project& p, const std::string& sub, uint32_t& offset,
                           uint16_t& type) {
  auto it = p.types.find(type);
  if (it == p.types.end() || it->second.kind != "array") return false;
  const derived_type& arr = it->second;
  std::size_t esize = type_size(p, arr.element_type);
  std::size_t index = 0;
  const char* s = sub.c_str();
  for (const auto& d : arr.dimensions) {
    char* end = nullptr;
    long v = std::strtol(s, &end, 10);
    if (end == s || v < d.first || v > d.second) return false;
    index = index * static_cast<std::size_t>(d.second - d.first + 1) +
            static_cast<std::size_t>(v - d.first);
    s = *end == ',' ? end + 1 : end;
  }
  offset += static_cast<uint32_t>(index * esize);
  type = arr.element_type;
  return true;
}

static bool step_member(const project& p, const std::string& name, uint32_t& offset,
                        uint16_t& type) {
  auto it = p.types.find(type);
  if (it == p.types.end() || it->second.kind != "struct") return false;
  for (const auto& m : it->second.members) {
    if (m.name == name) {
      offset += m.offset;
      type = m.type;
      return true;
    }
  }
  return false;
}

// Splits "a[1].b" into its parts: names and bracketed subscripts.
static bool walk_path(const project& p, const std::string& rest, uint32_t& offset, uint16_t& type) {
  std::size_t i = 0;
  while (i < rest.size()) {
    if (rest[i] == '[') {
      auto close = rest.find(']', i);
      if (close == std::string::npos) return false;
      if (!step_subscript(p, rest.substr(i + 1, close - i - 1), offset, type)) return false;
      i = close + 1;
    } else if (rest[i] == '.') {
      auto end = rest.find_first_of(".[", i + 1);
      if (end == std::string::npos) end = rest.size();
      if (!step_member(p, rest.substr(i + 1, end - i - 1), offset, type)) return false;
      i = end;
    } else {
      return false;
    }
  }
  return true;
}

bool resolve_location(const project& p, const std::string& path, uint16_t& block, uint32_t& offset,
                      uint16_t& type_id) {
  auto end = path.find_first_of(".[");
  std::string base = path.substr(0, end);
  for (const auto& v : p.variables) {
    if (v.name != base) continue;
    uint32_t off = v.offset;
    uint16_t type = v.type;
    if (end != std::string::npos && !walk_path(p, path.substr(end), off, type)) return false;
    block = v.block;
    offset = off;
    type_id = type;
    return true;
  }
  return false;
}

}  // namespace plcsim
