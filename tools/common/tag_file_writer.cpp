#include "tools/common/tag_file_writer.h"

#include <cstdio>
#include <stdexcept>

#include "wire/byte_cursor.h"

namespace tag_file {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one UTF-8 sequence at pos; malformed input becomes U+FFFD, one byte consumed.
char32_t next_code_point(const std::string& text, std::size_t& pos) {
  const auto lead = static_cast<unsigned char>(text[pos++]);
  if (lead < 0x80) {
    return lead;
  }
  std::size_t extra = 0;
  char32_t cp = 0;
  if ((lead & 0xE0) == 0xC0) {
    extra = 1;
    cp = lead & 0x1F;
  } else if ((lead & 0xF0) == 0xE0) {
    extra = 2;
    cp = lead & 0x0F;
  } else if ((lead & 0xF8) == 0xF0) {
    extra = 3;
    cp = lead & 0x07;
  } else {
    return kReplacement;
  }
  if (pos + extra > text.size()) {
    return kReplacement;
  }
  for (std::size_t i = 0; i < extra; ++i) {
    const auto next = static_cast<unsigned char>(text[pos + i]);
    if ((next & 0xC0) != 0x80) {
      return kReplacement;
    }
    cp = cp << 6 | (next & 0x3F);
  }
  pos += extra;
  return cp > 0x10FFFF ? kReplacement : cp;
}

std::vector<uint16_t> to_utf16(const std::string& text) {
  std::vector<uint16_t> units;
  for (std::size_t pos = 0; pos < text.size();) {
    const char32_t cp = next_code_point(text, pos);
    if (cp < 0x10000) {
      units.push_back(static_cast<uint16_t>(cp));
    } else {
      units.push_back(static_cast<uint16_t>(0xD800 + ((cp - 0x10000) >> 10)));
      units.push_back(static_cast<uint16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
    }
  }
  return units;
}

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
  const std::vector<uint16_t> units = to_utf16(name);
  out.u16(checked_length(units.size()));
  for (uint16_t unit : units) {
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

}  // namespace tag_file
