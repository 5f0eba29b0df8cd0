// Controller events a soak plays on the simulator: a restart drops connections and keeps
// memory, a program download replaces memory, stepped values move on their own, and the
// value history answers what a region held over an interval.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "tools/plcsim/plcsim.h"
#include "tools/plcsim/value_history.h"
#include "tools/plcsim/value_stepper.h"

namespace {

using bytes = std::vector<uint8_t>;
using clock_type = plcsim::value_history::clock;

plcsim::project small_project() {
  return plcsim::parse_project(R"({"plc_type": "BMX P34 2020", "types": [], "variables": [
    {"name": "Count", "type": 4, "block": 1, "offset": 0, "value": 7},
    {"name": "Level", "type": 8, "block": 1, "offset": 4, "value": 2.5},
    {"name": "Flag", "type": 1, "block": 1, "offset": 8, "value": 0}]})");
}

// Connected to the server; -1 when the connect failed.
int connect_to(const plcsim::server& s) {
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in at{AF_INET, htons(s.port()), {::inet_addr(s.address().c_str())}, {}};
  if (::connect(fd, reinterpret_cast<sockaddr*>(&at), sizeof at) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// True when the peer closed the connection within wait_ms.
bool closed_within(int fd, int wait_ms) {
  pollfd p{fd, POLLIN, 0};
  uint8_t b = 0;
  return ::poll(&p, 1, wait_ms) == 1 && ::recv(fd, &b, 1, 0) <= 0;
}

TEST(ControllerEvents, RestartClosesConnectionsAndKeepsMemory) {
  plcsim::server s(small_project());
  ASSERT_TRUE(s.start("127.0.0.1", 0));
  s.write_memory(1, 0, {0x34, 0x12});
  const int fd = connect_to(s);
  ASSERT_GE(fd, 0);
  for (int i = 0; i < 200 && s.connection_count() == 0; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  s.restart();
  EXPECT_TRUE(closed_within(fd, 2000));
  ::close(fd);
  EXPECT_EQ(s.read_memory(1, 0, 2), (bytes{0x34, 0x12}));
  const int again = connect_to(s);
  EXPECT_GE(again, 0) << "a restarted controller accepts connections again";
  EXPECT_FALSE(closed_within(again, 100));
  ::close(again);
}

// Each form of counter, one step: integers wrap at their width, REALs count whole
// numbers, booleans toggle.
TEST(ControllerEvents, SteppedValuesCountInTheirOwnType) {
  using form = plcsim::stepped_value::form;
  struct step_case {
    plcsim::stepped_value v;
    bytes before, after;
  };
  const step_case cases[] = {
      {{1, 0, 2, form::integer, 3}, {0xFE, 0xFF}, {0x01, 0x00}},
      {{1, 0, 4, form::integer, 1}, {0xFF, 0x00, 0x00, 0x00}, {0x00, 0x01, 0x00, 0x00}},
      {{1, 0, 4, form::real, 2}, {0x00, 0x00, 0x20, 0x40}, {0x00, 0x00, 0x90, 0x40}},  // 2.5 -> 4.5
      {{1, 0, 1, form::boolean, 1}, {0x00}, {0x01}},
      {{1, 0, 1, form::boolean, 1}, {0x01}, {0x00}},
  };
  for (const step_case& c : cases) EXPECT_EQ(plcsim::stepped(c.v, c.before), c.after);
}

TEST(ControllerEvents, HistoryHoldsEveryWriteAndAnswersByInterval) {
  plcsim::server s(small_project());
  plcsim::value_history history;
  const std::size_t count = history.watch(1, 0, 2);
  history.attach(s);
  const auto t0 = clock_type::now();
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  s.write_memory(1, 0, {8, 0});
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  const auto t1 = clock_type::now();
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
  s.write_memory(1, 1, {1});     // a write of one byte inside the region
  s.write_memory(1, 2, {9, 9});  // outside it: not recorded
  const auto t2 = clock_type::now();
  EXPECT_EQ(history.held_between(count, t0, t0), (std::vector<bytes>{{7, 0}}));
  EXPECT_EQ(history.held_between(count, t0, t1), (std::vector<bytes>{{7, 0}, {8, 0}}));
  EXPECT_EQ(history.held_between(count, t1, t1), (std::vector<bytes>{{8, 0}}));
  EXPECT_EQ(history.held_between(count, t1, t2), (std::vector<bytes>{{8, 0}, {8, 1}}));
  EXPECT_EQ(history.changes(count), 3u);
}

// A download lays memory out afresh: a region the new program leaves alone reads zero.
TEST(ControllerEvents, HistoryFollowsAProgramDownload) {
  plcsim::server s(small_project());
  plcsim::value_history history;
  const std::size_t count = history.watch(1, 0, 2);
  history.attach(s);
  plcsim::project moved = small_project();
  moved.variables[0].offset = 12;
  moved.initial[1].clear();
  s.load_program(moved);
  const auto now = clock_type::now();
  EXPECT_EQ(history.held_between(count, now, now), (std::vector<bytes>{{0, 0}}));
}

TEST(ControllerEvents, StepperMovesValuesUntilPaused) {
  plcsim::server s(small_project());
  plcsim::value_history history;
  const std::size_t count = history.watch(1, 0, 2);
  history.attach(s);
  {
    plcsim::value_stepper stepper(s, {{1, 0, 2, plcsim::stepped_value::form::integer, 1}}, 2);
    for (int i = 0; i < 500 && stepper.steps() < 5; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    ASSERT_GE(stepper.steps(), 5u);
    stepper.pause(true);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const bytes paused_at = s.read_memory(1, 0, 2);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(s.read_memory(1, 0, 2), paused_at);
  }
  EXPECT_GE(history.changes(count), 6u);  // the initial value and five steps at least
}

}  // namespace
