// Session sequences against a scripted peer: numbering, skipped and refused steps,
// paging, resends, state changes and failure paths.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unity/scripted_peer.h"
#include "unity/unity_process.h"
#include "wire/byte_cursor.h"

namespace {

using test_peer::bytes;
using test_peer::message_of;
using test_peer::reply_frame;
using test_peer::scripted_peer;
using test_peer::transaction_of;

bytes ok(const bytes& request, bytes payload) {
  payload.insert(payload.begin(), {0x00, 0xFE});
  return reply_frame(transaction_of(request), payload);
}

bytes refused(const bytes& request) {
  return reply_frame(transaction_of(request), {0x00, 0xFD, 0x00});
}

void put_name(bytes& b, const std::string& name) {
  wire::le_writer(b).append(name.begin(), name.end()).u8(0);
}

const bytes handle = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};

// Identification replies: type text for step 1, dictionary handle for step 4, filler
// (20 zero bytes) for the others.
bytes identification_reply(const bytes& request, const std::string& type_text) {
  const bytes message = message_of(request);
  bytes payload(20, 0);
  if (message == bytes{0x00, 0x02}) {
    payload.assign(22, 0);
    payload.push_back(static_cast<unsigned char>(type_text.size()));
    payload.insert(payload.end(), type_text.begin(), type_text.end());
  } else if (transaction_of(request) == 4) {
    payload.assign(8, 0);
    payload.insert(payload.end(), handle.begin(), handle.end());
  }
  return ok(request, payload);
}

class Session : public ::testing::Test {
 protected:
  // Connects, keeping the state the test arranged (setup_device sets state 1).
  void connect(scripted_peer& peer) {
    const int arranged = session.state;
    ASSERT_EQ(session.setup_device("127.0.0.1", peer.port(), 1000), 1);
    if (arranged != unity_process::state_not_connected) session.state = arranged;
  }
  unity_process session;
};

TEST_F(Session, IdentificationNumbersElevenStepsAndDecodesTypeAndHandle) {
  scripted_peer peer(
      [](const bytes& r, std::size_t, bool&) { return identification_reply(r, "BMX P34 2020"); });
  connect(peer);
  ASSERT_TRUE(session.initial_device());
  EXPECT_EQ(session.state, unity_process::state_identified);
  EXPECT_EQ(session.transaction_counter, 12);
  EXPECT_EQ(session.plc_type, "BMX P34 2020");
  EXPECT_EQ(session.dictionary_handle, handle);
  EXPECT_EQ(session.table_address, 0u);
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 11u);
  for (uint16_t step = 1; step <= 11; ++step) {
    bool more = true;
    EXPECT_EQ(requests[step - 1], session.create_init_request(step, 2, more).to_raw_data());
  }
}

TEST_F(Session, RefusedIdentificationStepIsSkipped) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) {
    return transaction_of(r) == 4 ? refused(r) : identification_reply(r, "BMX P34 2020");
  });
  connect(peer);
  EXPECT_TRUE(session.initial_device());
  EXPECT_EQ(peer.requests().size(), 11u);
  EXPECT_EQ(session.dictionary_handle, bytes(8, 0));
  EXPECT_EQ(session.plc_type, "BMX P34 2020");
}

TEST_F(Session, SilentControllerFailsIdentificationAfterOneRequest) {
  scripted_peer peer([](const bytes&, std::size_t, bool&) { return bytes{}; });
  connect(peer);
  EXPECT_FALSE(session.initial_device());
  EXPECT_EQ(peer.requests().size(), 1u);
  EXPECT_EQ(session.state, unity_process::state_connecting);
  EXPECT_EQ(session.transaction_counter, 2);
}

TEST_F(Session, BmeP58WithShortPlcInformationReplyThrows) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) {
    if (message_of(r) == bytes{0x00, 0x04}) return ok(r, bytes(16, 0));  // 26 bytes in all
    return identification_reply(r, "BME P58 2040");
  });
  connect(peer);
  EXPECT_THROW(session.initial_device(), std::out_of_range);
}

class FileHandle : public Session {
 protected:
  void SetUp() override {
    session.state = unity_process::state_ready;
    session.transaction_counter = 30;
    session.variable_address = {1, 2, 3, 4, 5, 6};
  }
};

TEST_F(FileHandle, NoReplyKeepsEverything) {
  scripted_peer peer([](const bytes&, std::size_t, bool&) { return bytes{}; });
  connect(peer);
  session.table_address = 77;
  EXPECT_TRUE(session.get_file_handle_pos());
  EXPECT_EQ(session.table_address, 77u);
  EXPECT_EQ(session.transaction_counter, 30);
}

