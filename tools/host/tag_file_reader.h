// Reads the names of a tag file. The format has no signature, so the file is checked
// for plausibility first: a text list or a file of garbage is refused with a reason
// instead of being read as an odd table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace panelhost {

// The names in file order (16-bit names converted to UTF-8). Throws std::runtime_error
// with a one-line reason when the file cannot be read or is not a tag file.
std::vector<std::string> read_tag_names(const std::string& path, uint32_t offset = 0);

// The same checks on the file's bytes; path only names the file in messages.
std::vector<std::string> parse_tag_names(const std::string& path, const std::string& bytes,
                                         uint32_t offset);

// Reads a whole file; throws std::runtime_error "cannot read WHAT PATH: OS reason".
std::string read_file_bytes(const std::string& path, const std::string& what);

}  // namespace panelhost
