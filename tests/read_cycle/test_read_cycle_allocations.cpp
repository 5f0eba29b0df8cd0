// A warm read cycle (OutputFilterEx, then InputFilterEx) allocates nothing: the rule
// written beside the result slots. This program links the counting operator new to count
// the allocations of the test's own thread (the scripted controller's thread allocates as
// it likes).
#include <gtest/gtest.h>

#include <vector>

#include "guard/guard.h"
#include "tests/driver/host_paths_fixture.h"
#include "tests/support/counting_new.h"
#include "tests/support/loopback_peer.h"

namespace {

using harness::bytes;
using host_paths::request_desc;

struct cycle_case {
  const char* what;
  uint8_t offline;
  std::vector<request_desc> wanted;
  std::size_t value_bytes;  // of the controller's reply
};

std::vector<request_desc> ints(uint32_t n) {
  std::vector<request_desc> out;
  for (uint32_t i = 0; i < n; ++i) out.push_back({i, 195, 0, 1});
  return out;
}

class ReadCycle : public host_paths::device_test {
 protected:
  // Starts a controller answering every read with value bytes 1, 2, 3, ...
  void answer_with(std::size_t value_bytes) {
    bytes values(value_bytes);
    for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<uint8_t>(i + 1);
    peer_ = std::make_unique<harness::scripted_peer>(
        [values](const bytes& req, std::size_t, bool&) { return harness::ok_reply(req, values); });
    ASSERT_EQ(device_->session.setup_device("127.0.0.1", peer_->port(), 100), 1);
    device_->session.state = unity_process::state_ready;
  }

  // One cycle; the allocations it made on this thread.
  std::size_t cycle(std::vector<_gui_request_>& req, std::vector<_input_data_>& res,
                    std::vector<_system_info>& inf) {
    const std::size_t before = counting_new::thread_allocations();
    driver_.outputfilter(req.data(), static_cast<int>(req.size()));
    driver_.inputFilter(res.data(), nullptr, inf.data(), static_cast<int>(res.size()));
    return counting_new::thread_allocations() - before;
  }

  std::unique_ptr<harness::scripted_peer> peer_;
};

// Guarded mode checks each request against its tag's verdict and takes the reply by its
// transaction id: a warm cycle allocates nothing there either.
class GuardedReadCycle : public ReadCycle {
 protected:
  void SetUp() override { guard::on = true; }
  void TearDown() override {
    guard::on = false;
    ReadCycle::TearDown();
  }
};

TEST_F(GuardedReadCycle, WarmCycleAllocatesNothing) {
  const std::vector<request_desc> wanted = ints(100);
  std::vector<std::string> names;
  for (std::size_t i = 0; i < wanted.size(); ++i) names.push_back("T" + std::to_string(i));
  load(names, 0);
  for (uint32_t i = 0; i < names.size(); ++i) {
    resolve(i, 4, 5, 1, 2 * i);
    device_->tag_table.Get(i)->guard_extent = 2;  // one INT
  }
  device_->tag_table.Get(7)->guard_refusal = guard::unknown_variable;
  device_->guarded.ready = true;
  answer_with(198);
  auto req = requests(wanted);
  loaded_driver::input_round in = round(wanted.size());
  cycle(req, in.results, in.infos);
  for (int k = 0; k < 3; ++k) EXPECT_EQ(cycle(req, in.results, in.infos), 0u);
  EXPECT_EQ(in.results[7].result_status, 2);
  EXPECT_EQ(in.results[8].result_status, 0);
  EXPECT_EQ(in.results[8].result_words[0], 0x100F);  // bytes 15, 16: the eighth item sent
  EXPECT_EQ(device_->session.state, unity_process::state_read_ok);
}

TEST_F(ReadCycle, WarmCycleAllocatesNothing) {
  const cycle_case cases[] = {
      {"100 INT tags, the benchmark's cycle", 0, ints(100), 200},
      {"every width, strings and bits",
       0,
       {{0, 196, 0, 2}, {1, 10, 0, 1}, {2, 212, 0, 5}, {3, 3, 0, 4, 3}, {4, 2, 0, 3}},
       8 + 8 + 5 + 8 + 3},
      {"offline, values from the value map", 1, ints(100), 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<std::string> names;
    for (std::size_t i = 0; i < c.wanted.size(); ++i) names.push_back("T" + std::to_string(i));
    load(names, c.offline);
    for (uint32_t i = 0; i < names.size(); ++i) resolve(i, 4, 5, 1, 2 * i);
    if (c.offline == 0) answer_with(c.value_bytes);
    auto req = requests(c.wanted);
    loaded_driver::input_round in = round(c.wanted.size());
    std::vector<_input_data_>& res = in.results;
    cycle(req, res, in.infos);  // the first cycle sizes what the next ones reuse
    for (int k = 0; k < 3; ++k) EXPECT_EQ(cycle(req, res, in.infos), 0u);
    // The cycles delivered values, not an early return.
    EXPECT_EQ(res.back().result_status, 0);
    EXPECT_EQ(res.back().result_code, 5);
    if (c.offline == 0) {
      EXPECT_EQ(device_->session.state, unity_process::state_read_ok);
      EXPECT_EQ(res[0].result_words[0], 0x0201);
    } else {
      EXPECT_EQ(res[0].result_words[0], 0);
      EXPECT_EQ(device_->tag_values.size(), 100u);
    }
    peer_.reset();
  }
}

// The count the tests above rely on: a cycle that allocated would not read as 0.
TEST(CountingNew, CountsTheAllocationsOfThisThread) {
  const std::size_t before = counting_new::thread_allocations();
  std::vector<int> grown;
  grown.reserve(16);
  EXPECT_EQ(counting_new::thread_allocations() - before, 1u);
}

}  // namespace
