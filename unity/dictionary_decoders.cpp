#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

#include "unity/unity_process.h"
#include "wire/byte_cursor.h"
#include "wire/byte_window.h"
#include "wire/unity_constants.h"

namespace {

using bytes = std::vector<unsigned char>;

using wire::array_detail;
using wire::status_ok;
using wire::structure_detail;
using wire::unity_function_code;
constexpr std::size_t dictionary_handle_size = 8;
constexpr std::size_t bytes_per_dimension = 8;

// The whole Unity message of frame `index`, or null when the frame is an error reply or not
// a Unity frame at all (those are passed over).
const bytes* usable_message(const std::vector<unity_frame>& frames, std::size_t index) {
  const unity_frame& frame = frames[index];
  if (frame.function_code != unity_function_code || (frame.status_word >> 8) != status_ok) {
    return nullptr;
  }
  return &frame.nodes.at(index).name;
}

// A zero-terminated name starting at pos, kept with its zero; pos ends just past it.
// A name that runs off the message raises std::out_of_range.
std::string read_name(const bytes& message, std::size_t& pos) {
  const std::size_t start = pos;
  if (start < message.size()) {
    const void* zero = std::memchr(message.data() + start, 0, message.size() - start);
    if (zero != nullptr) {
      pos = static_cast<std::size_t>(static_cast<const unsigned char*>(zero) - message.data()) + 1;
      return std::string(message.begin() + static_cast<std::ptrdiff_t>(start),
                         message.begin() + static_cast<std::ptrdiff_t>(pos));
    }
  }
  throw std::out_of_range("dictionary name without its terminating zero");
}

bytes copy_checked(const bytes& message, std::size_t from, std::size_t count) {
  if (count == 0) return {};
  wire::require(message, from, count);
  const auto first = message.begin() + static_cast<std::ptrdiff_t>(from);
  return bytes(first, first + static_cast<std::ptrdiff_t>(count));
}

uint16_t u16_padded(const bytes& message, std::size_t from) {
  return wire::le_reader(wire::zero_padded(message, from, 2)).u16();
}

}  // namespace

void unity_process::save_plc_type(std::vector<unity_frame> frames) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const bytes* message = usable_message(frames, i);
    if (message == nullptr) {
      continue;
    }
    const std::size_t length = message->at(24);
    plc_type.resize(length);
    if (message->size() < 26) {
      return;
    }
    // A text cut short by the message reads on as zeros, as every decoder reads past the
    // end of a message that the receive buffer held.
    const bytes text = wire::zero_padded(*message, 25, length);
    plc_type.assign(text.begin(), text.end());
  }
}

void unity_process::save_array_type_pos(std::vector<unity_frame> frames) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const bytes* message = usable_message(frames, i);
    if (message == nullptr) {
      continue;
    }
    dictionary_handle.resize(dictionary_handle_size);
    if (message->size() < 11) {
      return;
    }
    // Only 11 bytes are required although the handle spans [10..17]: a shorter reply leaves
    // zeros in the handle bytes it does not cover.
    for (std::size_t k = 0; k < dictionary_handle_size; ++k) {
      const std::size_t at = 10 + k;
      dictionary_handle[k] = at < message->size() ? (*message)[at] : 0;
    }
  }
}

void unity_process::save_table_info(std::vector<unity_frame> frames) {
  const auto all_zero = [](const auto& b) {
    return std::all_of(b.begin(), b.end(), [](unsigned char c) { return c == 0; });
  };
  // Only this decoder writes the address, so once it holds a non-zero byte it keeps it.
  bool address_unset = all_zero(variable_address);
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const bytes* message = usable_message(frames, i);
    if (message == nullptr || frames[i].record_count == 0) {
      continue;
    }
    std::size_t pos = 9;
    for (unsigned r = 0; r < frames[i].record_count; ++r) {
      wire::le_reader in(*message, pos);
      table entry;
      entry.type_id = in.u16();
      entry.location = copy_checked(*message, pos + 2, variable_address.size());
      pos += 10;
      std::string name = read_name(*message, pos);
      if (address_unset) {
        std::copy(entry.location.begin(), entry.location.end(), variable_address.begin());
        address_unset = all_zero(variable_address);
      }
      entry.read_format = read_comm::get_read_format_from_type(entry.type_id);
      // Variables come in name order: the end is the right place for each, found with one
      // comparison instead of a walk down the tree (the same map either way when they do
      // not). A name met before keeps its node and takes the new entry.
      tables
          .emplace_hint(tables.end(), std::piecewise_construct,
                        std::forward_as_tuple(std::move(name)), std::forward_as_tuple())
          ->second = std::move(entry);
    }
  }
}

void unity_process::save_data_type_info(std::vector<unity_frame> frames) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const bytes* message = usable_message(frames, i);
    if (message == nullptr) {
      continue;
    }
    wire::require(*message, 6);
    if (message->size() <= 12) {
      continue;
    }
    const uint16_t count = wire::le_reader(*message, 6).u16();
    std::size_t pos = 13;
    for (unsigned r = 0; r < count; ++r) {
      const uint16_t type_id = wire::le_reader(*message, pos).u16();
      pos += 2;
      data_type entry;
      entry.name = read_name(*message, pos);
      data_types[type_id] = std::move(entry);
      pos += 5;  // bytes after the name that carry nothing we use
    }
  }
}

int unity_process::save_struct_detail(std::vector<unity_frame> frames, data_type_entry& entry,
                                      std::vector<data_type>& members) {
  const bytes* message = nullptr;
  for (std::size_t i = 0; i < frames.size() && message == nullptr; ++i) {
    const bytes* candidate = usable_message(frames, i);
    if (candidate != nullptr && candidate->size() >= 8 && (*candidate)[2] == structure_detail) {
      message = candidate;
    }
  }
  if (message == nullptr) {
    return 0;
  }
  // An 8-byte message ends inside the member count; its high byte then reads 0.
  const uint16_t count = u16_padded(*message, 7);
  // Room for the page's members at once; a member takes at least seven bytes.
  members.reserve(members.size() + std::min<std::size_t>(count, message->size() / 7));
  std::size_t pos = 9;
  for (unsigned m = 0; m < count; ++m) {
    data_type member;
    member.bounds = copy_checked(*message, pos, 2);  // the member's type id
    member.member_offset_bytes = copy_checked(*message, pos + 2, 4);
    pos += 6;
    while (message->at(pos) == 0) {
      ++pos;  // padding in front of the name
    }
    member.name = read_name(*message, pos);
    members.push_back(std::move(member));
  }
  // The low half of next_address: non-zero means the structure continues on another page.
  if (wire::le_reader(*message, 3).u16() != 0) {
    return structure_detail;
  }
  struct_members[entry.first] = members;
  return 1;
}

void unity_process::save_array_detail(std::vector<unity_frame> frames, data_type_entry& entry) {
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const bytes* message = usable_message(frames, i);
    if (message == nullptr) {
      continue;
    }
    const std::size_t dimensions = message->at(5);
    if (frames[i].record_format == array_detail) {
      // From the dimension count itself on: readers of bounds expect that leading byte.
      entry.second.bounds = wire::zero_padded(*message, 5, dimensions * bytes_per_dimension);
    }
    entry.second.element_type = wire::le_reader(*message, 3).u16();
  }
}
