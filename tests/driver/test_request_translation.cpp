#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "tests/driver/host_paths_fixture.h"
#include "tests/support/loopback_peer.h"
#include "wire/byte_cursor.h"

namespace {

using harness::bytes;
using host_paths::request_desc;

struct fill_case {
  const char* what;
  uint8_t type_select;
  uint16_t array_index;
  uint8_t bit_spec;
  uint8_t index_off;
  uint8_t want_type;
  uint16_t want_word;
  int8_t want_bit;
};

class FillTagStruct : public host_paths::device_test {};

TEST_F(FillTagStruct, TakesTypeIndexAndBitFromTheRequest) {
  load({"Speed", "Level"}, 0);
  resolve(1, 3, 5, 0x12, 0x340, 6);
  const fill_case cases[] = {
      {"type a", 0, 7, 0, 0, UNITYDRV_TYPE_INT, 7, -1},
      {"type b when selected", 1, 7, 0, 0, 12, 7, -1},
      {"65535 means element 0", 0, 65535, 0, 0, UNITYDRV_TYPE_INT, 0, -1},
      {"bit from the index's low byte", 0, 0x0105, 255, 0, UNITYDRV_TYPE_INT, 0x0105, 5},
      {"bit from 65535 is bit 0", 0, 65535, 255, 0, UNITYDRV_TYPE_INT, 0, 0},
      {"bit_spec counts from 1", 0, 2, 1, 0, UNITYDRV_TYPE_INT, 2, 0},
      {"bit_spec 32 is bit 31", 0, 2, 32, 0, UNITYDRV_TYPE_INT, 2, 31},
      {"index_off keeps the bit taken from the index", 0, 9, 255, 1, UNITYDRV_TYPE_INT, 0, 9},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    tag_ref ref{};
    ref.tag_index = 1;
    ref.type_code_a = UNITYDRV_TYPE_INT;
    ref.type_code_b = 12;
    ref.type_select = c.type_select;
    ref.array_index = c.array_index;
    ref.bit_spec = c.bit_spec;
    ref.index_off = c.index_off;
    ref.element_count = 42;
    offline_stTag_578 tag;
    EXPECT_EQ(driver_.offline_FillTagStruct(&device_->tag_table, &tag, &ref), 42);
    EXPECT_EQ(tag.request_index, 1u);
    EXPECT_EQ(tag.request_byte, c.want_type);
    EXPECT_EQ(tag.request_word, c.want_word);
    EXPECT_EQ(tag.bit_number, c.want_bit);
    EXPECT_STREQ(tag.name, "Level");
    EXPECT_EQ(tag.read_format, 3u);
    EXPECT_EQ(tag.type_id, 5);
    EXPECT_EQ(tag.location[0], 0x12);
    EXPECT_EQ(tag.location[2], 0x40);
    EXPECT_EQ(tag.member_offset, 6u);
  }
}

// Regression: a tag number past the table must not read outside the entries.
TEST_F(FillTagStruct, TagBeyondTheTableIsAnEmptyUnresolvedTag) {
  load({"Speed"}, 0);
  tag_ref ref{};
  ref.tag_index = 5;
  ref.type_code_a = UNITYDRV_TYPE_BITARRAY;
  ref.element_count = 2;
  offline_stTag_578 tag;
  EXPECT_EQ(driver_.offline_FillTagStruct(&device_->tag_table, &tag, &ref), 2);
  EXPECT_EQ(tag.request_index, 5u);
  ASSERT_NE(tag.name, nullptr);
  EXPECT_STREQ(tag.name, "");
  EXPECT_EQ(tag.read_format, 0u);
  EXPECT_EQ(tag.member_offset, 0u);
}

using harness::message_of;
using harness::ok_reply;

// A session connected to a scripted controller and ready for variable exchanges.
class OnlineRequests : public host_paths::device_test {
 protected:
  void connect(harness::scripted_peer& peer) {
    ASSERT_EQ(device_->session.setup_device("127.0.0.1", peer.port(), 100), 1);
    device_->session.state = unity_process::state_ready;
    device_->session.table_address = 0x11223344;
  }

