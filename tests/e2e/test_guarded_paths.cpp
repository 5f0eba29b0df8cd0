// The paths on which the default mode delivers another variable's value, an old one, or
// ends the host with an exception, each against guarded mode's refusal. ctest runs this
// suite twice (support/guarded_run.h): each test checks the default's outcome in the first
// run and the guarded one, status 2 and code 10 for the refused position, in the second.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "support/guarded_run.h"
#include "support/plant_device.h"

namespace {

using loaded_driver::request;

constexpr const char* project = "tests/e2e/guarded_paths.json";
constexpr const char* changed_project = "tests/e2e/guarded_paths_changed.json";

// Tag numbers of tests/e2e/guarded_paths_tags.txt.
enum : uint32_t {
  counter = 0,
  pump_2_speed = 1,  // the element declared Pumps[3]: subscripts count from 0
  pump_3_speed = 2,
  pump_minus_1_speed = 3,
  levels = 4,
  levels_3 = 5,
  label = 6,
  flags = 7,
  code = 8,
  temps = 9,
  level = 10,
  nope = 11,
  unknown_member = 12,
  whole_structure = 13,
  malformed = 14,
  level_after_malformed = 15,
};

constexpr uint8_t INT = UNITYDRV_TYPE_INT;
constexpr uint8_t REAL = UNITYDRV_TYPE_REAL;

class GuardedPaths : public plant::device_test {
 protected:
  GuardedPaths() : device_test(0, project, "tests/e2e/guarded_paths_tags.txt") {}

  void SetUp() override {
    device_test::SetUp();
    start_device(0);
  }

  static void expect_refused(const loaded_driver::input_round& round, std::size_t i) {
    EXPECT_EQ(round.results[i].result_status, 2) << "position " << i;
    EXPECT_EQ(round.results[i].result_code, 10) << "position " << i;
  }
  static void expect_served(const loaded_driver::input_round& round, std::size_t i,
                            const std::vector<uint16_t>& units) {
    EXPECT_EQ(round.results[i].result_status, 0) << "position " << i;
    EXPECT_EQ(round.results[i].result_code, 5) << "position " << i;
    EXPECT_EQ(round.units(i, units.size()), units) << "position " << i;
  }

  void load_program(const char* file) {
#if defined(UNITYDRV_REMOTE_SIM)
    ASSERT_TRUE(server_->load_program_file(plant::source_dir + "/" + file));
#else
    server_->load_program(plcsim::load_project_file(plant::source_dir + "/" + file));
#endif
  }

  // The handshake. The malformed tag (the last but one) ends the default's index build:
  // CheckInitCmdResponseEx2 says 0 although every tag before it is resolved.
  void ready() {
    ASSERT_EQ(get_init(), 0u);
    ASSERT_EQ(check_init(), guarded_run::on() ? 1 : 0);
  }

  // Timeout, InitEx with this controller's address, and the handshake: the recipe after a
  // failed round.
  void reconnect() {
    host_->drop();
    const unitydrv_init_params params = loaded_driver::init_params_of(server_->address());
    lib_->InitEx(0, &params);
    ready();
  }

  // Faults on the controller's next request.
  void fault_next(plcsim::faults f) {
    server_->set_faults(f);
  }
  int next_request() {
    return static_cast<int>(server_->request_count()) + 1;
  }
};

// 1. Tags that do not resolve. The default reads block 0 for an unknown variable, an unknown
// member, a tag number past the table and every tag behind a malformed subscript (which
// ends its index build), and the short reply raises; a structure named without a member gets
// the request refused by the controller, the good tag beside it with it. Guarded, the bad
// position alone is refused, the good one served.
TEST_F(GuardedPaths, TagsThatDoNotResolveAreRefusedNotRaised) {
  ready();
  const struct {
    request bad;
    uint32_t good;
    uint16_t good_value;
  } cases[] = {
      {{nope, INT, 0, 8}, counter, 7},
      {{unknown_member, INT, 0, 8}, counter, 7},
      {{1000, INT, 0, 8}, counter, 7},
      {{whole_structure, INT, 0, 8}, counter, 7},
      {{malformed, REAL}, level_after_malformed, 42},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bad.tag);
    const std::vector<request> wanted{{c.good, INT}, c.bad};
    if (guarded_run::on()) {
      const auto round = read(wanted);
      expect_served(round, 0, {c.good_value});
      expect_refused(round, 1);
    } else if (c.bad.tag == whole_structure) {
      expect_refused(read(wanted), 0);
    } else {
      EXPECT_THROW(read(wanted), std::out_of_range);
      reconnect();
    }
  }
}

