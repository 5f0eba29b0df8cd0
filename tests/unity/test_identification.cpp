// Identification against a scripted peer: the eleven numbered steps, refused and silent
// steps, and the file handle request.
#include <gtest/gtest.h>

#include <string>

#include "tests/unity/session_fixture.h"

namespace {

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
    payload.insert(payload.end(), dictionary_handle.begin(), dictionary_handle.end());
  }
  return harness::ok_reply(request, payload);
}

// Eleven steps, the type and the handle decoded; a step refused (3) is skipped.
TEST_F(Session, IdentificationNumbersElevenStepsAndDecodesTypeAndHandle) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) {
    return transaction_of(r) == 3 ? harness::refused_reply(r)
                                  : identification_reply(r, "BMX P34 2020");
  });
  connect(peer);
  ASSERT_TRUE(session.initial_device());
  EXPECT_EQ(session.state, unity_process::state_identified);
  EXPECT_EQ(session.transaction_counter, 12);
  EXPECT_EQ(session.plc_type, "BMX P34 2020");
  EXPECT_EQ(session.dictionary_handle, dictionary_handle);
  EXPECT_EQ(session.table_address, 0u);
  EXPECT_EQ(peer.requests().size(), 11u);
}

TEST_F(Session, SilentControllerFailsIdentificationAfterOneRequest) {
  scripted_peer peer([](const bytes&, std::size_t, bool&) { return bytes{}; });
  connect(peer);
  EXPECT_FALSE(session.initial_device());
  EXPECT_EQ(peer.requests().size(), 1u);
  EXPECT_EQ(session.state, unity_process::state_connecting);
  EXPECT_EQ(session.transaction_counter, 2);
}

// A reply that arrives in two pieces is decoded from its first piece, the missing bytes
// read as 0; the rest comes in front of the next reply and spoils only that step.
TEST_F(Session, SplitIdentificationReplyGivesATruncatedDecode) {
  bytes rest;
  scripted_peer peer([&rest](const bytes& r, std::size_t index, bool&) {
    bytes reply = identification_reply(r, "BMX P34 2020");
    if (index == 0) {
      rest.assign(reply.begin() + 20, reply.end());  // the type text's length byte is in it
      reply.resize(20);
    } else if (index == 1) {
      reply.insert(reply.begin(), rest.begin(), rest.end());
    }
    return reply;
  });
  connect(peer);
  ASSERT_TRUE(session.initial_device());
  EXPECT_EQ(session.plc_type, "");
  EXPECT_EQ(session.dictionary_handle, dictionary_handle);
  EXPECT_EQ(session.transaction_counter, 12);
}

TEST_F(Session, BmeP58WithShortPlcInformationReplyThrows) {
  scripted_peer peer([](const bytes& r, std::size_t, bool&) {
    if (message_of(r) == bytes{0x00, 0x04})
      return harness::ok_reply(r, bytes(16, 0));  // 26 bytes in all
    return identification_reply(r, "BME P58 2040");
  });
  connect(peer);
  EXPECT_THROW(session.initial_device(), std::out_of_range);
}

// The file handle request goes only in state 5; without a reply nothing changes.
TEST_F(Session, FileHandleOnlyInReadyStateAndNoReplyKeepsEverything) {
  scripted_peer peer([](const bytes&, std::size_t, bool&) { return bytes{}; });
  session.state = unity_process::state_ready;
  connect(peer);
  session.transaction_counter = 30;
  session.table_address = 77;
  session.state = unity_process::state_identified;
  EXPECT_FALSE(session.get_file_handle_pos());
  EXPECT_TRUE(peer.requests().empty());
  session.state = unity_process::state_ready;
  EXPECT_TRUE(session.get_file_handle_pos());
  EXPECT_EQ(peer.requests().size(), 1u);
  EXPECT_EQ(session.table_address, 77u);
  EXPECT_EQ(session.transaction_counter, 30);
}

}  // namespace
