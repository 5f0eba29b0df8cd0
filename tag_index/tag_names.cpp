#include "tag_index/tag_names.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "unitydrv/unitydrv.h"

void remove_array_index(std::string& name) {
  const std::size_t open = name.find('[');
  const std::size_t close = name.find(']');
  if (open == std::string::npos || close != name.size() - 2) {
    return;
  }
  name.erase(open);
  name.push_back('\0');
}

std::string RemoveLastArraySymbol(std::string name) {
  const std::size_t open = name.rfind('[');
  const std::size_t close = name.rfind(']');
  if (open == std::string::npos || close == std::string::npos) {
    return name;
  }
  // The count is the position of ']', not the group's length; kept as the host expects.
  name.erase(open, close);
  return name;
}

namespace {

bool is_subscript_delimiter(char c) {
  return c == '[' || c == ',' || c == ' ';
}

}  // namespace

unsigned int tag_plc_tools_function_578::OverrideTagNameForNewArrayIndex(const char* source,
                                                                         char* target,
                                                                         unsigned short index,
                                                                         unsigned char kind) {
  const std::size_t length = std::strlen(source);
  const bool has_subscript = length > 0 && source[length - 1] == ']';
  unsigned short old_number = 0;
  long cut = -1;
  if (has_subscript) {
    if (length < 2 || is_subscript_delimiter(source[length - 2])) {
      cut = static_cast<long>(length) - 2;
    } else {
      long pos = static_cast<long>(length) - 2;
      while (pos >= 0 && !is_subscript_delimiter(source[pos])) {
        --pos;
      }
      const std::size_t digits = length - 1 - static_cast<std::size_t>(pos + 1);
      std::memcpy(target, source + pos + 1, digits);
      target[digits] = '\0';
      old_number = static_cast<unsigned short>(std::strtol(target, nullptr, 10));
      cut = pos;
    }
  }
  // A BitArray counts bits; one controller element holds 32 of them.
  const unsigned short new_number =
      kind == UNITYDRV_TYPE_BITARRAY ? static_cast<unsigned short>(index >> 5) : index;
  if (new_number == old_number) {
    return 0;
  }
  if (!has_subscript) {
    std::sprintf(target, "%s[%d]", source, new_number);
    return 1;
  }
  const std::size_t kept = static_cast<std::size_t>(cut + 1);
  std::memcpy(target, source, kept);
  std::sprintf(target + kept, "%d]", new_number);
  return 1;
}

std::vector<std::string_view> split_at_dots(std::string_view name) {
  std::vector<std::string_view> parts;
  for (std::size_t from = 0;;) {
    const std::size_t dot = name.find('.', from);
    parts.push_back(name.substr(from, dot == std::string_view::npos ? dot : dot - from));
    if (dot == std::string_view::npos) return parts;
    from = dot + 1;
  }
}
