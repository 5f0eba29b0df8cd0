#include "tools/host/tag_file_reader.h"

#include <algorithm>
#include <boost/locale/encoding_utf.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "wire/byte_cursor.h"

namespace panelhost {

namespace {

// Bytes before the table: the 7 the driver skips after the caller's offset.
constexpr std::size_t k_skipped = 7;
// The smallest record: length, a one-character name, kind and two values.
constexpr std::size_t k_min_record = 2 + 1 + 1 + 4 + 4;

// An unpaired surrogate is left out.
std::string utf8_of_wide(const std::vector<uint16_t>& units) {
  return boost::locale::conv::utf_to_utf<char>(std::u16string(units.begin(), units.end()));
}

bool printable(uint32_t c) {
  return c >= 0x20 && c != 0x7F;
}

bool looks_like_text(const std::string& bytes) {
  std::size_t text = 0;
  for (unsigned char c : bytes) text += (c >= 0x20 || c == '\n' || c == '\r' || c == '\t') ? 1 : 0;
  return !bytes.empty() && text == bytes.size();
}

}  // namespace

std::string read_file_bytes(const std::string& path, const std::string& what) {
  // A directory opens as a stream on Linux and reads as nothing.
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    throw std::runtime_error("cannot read " + what + " " + path + ": it is a directory");
  }
  std::ifstream in(path, std::ios::binary);
  if (!in)
    throw std::runtime_error("cannot read " + what + " " + path + ": " + std::strerror(errno));
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

std::vector<std::string> parse_tag_names(const std::string& path, const std::string& bytes,
                                         uint32_t offset) {
  const std::string refused = path + " is not a tag file: ";
  const std::string hint =
      looks_like_text(bytes) ? " (it is text: pass a tag list with --list)" : "";
  const std::size_t start = std::size_t{offset} + k_skipped;
  if (bytes.size() < start + 8) {
    throw std::runtime_error(refused + "too short for a tag table (" +
                             std::to_string(bytes.size()) + " bytes)" + hint);
  }
  wire::basic_le_reader<std::string> in(bytes, start);
  const auto remaining = [&] { return bytes.size() - std::min(bytes.size(), in.pos()); };
  const uint32_t wide = in.u32();
  const uint32_t count = in.u32();
  if (wide > 1)
    throw std::runtime_error(refused + "its name-width field reads " + std::to_string(wide) +
                             " (0 or 1 expected)" + hint);
  if (count > remaining() / k_min_record) {
    throw std::runtime_error(refused + "it announces " + std::to_string(count) + " tags, but its " +
                             std::to_string(bytes.size()) + " bytes hold at most " +
                             std::to_string(remaining() / k_min_record) + hint);
  }
  std::vector<std::string> names;
  for (uint32_t i = 0; i < count; ++i) {
    const std::string where = refused + "tag " + std::to_string(i) + " ";
    const uint16_t length = in.u16();
    if (length == 0 || remaining() < std::size_t{length} * (wide + 1) + 9) {
      throw std::runtime_error(where + "has an impossible name length " + std::to_string(length) +
                               hint);
    }
    std::vector<uint16_t> units;
    for (uint16_t c = 0; c < length; ++c) {
      units.push_back(wide ? in.u16() : in.u8());
      if (!printable(units.back())) {
        throw std::runtime_error(where + "has an unprintable character in its name" + hint);
      }
    }
    in.skip(9);  // kind and two values, not interpreted
    names.push_back(wide ? utf8_of_wide(units) : std::string(units.begin(), units.end()));
  }
  if (!in.at_end()) {
    throw std::runtime_error(refused + std::to_string(remaining()) +
                             " bytes follow the last of its " + std::to_string(count) + " tags" +
                             hint);
  }
  return names;
}

std::vector<std::string> read_tag_names(const std::string& path, uint32_t offset) {
  return parse_tag_names(path, read_file_bytes(path, "tag file"), offset);
}

}  // namespace panelhost
