// The fault proxy between a client socket and a scripted controller: each kind of fault
// seen from the client's side, the plan's scripted and seeded draws, and the relay left
// clean when no fault is planned.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include "tests/support/loopback_peer.h"
#include "tools/faultproxy/fault_proxy.h"

namespace {

using faultproxy::fault;
using faultproxy::kind;
using harness::bytes;

// A Modbus TCP frame: transaction id, protocol 0, length, unit 0, then payload.
bytes frame(uint16_t transaction, const bytes& payload) {
  bytes out = {static_cast<uint8_t>(transaction >> 8),
               static_cast<uint8_t>(transaction),
               0,
               0,
               0,
               static_cast<uint8_t>(payload.size() + 1),
               0};
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

const bytes reply_payload = {0x5A, 0x00, 0xFE, 0x11, 0x22, 0x33, 0x44, 0x55};

class FaultProxy : public ::testing::Test {
 protected:
  // The controller answers every request with the same transaction id and reply_payload.
  harness::scripted_peer controller{[](const bytes& request, std::size_t, bool&) {
    return frame(static_cast<uint16_t>(request[0] << 8 | request[1]), reply_payload);
  }};
  faultproxy::proxy proxy{"127.0.0.1", controller.port()};
  int client = -1;

  void SetUp() override {
    ASSERT_TRUE(proxy.start("127.0.0.1", 0));
    client = connect_client();
    ASSERT_GE(client, 0);
  }
  void TearDown() override {
    if (client >= 0) ::close(client);
    proxy.stop();
  }

  // -1 with errno set when the connect fails.
  int connect_client() {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in at{AF_INET, htons(proxy.port()), {::inet_addr("127.0.0.1")}, {}};
    if (::connect(fd, reinterpret_cast<sockaddr*>(&at), sizeof at) != 0) {
      const int reason = errno;
      ::close(fd);
      errno = reason;
      return -1;
    }
    return fd;
  }

  // Connects again, trying every 20 ms for up to 2 s: false when still refused.
  bool reconnect_within_two_seconds() {
    if (client >= 0) ::close(client);
    client = -1;
    for (int tries = 0; client < 0 && tries < 100; ++tries) {
      ::usleep(20 * 1000);
      client = connect_client();
    }
    return client >= 0;
  }

  void ask(uint16_t transaction) {
    const bytes request = frame(transaction, {0x5A, 0x00, 0x22});
    ASSERT_EQ(::send(client, request.data(), request.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(request.size()));
  }

  // What one receive gets within wait_ms: the bytes, empty on a close, or nothing at all
  // (answered false) when the wait ran out; errno tells a reset.
  bool receive(bytes& out, int wait_ms, int* error = nullptr) {
    pollfd p{client, POLLIN, 0};
    if (::poll(&p, 1, wait_ms) != 1) return false;
    out.assign(4096, 0);
    const ssize_t n = ::recv(client, out.data(), out.size(), 0);
    if (error != nullptr) *error = n < 0 ? errno : 0;
    out.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return true;
  }

  // One reply's worth of bytes; what a receive brings beyond it waits for the next call.
  bytes whole_reply(int wait_ms = 3000) {
    const std::size_t size = frame(1, reply_payload).size();
    bytes piece;
    while (pending.size() < size && receive(piece, wait_ms) && !piece.empty())
      pending.insert(pending.end(), piece.begin(), piece.end());
    const std::size_t n = std::min(size, pending.size());
    bytes got(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(n));
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(n));
    return got;
  }
  bytes pending;
};

TEST_F(FaultProxy, RelaysRequestsAndRepliesUnchangedWithoutAPlan) {
  for (uint16_t t = 1; t <= 3; ++t) {
    ask(t);
    EXPECT_EQ(whole_reply(), frame(t, reply_payload));
  }
  EXPECT_EQ(proxy.requests(), 3u);
  EXPECT_EQ(proxy.replies(), 3u);
  EXPECT_EQ(proxy.connections(), 1u);
  for (kind k : faultproxy::all_kinds()) EXPECT_EQ(proxy.faults(k), 0u) << faultproxy::name_of(k);
}

TEST_F(FaultProxy, DelayedReplyIsHeldBackThenDelivered) {
  proxy.plan().push({kind::delay_long, 600, 0, 0});
  ask(7);
  bytes early;
  EXPECT_FALSE(receive(early, 300)) << "the reply came before its delay";
  EXPECT_EQ(whole_reply(), frame(7, reply_payload));
  EXPECT_EQ(proxy.faults(kind::delay_long), 1u);
}

// A split and a stall send the bytes before the cut alone, then the rest.
TEST_F(FaultProxy, SplitAndStalledRepliesArriveInTwoPiecesCutAtTheChosenByte) {
  for (const fault& f : {fault{kind::split, 200, 3, 0}, fault{kind::stall, 400, 11, 0}}) {
    SCOPED_TRACE(faultproxy::name_of(f.what));
    proxy.plan().push(f);
    ask(9);
    const bytes whole = frame(9, reply_payload);
    const auto cut = whole.begin() + static_cast<std::ptrdiff_t>(f.at);
    bytes first, rest;
    ASSERT_TRUE(receive(first, 2000));
    EXPECT_EQ(first, bytes(whole.begin(), cut));
    ASSERT_TRUE(receive(rest, 2000));
    EXPECT_EQ(rest, bytes(cut, whole.end()));
  }
}

TEST_F(FaultProxy, CorruptedReplyHasTheOneByteFlipped) {
  proxy.plan().push({kind::corrupt, 0, 8, 0x0F});
  ask(2);
  bytes expected = frame(2, reply_payload);
  expected[8] ^= 0x0F;
  EXPECT_EQ(whole_reply(), expected);
}

TEST_F(FaultProxy, DuplicatedReplyArrivesTwice) {
  proxy.plan().push({kind::duplicate, 0, 0, 0});
  ask(4);
  EXPECT_EQ(whole_reply(), frame(4, reply_payload));
  EXPECT_EQ(whole_reply(), frame(4, reply_payload));
}

// Dropped: the client reads the end of the stream; reset: ECONNRESET.
TEST_F(FaultProxy, DroppedAndResetConnectionsEndInsteadOfTheReply) {
  for (kind k : {kind::drop, kind::reset}) {
    SCOPED_TRACE(faultproxy::name_of(k));
    proxy.plan().push({k, 0, 0, 0});
    ask(5);
    bytes got;
    int error = 0;
    ASSERT_TRUE(receive(got, 2000, &error));
    EXPECT_TRUE(got.empty());
    EXPECT_EQ(error, k == kind::reset ? ECONNRESET : 0);
    ::close(client);
    client = connect_client();
    ASSERT_GE(client, 0);
  }
}

TEST_F(FaultProxy, BlackHoleSwallowsRequestsAndRepliesForAWhile) {
  proxy.plan().push({kind::black_hole, 800, 0, 0});
  ask(1);
  ask(2);
  bytes got;
  EXPECT_FALSE(receive(got, 400)) << "a black hole answered";
  const std::size_t seen = controller.requests().size();
  EXPECT_EQ(seen, 1u) << "the request after the first one reached the controller";
  ::usleep(600 * 1000);
  ask(3);
  EXPECT_EQ(whole_reply(), frame(3, reply_payload));
}

TEST_F(FaultProxy, RefusalResetsTheConnectionAndRefusesNewOnesUntilItEnds) {
  proxy.plan().push({kind::refuse, 700, 0, 0});
  ask(1);
  bytes got;
  int error = 0;
  ASSERT_TRUE(receive(got, 2000, &error));
  EXPECT_EQ(error, ECONNRESET);
  ::close(client);
  client = connect_client();
  EXPECT_EQ(client, -1);
  EXPECT_EQ(errno, ECONNREFUSED);
  ASSERT_TRUE(reconnect_within_two_seconds()) << "still refused 2 s after a 700 ms refusal";
  ask(2);
  EXPECT_EQ(whole_reply(), frame(2, reply_payload));
}

// Regression: a refusal that calm() ended before the accept thread closed the listener left
// it shut down and open, and every later connect was refused for good.
TEST_F(FaultProxy, CalmEndsARefusalAndTheProxyAcceptsAgain) {
  proxy.refuse_for(60000);
  proxy.calm();
  ASSERT_TRUE(reconnect_within_two_seconds()) << "still refused 2 s after calm()";
  ask(3);
  EXPECT_EQ(whole_reply(), frame(3, reply_payload));
}

TEST(FaultPlan, ScriptedFaultsMeetTheirReplyNumbersOnly) {
  faultproxy::fault_plan plan;
  plan.script({{2, {kind::duplicate, 0, 0, 0}}, {4, {kind::drop, 0, 0, 0}}});
  std::vector<int> hit;
  for (int reply = 1; reply <= 5; ++reply) {
    const auto f = plan.next(20);
    if (f) hit.push_back(reply * 100 + static_cast<int>(f->what));
  }
  EXPECT_EQ(hit, (std::vector<int>{200 + static_cast<int>(kind::duplicate),
                                   400 + static_cast<int>(kind::drop)}));
}

// One seed gives one schedule; parameters keep to each kind's side of the one-second wait,
// cut inside the reply, and corrupt only framing bytes.
TEST(FaultPlan, SeededDrawsRepeatAndKeepTheirParametersInRange) {
  auto schedule = [](uint64_t seed) {
    faultproxy::fault_plan plan;
    plan.randomise(seed, 0.5, faultproxy::all_kinds());
    std::vector<fault> out;
    for (int i = 0; i < 2000; ++i) {
      const auto f = plan.next(40);
      out.push_back(f.value_or(fault{kind::delay_short, -1, 0, 0}));
    }
    return out;
  };
  const auto a = schedule(42), b = schedule(42), c = schedule(43);
  std::set<kind> seen;
  bool differs = false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    EXPECT_TRUE(a[i].what == b[i].what && a[i].ms == b[i].ms && a[i].at == b[i].at);
    differs = differs || a[i].what != c[i].what || a[i].ms != c[i].ms;
    if (a[i].ms < 0) continue;
    seen.insert(a[i].what);
    if (a[i].what == kind::delay_short) {
      EXPECT_LT(a[i].ms, 1000);
    }
    if (a[i].what == kind::delay_long || a[i].what == kind::stall) {
      EXPECT_GT(a[i].ms, 1100);
    }
    if (a[i].what == kind::split || a[i].what == kind::stall) {
      EXPECT_GE(a[i].at, 1u);
      EXPECT_LT(a[i].at, 40u);
    }
    if (a[i].what == kind::corrupt) {
      EXPECT_LT(a[i].at, faultproxy::framing_bytes);
    }
  }
  EXPECT_TRUE(differs) << "seeds 42 and 43 drew the same schedule";
  EXPECT_EQ(seen.size(), faultproxy::kind_count);
}

}  // namespace