// 1. Every tag of a device whose tag file is missing.
TEST_F(GuardedPaths, DeviceWithoutTagFileRefusesEveryTag) {
  host_->close();
  host_ = std::make_unique<loaded_driver::device>(*lib_);
  ASSERT_EQ(host_->start(tag_path_ + ".missing", 0), 0);
  ASSERT_EQ(get_init(), 0u);
  ASSERT_EQ(check_init(), 1);
  const std::vector<request> wanted{{0, INT, 0, 8}};
  if (!guarded_run::on()) {
    EXPECT_THROW(read(wanted), std::out_of_range);
    return;
  }
  expect_refused(read(wanted), 0);
}

// 2. A structure-array subscript at or past the element count reads the variable behind
// the array (Levels), one below 0 an address 12 bytes short of 4 GiB (zeros here). Subscripts count
// from 0 in both modes: Pumps[2] is the element declared Pumps[3].
TEST_F(GuardedPaths, StructureArraySubscriptOutsideTheArrayIsRefused) {
  ready();
  const auto past = read({{pump_2_speed, REAL}, {pump_3_speed, REAL}});
  expect_served(past, 0, {0x0000, 0x41F4});  // 30.5
  if (guarded_run::on()) {
    expect_refused(past, 1);
  } else {
    expect_served(past, 1, {1, 2});  // Levels[1] and Levels[2] under Pumps[3].Speed
  }
  const auto below = read({{pump_2_speed, REAL}, {pump_minus_1_speed, REAL}});
  expect_served(below, 0, {0x0000, 0x41F4});
  if (guarded_run::on()) {
    expect_refused(below, 1);
  } else {
    expect_served(below, 1, {0, 0});
  }
}

// 3. A request whose elements run past an elementary array reads the variable behind it
// (Label's characters).
TEST_F(GuardedPaths, ElementsPastTheArrayAreRefused) {
  ready();
  const auto round = read({{levels, INT, 6, 4}, {levels, INT, 4, 4}});
  if (guarded_run::on()) {
    expect_refused(round, 0);
  } else {
    expect_served(round, 0, {7, 8, 0x494C, 0x454E});  // "LINE"
  }
  expect_served(round, 1, {5, 6, 7, 8});
}

// 3. Levels[3] names the element declared so (array_index 2 of ARRAY[1..8]); another
// array_index would deliver another element under that name.
TEST_F(GuardedPaths, SubscriptedElementIsServedOnlyForItsOwnIndex) {
  ready();
  const auto round = read({{levels_3, INT, 2}, {levels_3, INT, 3}});
  expect_served(round, 0, {3});
  if (guarded_run::on()) {
    expect_refused(round, 1);
  } else {
    expect_served(round, 1, {4});
  }
}

// 4. A reconnect after an InitEx for another controller: the default connects to that one
// and delivers its values as this device's.
TEST_F(GuardedPaths, ReconnectKeepsTheDevicesOwnAddress) {
  ready();
  expect_served(read({{counter, INT}}), 0, {7});
  std::unique_ptr<plant::sim_server> other = plant::make_server("examples/plant.json");
  ASSERT_TRUE(other->start_on_free_loopback());
  const unitydrv_init_params other_params = loaded_driver::init_params_of(other->address());
  lib_->InitEx(0, &other_params);  // for another device
  host_->drop();
  ready();
  // plant.json's Counter holds -42.
  expect_served(read({{counter, INT}}), 0, {guarded_run::on() ? uint16_t{7} : uint16_t{0xFFD6}});
  other->stop();
}

// 4. The first connect fails (the controller is not up yet) and another device's InitEx
// follows: the default's next attempt goes to the other controller and reads its values.
TEST_F(GuardedPaths, FailedFirstConnectKeepsTheDevicesOwnAddress) {
  const unitydrv_init_params absent = loaded_driver::init_params_of("127.0.0.254");
  lib_->InitEx(0, &absent);
  ASSERT_EQ(get_init(), 10u);
  const unitydrv_init_params present = loaded_driver::init_params_of(server_->address());
  lib_->InitEx(0, &present);  // for another device
  host_->drop();
  EXPECT_EQ(get_init(), guarded_run::on() ? 10u : 0u);
}

// 5. A program download: the default keeps the removed variable's old address and reads
// what lies there now (unwritten memory: zeros). Moved variables follow in both modes.
TEST_F(GuardedPaths, RemovedVariableIsRefusedAfterAProgramChange) {
  ready();
  // The same round before and after: a verdict kept from the earlier index must not stand.
  const std::vector<request> round_of{{temps, INT, 0, 8}, {level, INT}};
  expect_served(read(round_of), 0, {11, 12, 13, 14, 15, 16, 17, 18});
  expect_served(read(round_of), 1, {42});
  load_program(changed_project);  // closes the connection
  reconnect();
  const auto round = read(round_of);
  if (guarded_run::on()) {
    expect_refused(round, 0);
  } else {
    expect_served(round, 0, {0, 0, 0, 0, 0, 0, 0, 0});
  }
  expect_served(round, 1, {43});
}