TEST_F(FileHandle, OnlyInReadyState) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return ok(r, bytes(10, 0)); });
  connect(peer);
  session.state = unity_process::state_identified;
  EXPECT_FALSE(session.get_file_handle_pos());
  EXPECT_TRUE(peer.requests().empty());
}

bytes type_list_page(const bytes& r, uint32_t continuation,
                     const std::vector<std::pair<uint16_t, std::string>>& types) {
  bytes payload;
  wire::le_writer(payload).u32(continuation).u16(static_cast<uint16_t>(types.size()));
  payload.resize(11, 0);
  for (const auto& t : types) {
    wire::le_writer(payload).u16(t.first);
    put_name(payload, t.second);
    payload.insert(payload.end(), 5, 0);
  }
  return ok(r, payload);
}

class Dictionary : public Session {
 protected:
  void SetUp() override {
    session.state = unity_process::state_identified;
    session.dictionary_handle = handle;
  }
};

TEST_F(Dictionary, DataTypeListFollowsContinuationAndResendsWhenSilent) {
  scripted_peer peer([](const bytes& r, std::size_t index, bool&) {
    if (index == 0) return bytes{};  // silent once: the same request comes again
    if (index == 1) return type_list_page(r, 0x0107, {{40, "MOTOR"}});
    return type_list_page(r, 0, {{41, "LINE"}, {42, "STRING[16]"}});
  });
  connect(peer);
  session.get_data_type_list();
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0], requests[1]);
  EXPECT_EQ(transaction_of(requests[1]), 1);
  EXPECT_EQ(transaction_of(requests[2]), 2);
  EXPECT_EQ(bytes(requests[2].end() - 4, requests[2].end()), (bytes{0x07, 0x01, 0x00, 0x00}));
  EXPECT_EQ(session.transaction_counter, 3);
  ASSERT_EQ(session.data_types.size(), 3u);
  EXPECT_EQ(session.data_types.at(40).name, std::string("MOTOR") + '\0');
  EXPECT_EQ(session.data_types.at(42).name, std::string("STRING[16]") + '\0');
}

TEST_F(Dictionary, DataTypeListEndsWhenTheControllerDropsTheConnection) {
  // Pins the endless resend loop: a closed connection must end it, not spin.
  scripted_peer peer([](const bytes&, std::size_t, bool& close) {
    close = true;
    return bytes{};
  });
  connect(peer);
  session.get_data_type_list();
  EXPECT_GE(peer.requests().size(), 1u);
  EXPECT_EQ(session.transaction_counter, 1);
}

TEST_F(Dictionary, DataTypeListAfterStopSendsNothing) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return type_list_page(r, 0, {}); });
  connect(peer);
  session.data_types[1] = data_type{};
  session.stop();
  session.get_data_type_list();
  EXPECT_TRUE(session.data_types.empty());
  EXPECT_TRUE(peer.requests().empty());
}

bytes structure_page(const bytes& r, uint16_t continuation,
                     const std::vector<std::pair<uint16_t, std::string>>& members) {
  bytes payload{0x02};
  wire::le_writer(payload).u16(continuation).u16(0).u16(static_cast<uint16_t>(members.size()));
  uint32_t offset = 0;
  for (const auto& m : members) {
    wire::le_writer(payload).u16(m.first).u32(offset);
    offset += 2;
    put_name(payload, m.second);
  }
  return ok(r, payload);
}

TEST_F(Dictionary, DetailPagesStructuresCopiesArrayMembersAndMarksStrings) {
  session.data_types[10].name = std::string("MOTOR") + '\0';
  session.data_types[11].name = std::string("LINE") + '\0';
  session.data_types[12].name = std::string("STRING[16]") + '\0';
  session.transaction_counter = 20;
  scripted_peer peer([](const bytes& r, std::size_t, bool&) {
    const bytes m = message_of(r);
    const uint16_t type = static_cast<uint16_t>(m[9] | m[10] << 8);
    const uint16_t continuation = static_cast<uint16_t>(m[11] | m[12] << 8);
    if (type == 10 && continuation == 0) return structure_page(r, 0x0005, {{4, "Speed"}});
    if (type == 10 && continuation == 5) return structure_page(r, 0x0009, {{4, "Current"}});
    if (type == 10) return structure_page(r, 0, {{1, "Running"}});
    if (type == 11) {
      bytes payload{0x04, 10, 0x00, 0x01, 1, 0, 0, 0, 4, 0, 0, 0};
      return ok(r, payload);
    }
    return refused(r);  // 11 bytes in all
  });
  connect(peer);
  session.get_data_type_detail();
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 5u);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(transaction_of(requests[i]), 20) << i;
  EXPECT_EQ(transaction_of(requests[3]), 21);
  EXPECT_EQ(transaction_of(requests[4]), 22);
  EXPECT_EQ(session.transaction_counter, 23);
  const auto& motor = session.struct_members.at(10);
  ASSERT_EQ(motor.size(), 3u);
  EXPECT_EQ(motor[0].name, std::string("Speed") + '\0');
  EXPECT_EQ(motor[2].name, std::string("Running") + '\0');
  ASSERT_EQ(session.struct_members.count(11), 1u);
  EXPECT_EQ(session.struct_members.at(11).size(), 3u);
  EXPECT_EQ(session.data_types.at(11).element_type, 10);
  EXPECT_EQ(session.data_types.at(12).element_type, 9);
  EXPECT_EQ(session.data_types.at(10).element_type, 0);
}

