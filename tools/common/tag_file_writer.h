// Writes tag files (the tests, the examples and the host program share it).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tag_file {

struct record {
  std::string name;  // UTF-8; stored as UTF-16 code units when the file has wide names
  uint8_t file_kind = 0;
  uint32_t file_value1 = 0;
  uint32_t file_value2 = 0;
};

// offset bytes of zero, 7 header bytes, then wide flag, count and the records.
std::vector<unsigned char> encode(const std::vector<record>& records, bool wide_names,
                                  uint32_t offset = 0);
bool write(const std::string& path, const std::vector<record>& records, bool wide_names,
           uint32_t offset = 0);
// The usual file: names only, every kind and value left at zero.
bool write_names(const std::string& path, const std::vector<std::string>& names,
                 bool wide_names = false, uint32_t offset = 0);

}  // namespace tag_file
