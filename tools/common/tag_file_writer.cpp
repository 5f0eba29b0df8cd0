#include "tools/common/tag_file_writer.h"

#include <boost/locale/encoding_utf.hpp>
#include <cstdio>
#include <stdexcept>

#include "wire/byte_cursor.h"

namespace tag_file {

namespace {

uint16_t checked_length(std::size_t length) {
  if (length > 0xFFFF) {
    throw std::length_error("tag name longer than 65535 characters");
  }
  return static_cast<uint16_t>(length);
}

void encode_name(wire::le_writer& out, const std::string& name, bool wide_names) {
  if (!wide_names) {
    out.u16(checked_length(name.size())).append(name.begin(), name.end());
    return;
  }
  // Malformed UTF-8 sequences are left out.
  const std::u16string units = boost::locale::conv::utf_to_utf<char16_t>(name);
  out.u16(checked_length(units.size()));
  for (char16_t unit : units) {
    out.u16(unit);
  }
}

}  // namespace

std::vector<unsigned char> encode(const std::vector<record>& records, bool wide_names,
                                  uint32_t offset) {
  // The reader skips offset bytes and then 7 more that it never looks at.
  std::vector<unsigned char> bytes(std::size_t{offset} + 7, 0);
  wire::le_writer out(bytes);
  out.u32(wide_names ? 1 : 0).u32(static_cast<uint32_t>(records.size()));
  for (const record& r : records) {
    encode_name(out, r.name, wide_names);
    out.u8(r.file_kind).u32(r.file_value1).u32(r.file_value2);
  }
  return bytes;
}

bool write(const std::string& path, const std::vector<record>& records, bool wide_names,
           uint32_t offset) {
  const std::vector<unsigned char> bytes = encode(records, wide_names, offset);
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) {
    return false;
  }
  const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  return std::fclose(file) == 0 && written;
}

bool write_names(const std::string& path, const std::vector<std::string>& names, bool wide_names,
                 uint32_t offset) {
  std::vector<record> records;
  records.reserve(names.size());
  for (const std::string& name : names) records.push_back({name});
  return write(path, records, wide_names, offset);
}

}  // namespace tag_file