bytes table_page(const bytes& r, uint32_t next,
                 const std::vector<std::pair<uint16_t, std::string>>& variables) {
  bytes payload{0x09};
  wire::le_writer(payload).u32(next).u16(static_cast<uint16_t>(variables.size()));
  uint32_t offset = 0x100;
  for (const auto& v : variables) {
    wire::le_writer(payload).u16(v.first).u16(1).u32(offset).u16(0);
    offset += 4;
    put_name(payload, v.second);
  }
  return ok(r, payload);
}

bool is_browse(const bytes& r) {
  const bytes m = message_of(r);
  return m.size() == 15 && m[1] == 0x26 && m[9] == 0xFF && m[10] == 0xFF;
}

TEST_F(Dictionary, BrowsePagesTableThenFetchesFileHandle) {
  session.transaction_counter = 50;
  scripted_peer peer([](const bytes& r, std::size_t index, bool&) {
    if (!is_browse(r)) {
      bytes payload(6, 0);
      wire::le_writer(payload).u32(0x00ABCDEF);  // at buffer byte 16
      return ok(r, payload);
    }
    if (index == 0) return table_page(r, 0x0A0B0C0D, {{4, "Counter"}});
    return table_page(r, 0, {{8, "Speed"}});
  });
  connect(peer);
  EXPECT_TRUE(session.browse());
  EXPECT_EQ(session.state, unity_process::state_ready);
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(bytes(requests[1].end() - 4, requests[1].end()), (bytes{0x0D, 0x0C, 0x0B, 0x0A}));
  EXPECT_EQ(transaction_of(requests[2]), 52);
  EXPECT_FALSE(is_browse(requests[2]));
  EXPECT_EQ(session.table_address, 0x00ABCDEFu);
  EXPECT_EQ(session.transaction_counter, 53);
  EXPECT_EQ(session.tables.size(), 2u);
  EXPECT_EQ(session.tables.count(std::string("Counter") + '\0'), 1u);
}

TEST_F(Dictionary, BrowseOnBmeP58SkipsFileHandle) {
  session.plc_type = "BME P58 4040";
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return table_page(r, 0, {}); });
  connect(peer);
  EXPECT_TRUE(session.browse());
  EXPECT_EQ(peer.requests().size(), 1u);
  EXPECT_EQ(session.state, unity_process::state_ready);
}

TEST_F(Dictionary, BrowseErrorReplyLeavesStateAndFails) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return refused(r); });
  connect(peer);
  EXPECT_FALSE(session.browse());
  EXPECT_EQ(session.state, unity_process::state_identified);
  EXPECT_EQ(peer.requests().size(), 1u);
}

TEST_F(Dictionary, BrowseOutsideIdentifiedStateOnlyFetchesFileHandle) {
  session.state = unity_process::state_connecting;
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return ok(r, bytes(10, 0)); });
  connect(peer);
  EXPECT_TRUE(session.browse());
  EXPECT_EQ(session.state, unity_process::state_ready);
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 1u);
  EXPECT_EQ(message_of(requests[0])[1], 0x22);
}

class Access : public Session {
 protected:
  void SetUp() override {
    session.state = unity_process::state_ready;
    session.transaction_counter = 7;
  }
  static std::vector<read_comm> one_int() {
    read_comm item;
    item.read_format = 2;
    item.type_id = 4;
    item.count = 1;
    item.data = {0x34, 0x12};
    return {item};
  }
};

