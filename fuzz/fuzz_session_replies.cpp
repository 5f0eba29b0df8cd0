// A session fed a fuzzed stream of replies. Input: one operation byte, then replies, each
// a u16 little-endian length and that many bytes, its announced Modbus TCP length kept
// within 256 bytes past them (announced_length.h). An in-memory peer answers every request
// with the next reply and has closed its end when the replies are used up, so that the
// sequences that repeat a request for ever end through a failing send. Only
// std::out_of_range may leave an operation.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "announced_length.h"
#include "memory_transport.h"
#include "unity/unity_process.h"
#include "wire/byte_cursor.h"

namespace {

using bytes = std::vector<unsigned char>;

constexpr std::size_t max_reply = 4096;

std::vector<bytes> split_replies(const uint8_t* data, std::size_t size) {
  std::vector<bytes> replies;
  std::size_t pos = 0;
  while (pos + 2 <= size) {
    std::size_t n = static_cast<std::size_t>(data[pos] | data[pos + 1] << 8) % max_reply;
    pos += 2;
    if (n > size - pos) n = size - pos;
    if (n == 0) continue;
    replies.emplace_back(data + pos, data + pos + n);
    bound_announced_length(replies.back());
    pos += n;
  }
  return replies;
}

read_comm item(uint16_t block, uint32_t offset, uint8_t format, uint16_t type, uint16_t count) {
  read_comm it;
  wire::bytes loc;
  wire::le_writer(loc).u16(block).u32(offset);
  std::copy(loc.begin(), loc.end(), it.location.begin());
  it.read_format = format;
  it.type_id = type;
  it.count = count;
  return it;
}

// Items of every shape the request builders treat differently.
std::vector<read_comm> sample_items() {
  std::vector<read_comm> items = {item(1, 0x10, 1, 1, 1),       item(1, 0x20, 2, 5, 3),
                                  item(2, 0x100, 0x21, 300, 1), item(2, 0x200, 0x21, 301, 4),
                                  item(3, 0x30, 255, 9, 1),     item(3, 0x40, 255, 302, 2)};
  items[1].data = {1, 2, 3, 4, 5, 6};
  items[4].data = {'a', 'b', 0};
  return items;
}

void prepare_dictionary(unity_process& session) {
  session.data_types[300].element_type = 25;
  session.data_types[301].element_type = 4;
  session.data_types[302].element_type = 9;
}

void run(unity_process& session, uint8_t operation) {
  std::vector<read_comm> items = sample_items();
  std::vector<unsigned char> values;
  switch (operation % 7) {
    case 0:
      session.initial_device();
      break;
    case 1:
      session.state = unity_process::state_identified;
      session.get_data_type_list();
      break;
    case 2:
      session.state = unity_process::state_identified;
      prepare_dictionary(session);
      session.get_data_type_detail();
      break;
    case 3:
      session.state = unity_process::state_identified;
      session.browse();
      break;
    case 4:
      session.state = unity_process::state_ready;
      prepare_dictionary(session);
      session.read(items, values);
      break;
    case 5:
      session.state = unity_process::state_ready;
      prepare_dictionary(session);
      session.write(items);
      break;
    default:
      // The whole initialisation as the handshake runs it, then one read and one write.
      if (!session.initial_device()) return;
      session.get_data_type_list();
      session.get_data_type_detail();
      session.browse();
      session.read(items, values);
      session.write(items);
      break;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  unity_process session;
  if (!session.socket.create(false)) std::abort();
  memory_transport::attach_replies(session.socket.descriptor(), split_replies(data + 1, size - 1));
  try {
    run(session, data[0]);
  } catch (const std::out_of_range&) {
  }
  memory_transport::detach();
  session.stop();
  return 0;
}