  // Connects the session to a peer that accepts every request with these value bytes, or
  // that never answers.
  harness::scripted_peer& peer_answering(const bytes& values, bool silent = false) {
    peer_ = std::make_unique<harness::scripted_peer>(
        [values, silent](const bytes& req, std::size_t, bool&) {
          return silent ? bytes{} : ok_reply(req, values);
        });
    connect(*peer_);
    return *peer_;
  }

  std::unique_ptr<harness::scripted_peer> peer_;

  // The message of the one request the peer received (waiting a bounded time); empty when
  // none came.
  static bytes only_message(harness::scripted_peer& peer) {
    for (int i = 0; i < 200 && peer.requests().empty(); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const auto seen = peer.requests();
    EXPECT_EQ(seen.size(), 1u);
    return seen.size() == 1 ? message_of(seen[0]) : bytes{};
  }
};

struct unpack_case {
  const char* what;
  uint8_t type;
  uint16_t count;
  bytes values;
  std::vector<uint16_t> units;
};

TEST_F(OnlineRequests, ReadUnpacksEachWidthIntoItsSlot) {
  const unpack_case cases[] = {
      {"DINT", UNITYDRV_TYPE_DINT, 1, {0x04, 0x03, 0x02, 0x01}, {0x0304, 0x0102}},
      {"LREAL", UNITYDRV_TYPE_LREAL, 1, {1, 2, 3, 4, 5, 6, 7, 8}, {0x0201, 0x0403, 0x0605, 0x0807}},
      {"STRING, one character a unit", UNITYDRV_TYPE_STRING, 3, {'a', 'b', 'c'}, {'a', 'b', 'c'}},
      {"unknown type: nothing taken, the slot only cleared", 99, 2, {}, {0, 0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    load({"T"}, 0);
    resolve(0, 4, 5, 1, 0x100);
    peer_answering(c.values);
    auto req = requests({{0, c.type, 0, c.count}});
    // What an earlier read left behind.
    std::memset(device_->tag_table.slots.slot(0).data, 0x77, 4);
    device_->tag_table.slots.note_written(0, 4);
    driver_.outputfilter(req.data(), 1);
    EXPECT_EQ(slot_units(device_->tag_table.slots.slot(0), c.units.size()), c.units);
  }
}

struct write_case {
  const char* what;
  uint8_t type;
  int count;
  std::vector<uint16_t> words;
  uint8_t items;
  bytes first_item;  // address and data
};

TEST_F(OnlineRequests, WholeValueWritesBuildOneItemPerElement) {
  const write_case cases[] = {
      {"DINT, two elements",
       UNITYDRV_TYPE_DINT,
       2,
       {0x5678, 0x1234},
       2,
       {0x08, 0x01, 0, 0, 0x78, 0x56, 0x34, 0x12}},
      {"SINT packs low bytes",
       UNITYDRV_TYPE_SINT,
       1,
       {0x1101, 0x2202},
       1,
       {0x02, 0x01, 0, 0, 0x01, 0x02, 0, 0}},
      {"STRING counts 2 and sends one item",
       UNITYDRV_TYPE_STRING,
       3,
       {0x6261},
       1,
       {0x04, 0x01, 0, 0, 0x61, 0x62}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    load({"T"}, 0);
    resolve(0, 7, 8, 3, 0x100);
    auto& peer = peer_answering({0x01});
    auto req = requests({{0, c.type, 2, 1}}, 1);
    req[0].write.write_count = static_cast<uint16_t>(c.words.size());
    for (std::size_t i = 0; i < c.words.size(); ++i) req[0].write_words[i] = c.words[i];
    driver_.outputfilter(req.data(), c.count);
    const bytes m = only_message(peer);
    ASSERT_GE(m.size(), 10 + c.first_item.size());
    EXPECT_EQ(m[6], c.items);
    EXPECT_EQ(m[7], 7);  // the tag's format code
    EXPECT_EQ(bytes(m.begin() + 10, m.begin() + 10 + c.first_item.size()), c.first_item);
    EXPECT_EQ(device_->session.state, unity_process::state_write_ok);
  }
}

TEST_F(OnlineRequests, ReadItemCarriesTheElementOffsetAndTheBitIsDroppedFromTheRead) {
  load({"Words"}, 0);
  resolve(0, 3, 5, 0x0102, 0x000100);
  auto& peer = peer_answering({0x18, 0x00});
  auto req = requests({{0, UNITYDRV_TYPE_WORD, 3, 1, 5}});  // WORD element 3, bit 4
  driver_.outputfilter(req.data(), 1);
  const bytes m = only_message(peer);
  ASSERT_GE(m.size(), 14u);
  EXPECT_EQ(m[1], 0x22);
  EXPECT_EQ(m[6], 1);     // one item
  EXPECT_EQ(m[7], 3);     // its format
  EXPECT_EQ(m[8], 0x02);  // block
  EXPECT_EQ(m[9], 0x01);
  // Offset 0x100 + 3 * 2.
  EXPECT_EQ(m[11], 0x01);
  EXPECT_EQ(m[12], 0x00);
  EXPECT_EQ(m[13], 0x06);
  const result_slot& s = device_->tag_table.slots.slot(0);
  EXPECT_EQ(s.bit_number, 4);
  EXPECT_EQ(slot_units(s, 1), (std::vector<uint16_t>{0x0018}));
}

TEST_F(OnlineRequests, BitArrayReadsWithTheTypeLengthAndNamesTheElement) {
  load({"Bits[0]", "Bits[3]"}, 0);
  resolve(0, 1, 1, 1, 0x10);
  auto& peer = peer_answering({1, 0});
  auto req = requests({{0, UNITYDRV_TYPE_BITARRAY, 96, 2}});
  driver_.outputfilter(req.data(), 1);
  const bytes m = only_message(peer);
  ASSERT_GE(m.size(), 8u);
  EXPECT_EQ(m[7], 0x21);
  EXPECT_EQ(device_->element_names.count("Bits[3]"), 1u);
  EXPECT_EQ(slot_units(device_->tag_table.slots.slot(0), 2), (std::vector<uint16_t>{1, 0}));
}

TEST_F(OnlineRequests, SingleElementOfABooleanTypeMasksBitOne) {
  load({"E1", "E2", "Plain", "Ebool"}, 0);
  data_type boolean_type;
  boolean_type.element_type = 25;
  data_type byte_type;
  byte_type.element_type = 5;
  device_->session.data_types[40] = boolean_type;
  device_->session.data_types[41] = byte_type;
  resolve(0, 0x21, 40, 1, 0x10);
  resolve(1, 0x21, 40, 1, 0x11);
  resolve(2, 0x21, 41, 1, 0x12);
  resolve(3, 0, 25, 1, 0x13);  // an EBOOL variable: type id 25 itself
  peer_answering({0x02, 0x06, 0x02, 0x03});
  auto req = requests({{0, UNITYDRV_TYPE_BYTE, 0, 1},
                       {1, UNITYDRV_TYPE_BYTE, 0, 1},
                       {2, UNITYDRV_TYPE_BYTE, 0, 1},
                       {3, UNITYDRV_TYPE_BYTE, 0, 1}});
  driver_.outputfilter(req.data(), 4);
  EXPECT_EQ(slot_units(device_->tag_table.slots.slot(0), 1), (std::vector<uint16_t>{0}));
  EXPECT_EQ(slot_units(device_->tag_table.slots.slot(1), 1), (std::vector<uint16_t>{1}));
  EXPECT_EQ(slot_units(device_->tag_table.slots.slot(2), 1), (std::vector<uint16_t>{2}));
  EXPECT_EQ(slot_units(device_->tag_table.slots.slot(3), 1), (std::vector<uint16_t>{1}));
}

// Regression: a reply shorter than the elements asked for must raise, not read past it,
// and the fill it stops stands on a cleared area: what an earlier read left is gone.
TEST_F(OnlineRequests, ShortReplyRaisesOutOfRange) {
  load({"D"}, 0);
  resolve(0, 6, 7, 1, 0x20);
  peer_answering({1, 2, 3, 4, 5});
  auto req = requests({{0, UNITYDRV_TYPE_DINT, 0, 2}});
  std::memset(device_->tag_table.slots.slot(0).data, 0x77, 8);
  device_->tag_table.slots.note_written(0, 8);
  EXPECT_THROW(driver_.outputfilter(req.data(), 1), std::out_of_range);
  EXPECT_EQ(slot_units(device_->tag_table.slots.slot(0), 4),
            (std::vector<uint16_t>{0x0201, 0x0403, 0, 0}));
}

TEST_F(OnlineRequests, FailedReadKeepsTheSlotDataAndSetsStateNine) {
  load({"W"}, 0);
  device_->session.state = unity_process::state_not_connected;
  std::memset(device_->tag_table.slots.slot(0).data, 0x42, 4);
  auto req = requests({{0, UNITYDRV_TYPE_WORD, 0, 2, 3}});
  driver_.outputfilter(req.data(), 1);
  const result_slot& s = device_->tag_table.slots.slot(0);  // the block may have grown
  EXPECT_EQ(s.type_code, 3);
  EXPECT_EQ(s.element_count, 2);
  EXPECT_EQ(s.bit_number, 2);
  EXPECT_EQ(slot_units(s, 2), (std::vector<uint16_t>{0x4242, 0x4242}));
  EXPECT_EQ(device_->session.state, unity_process::state_failed);
  for (uint8_t b : req[0].status) EXPECT_EQ(b, 0);
}

// The value the shadow map holds for a bit write of tag 0 (type WORD) at bit_spec; request
// kinds 1 and 2 are both writes.
struct bit_write_case {
  const char* what;
  uint8_t kind;
  uint8_t bit_spec;
  uint8_t set;
  unsigned long long before;
  unsigned long long after;
};

TEST_F(OnlineRequests, BitWriteChangesOnlyTheShadowValue) {
  load({"W"}, 0);
  auto& peer = peer_answering({}, true);
  const bit_write_case cases[] = {
      {"set bit 0", 1, 1, 1, 0, 1},
      {"clear bit 3", 2, 4, 0, 0xFFull, 0xF7ull},
      {"set bit 31 fills the high half", 1, 32, 1, 0, 0xFFFFFFFF80000000ull},
      {"clear bit 31 empties the high half", 2, 32, 0, 0xFFFFFFFF80000001ull, 1},
      {"bit 32 changes nothing", 1, 33, 1, 5, 5},
      {"clearing bit 40 keeps the high half", 2, 41, 0, 0xFFFFFFFF00000003ull,
       0xFFFFFFFF00000003ull},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    auto req = requests({{0, UNITYDRV_TYPE_WORD, 0, 1, c.bit_spec}}, c.kind);
    req[0].write.bit.write_bit_value = c.set;
    offline_stTag_578 key;
    driver_.offline_FillTagStruct(&device_->tag_table, &key, &req[0].ref);
    device_->tag_values[key] = c.before;
    EXPECT_EQ(driver_.outputfilter(req.data(), 1).byte_3, 8);
    EXPECT_EQ(device_->tag_values[key], c.after);
    for (uint8_t b : req[0].status) EXPECT_EQ(b, 0);
  }
  EXPECT_TRUE(peer.requests().empty());
}

TEST_F(OnlineRequests, BoolWriteSendsTheBitValueByte) {
  load({"Flag"}, 0);
  resolve(0, 1, 1, 2, 0x40);
  auto& peer = peer_answering({}, true);
  auto req = requests({{0, UNITYDRV_TYPE_BOOL, 0, 1}}, 1);
  req[0].write.bit.write_bit_value = 1;
  driver_.outputfilter(req.data(), 1);
  // One item: address 0x40 as four bytes, then the bit value byte.
  const bytes m = only_message(peer);
  ASSERT_EQ(m.size(), 15u);
  EXPECT_EQ(m[6], 1);
  EXPECT_EQ(bytes(m.begin() + 10, m.end()), (bytes{0x40, 0x00, 0x00, 0x00, 0x01}));
}

}  // namespace