TEST_F(Access, ReadReturnsValueBytesAndAdvances) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return ok(r, {0x2A, 0x00, 0x05}); });
  connect(peer);
  session.state = unity_process::state_write_ok;
  std::vector<read_comm> items = one_int();
  std::vector<unsigned char> values;
  EXPECT_EQ(session.read(items, values), 1);
  EXPECT_EQ(values, (bytes{0x2A, 0x00, 0x05}));
  EXPECT_EQ(session.state, unity_process::state_read_ok);
  EXPECT_EQ(session.transaction_counter, 8);
  EXPECT_EQ(transaction_of(peer.requests().at(0)), 7);
}

// A request built in place in the session's kept buffer carried over bytes of a longer one.
TEST_F(Access, ReadSendsTheBuiltRequestAlsoAfterALongerOne) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return ok(r, {0x2A, 0x00}); });
  connect(peer);
  std::vector<read_comm> three(3, one_int()[0]);
  three[1].location = {0x02, 0x00, 0x10, 0x20, 0x30, 0x00};
  three[2].read_format = 255;
  std::vector<read_comm> one = one_int();
  std::vector<unsigned char> values;
  ASSERT_EQ(session.read(three, values), 1);
  ASSERT_EQ(session.read(one, values), 1);
  bool expect_reply = true;
  bool normalise = false;
  ASSERT_EQ(peer.requests().size(), 2u);
  EXPECT_EQ(peer.requests()[0],
            session.create_read_request(7, 2, expect_reply, three, normalise).to_raw_data());
  EXPECT_EQ(peer.requests()[1],
            session.create_read_request(8, 2, expect_reply, one, normalise).to_raw_data());
}

// The kept receive buffer let a reply too short for its status byte read stale bytes.
TEST_F(Access, ReadReplyWithoutStatusByteThrows) {
  int replies = 0;
  scripted_peer peer([&replies](const bytes& r, std::size_t, bool&) {
    return replies++ == 0 ? ok(r, {0x2A, 0x00}) : bytes(r.begin(), r.begin() + 9);
  });
  connect(peer);
  std::vector<read_comm> items = one_int();
  std::vector<unsigned char> values;
  ASSERT_EQ(session.read(items, values), 1);
  EXPECT_THROW(session.read(items, values), std::out_of_range);
}

TEST_F(Access, ReadFailures) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return refused(r); });
  connect(peer);
  std::vector<unsigned char> values;
  std::vector<read_comm> too_many(256, one_int()[0]);
  EXPECT_EQ(session.read(too_many, values), 0);
  EXPECT_EQ(session.state, unity_process::state_ready);
  EXPECT_TRUE(peer.requests().empty());

  std::vector<read_comm> items = one_int();
  EXPECT_EQ(session.read(items, values), 0);
  EXPECT_EQ(session.state, unity_process::state_failed);
  EXPECT_EQ(session.transaction_counter, 7);
  EXPECT_EQ(peer.requests().size(), 1u);

  EXPECT_EQ(session.read(items, values), 0);  // state 9: not ready, nothing sent
  EXPECT_EQ(session.state, unity_process::state_failed);
  EXPECT_EQ(peer.requests().size(), 1u);
}

TEST_F(Access, WriteOutcomes) {
  scripted_peer peer([](const bytes& r, std::size_t index, bool&) {
    if (index == 0) return ok(r, {0x01});
    if (index == 1) return refused(r);
    if (index == 2) return ok(r, {0x00});
    return bytes{};
  });
  connect(peer);
  EXPECT_EQ(session.write(one_int()), 1);
  EXPECT_EQ(session.state, unity_process::state_write_ok);
  EXPECT_EQ(session.transaction_counter, 8);

  EXPECT_EQ(session.write(one_int()), 0);  // refused: counted, state kept
  EXPECT_EQ(session.state, unity_process::state_ready);
  EXPECT_EQ(session.transaction_counter, 9);

  EXPECT_EQ(session.write(one_int()), 0);  // accepted without the success flag
  EXPECT_EQ(session.transaction_counter, 10);

  EXPECT_EQ(session.write(one_int()), 0);  // silent
  EXPECT_EQ(session.state, unity_process::state_write_no_reply);
  EXPECT_EQ(session.transaction_counter, 10);

  EXPECT_EQ(session.write(one_int()), 0);  // state 8 is not ready: nothing sent
  EXPECT_EQ(peer.requests().size(), 4u);
  EXPECT_EQ(session.state, unity_process::state_write_no_reply);
}

TEST_F(Access, WriteSuccessReplyWithoutFlagByteThrows) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) { return ok(r, {}); });
  connect(peer);
  EXPECT_THROW(session.write(one_int()), std::out_of_range);
}

}  // namespace
