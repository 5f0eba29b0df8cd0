#include <array>

#include "unity/message_strategy.h"
#include "wire/byte_cursor.h"

namespace {

// A name is cut once more than this many bytes were taken; the cursor then stays inside it.
constexpr unsigned max_name_bytes = 33;

// Reads a little-endian value at the cursor; a value cut by the end of the data takes only
// the bytes that exist, so nothing outside the buffer is read.
template <typename T>
T read_partial_le(const std::vector<unsigned char>& data, unsigned short& cursor) {
  T value = 0;
  for (unsigned i = 0; i < sizeof(T); ++i, ++cursor) {
    if (cursor < data.size()) {
      value = static_cast<T>(value | static_cast<T>(data[cursor]) << (8 * i));
    }
  }
  return value;
}

void read_name(const std::vector<unsigned char>& data, unsigned short& cursor, node& record) {
  // Gathered first and stored with one allocation, instead of growing byte by byte.
  std::array<unsigned char, max_name_bytes + 2> name;
  std::size_t length = 0;
  while (cursor < data.size() && data[cursor] != 0 && length <= max_name_bytes) {
    name[length++] = data[cursor];
    ++cursor;
  }
  // The byte at the cursor ends the name: normally its zero, after a cut the next name byte.
  if (cursor < data.size()) {
    name[length++] = data[cursor];
  }
  ++cursor;
  record.name.assign(name.begin(), name.begin() + static_cast<std::ptrdiff_t>(length));
}

}  // namespace

node get_next_node_data(const std::vector<unsigned char>& data, unsigned short& cursor,
                        bool with_name) {
  node record;
  record.type_id = read_partial_le<uint16_t>(data, cursor);
  if (cursor >= data.size()) {
    return record;
  }
  record.block = read_partial_le<uint16_t>(data, cursor);
  if (cursor >= data.size()) {
    return record;
  }
  record.offset = read_partial_le<uint32_t>(data, cursor);
  if (!with_name || cursor >= data.size()) {
    return record;
  }
  cursor = static_cast<unsigned short>(cursor + 2);  // two bytes that carry nothing we use
  read_name(data, cursor, record);
  return record;
}