// 6. A reply that comes after the one-second wait: the default's next request carries the
// same transaction id and takes it, delivering Counter's value as Level's.
TEST_F(GuardedPaths, LateReplyIsNeverTakenForTheNextRequest) {
  ready();
  plcsim::faults late;
  late.delay_reply_to = next_request();
  late.delay_ms = 1300;
  fault_next(late);
  expect_refused(read({{counter, INT}}), 0);
  expect_served(read({{level, INT}}), 0, {guarded_run::on() ? uint16_t{42} : uint16_t{7}});
}

// 7. 256 requests: the default sends nothing and delivers the earlier round's values with
// status 0.
TEST_F(GuardedPaths, MoreThan255RequestsFailEveryPosition) {
  ready();
  expect_served(read({{counter, INT}}), 0, {7});
  const auto round = read(std::vector<request>(256, request{level, INT}));
  if (guarded_run::on()) {
    for (std::size_t i = 0; i < 256; ++i) expect_refused(round, i);
  } else {
    expect_served(round, 0, {7});
  }
  expect_served(read({{level, INT}}), 0, {42});
}

// 7. More value bytes than one reply holds (120 x 20 = 2,400): the default sends the
// request and the outcome is the controller's (this one refuses it); guarded, nothing is
// sent and every position fails.
TEST_F(GuardedPaths, MoreValueBytesThanOneReplyFailEveryPosition) {
  ready();
  const uint64_t before = server_->request_count();
  const auto round = read(std::vector<request>(120, request{label, UNITYDRV_TYPE_STRING, 0, 20}));
  for (std::size_t i = 0; i < 120; ++i) expect_refused(round, i);
  EXPECT_EQ(server_->request_count() - before, guarded_run::on() ? 0u : 1u);
  expect_served(read({{level, INT}}), 0, {42});
}

// 8. A reply cut short raises out of OutputFilterEx; guarded, the round fails and the next
// one is served without the host doing anything.
TEST_F(GuardedPaths, CutReplyFailsTheRoundWithoutAnException) {
  ready();
  plcsim::faults cut;
  cut.truncate_reply_to = next_request();
  cut.truncate_to = 14;
  fault_next(cut);
  const std::vector<request> wanted{{temps, INT, 0, 8}};
  if (!guarded_run::on()) {
    EXPECT_THROW(read(wanted), std::out_of_range);
    return;
  }
  expect_refused(read(wanted), 0);
  expect_served(read(wanted), 0, {11, 12, 13, 14, 15, 16, 17, 18});
}

// 8. A reply split in two: the default decodes the first piece and raises; guarded gathers
// both pieces within the wait.
TEST_F(GuardedPaths, SplitReplyIsGatheredWhole) {
  ready();
  plcsim::faults split;
  split.split_reply_to = next_request();
  fault_next(split);
  const std::vector<request> wanted{{temps, INT, 0, 8}};
  if (!guarded_run::on()) {
    EXPECT_THROW(read(wanted), std::out_of_range);
    return;
  }
  expect_served(read(wanted), 0, {11, 12, 13, 14, 15, 16, 17, 18});
  expect_served(read({{level, INT}}), 0, {42});
}

// 9. A reconnect whose dictionary download fails leaves the device not ready with the
// earlier index: after one failed round the default reads with it, status 0.
TEST_F(GuardedPaths, DeviceNotReadyFailsEveryRound) {
  ready();
  plcsim::faults refuse_dictionary;
  refuse_dictionary.error_function = 0x26;
  fault_next(refuse_dictionary);
  host_->drop();
  ASSERT_EQ(get_init(), 0u);
  EXPECT_EQ(check_init(), 0);
  expect_refused(read({{counter, INT}}), 0);
  const auto second = read({{counter, INT}});
  if (guarded_run::on()) {
    expect_refused(second, 0);
  } else {
    expect_served(second, 0, {7});
  }
  fault_next({});
  reconnect();
  expect_served(read({{counter, INT}}), 0, {7});
}

// 10. A bit inside a word: the default keeps it in the driver's memory only.
TEST_F(GuardedPaths, BitWriteInsideAWordReachesTheController) {
  ready();
  host_->write_bit({flags, UNITYDRV_TYPE_WORD, 0, 1, 1}, 1);  // bit 0 of 0x0018
  EXPECT_EQ(memory("Flags", 0, 2),
            (std::vector<uint8_t>{guarded_run::on() ? uint8_t{0x19} : uint8_t{0x18}, 0}));
  expect_served(read({{flags, UNITYDRV_TYPE_WORD}}), 0,
                {guarded_run::on() ? uint16_t{0x19} : uint16_t{0x18}});
}

// 11. A 1-byte type: the default sends two value bytes per element, which the controller
// refuses, and the write is lost.
TEST_F(GuardedPaths, OneByteWriteSendsOneByteAnElement) {
  ready();
  write({code, UNITYDRV_TYPE_BYTE}, {0x5A});
  EXPECT_EQ(memory("Code", 0, 1),
            std::vector<uint8_t>{guarded_run::on() ? uint8_t{0x5A} : uint8_t{5}});
}

}  // namespace
