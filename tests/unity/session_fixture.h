// A session connected to a scripted peer, for the exchange tests of identification,
// dictionary download and variable access.
#pragma once

#include <gtest/gtest.h>

#include "tests/support/loopback_peer.h"
#include "unity/unity_process.h"

using harness::bytes;
using harness::message_of;
using harness::scripted_peer;
using harness::transaction_of;

// The dictionary handle the identification replies carry.
inline const bytes dictionary_handle = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};

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
