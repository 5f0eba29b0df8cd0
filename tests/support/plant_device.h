// The driver loaded as the host loads it, in front of the simulated controller of
// examples/plant.json on a free loopback address, with the tags of examples/plant_tags.txt.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/common/host_device.h"
#include "tools/common/tag_file_writer.h"
#include "tools/plcsim/plcsim.h"
#if defined(UNITYDRV_REMOTE_SIM)
#include "support/remote_sim.h"
#endif

namespace plant {

inline const std::string source_dir = UNITYDRV_SOURCE_DIR;

// The simulated controller of a project file (relative to the source tree): in-process,
// or, for a test program under an emulator, the native helper UNITYDRV_REMOTE_SIM so that
// only the driver's side runs emulated.
#if defined(UNITYDRV_REMOTE_SIM)
using sim_server = remote_sim::server;
inline std::unique_ptr<sim_server> make_server(const std::string& file = "examples/plant.json") {
  return std::make_unique<sim_server>(UNITYDRV_REMOTE_SIM, source_dir + "/" + file);
}
#else
using sim_server = plcsim::server;
inline std::unique_ptr<sim_server> make_server(const std::string& file = "examples/plant.json") {
  return std::make_unique<sim_server>(plcsim::load_project_file(source_dir + "/" + file));
}
#endif

inline std::vector<std::string> tag_names(const std::string& file = "examples/plant_tags.txt") {
  std::ifstream in(source_dir + "/" + file);
  std::vector<std::string> names;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty()) names.push_back(line);
  }
  return names;
}

// SetUp writes the tag file (records at tag_offset + 7), starts the simulator and loads
// the driver with InitEx done; a test starts its device with start_device.
class device_test : public ::testing::Test {
 protected:
  // Another project and tag list (paths from the source directory) serve other shapes.
  explicit device_test(uint32_t tag_offset = 0, std::string project_file = "examples/plant.json",
                       std::string tags_file = "examples/plant_tags.txt")
      : tag_offset_(tag_offset),
        project_file_(std::move(project_file)),
        tags_file_(std::move(tags_file)) {}

  void SetUp() override {
    names_ = tag_names(tags_file_);
    ASSERT_FALSE(names_.empty());
    // The process id keeps runs of the same suite side by side (two checkouts, two
    // presets) from removing each other's file.
    tag_path_ = ::testing::TempDir() + "plant_" + std::to_string(::getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".tags";
    ASSERT_TRUE(tag_file::write_names(tag_path_, names_, false, tag_offset_));
    server_ = make_server(project_file_);
    ASSERT_TRUE(server_->start_on_free_loopback());
    lib_ = std::make_unique<loaded_driver::library>();
    host_ = std::make_unique<loaded_driver::device>(*lib_);
    const unitydrv_init_params params = loaded_driver::init_params_of(server_->address());
    lib_->InitEx(0, &params);
  }

  void TearDown() override {
    if (server_) server_->stop();  // first: unblocks a session still waiting on it
    host_.reset();
    lib_.reset();
    std::remove(tag_path_.c_str());
  }

  void start_device(uint8_t offline) {
    ASSERT_EQ(host_->start(tag_path_, offline, tag_offset_), 0);
    ASSERT_NE(host_->handle(), nullptr);
  }

  // GetInitCmdEx2: the code it reports.
  uint32_t get_init() {
    unitydrv_result r{};
    const uint32_t code = host_->get_init(&r);
    EXPECT_EQ(r.word_4, 0u);
    return code;
  }
  int check_init() { return host_->check_init(); }

  void initialise() {
    ASSERT_EQ(get_init(), 0u);
    ASSERT_EQ(check_init(), 1);
  }

  // A new controller on the same address, its request count back at 0.
  void restart_server() {
    const std::string address = server_->address();
    server_->stop();
    server_ = make_server(project_file_);
    ASSERT_TRUE(server_->start(address, 502));
  }

  uint32_t tag(const std::string& name) const {
    for (std::size_t i = 0; i < names_.size(); ++i) {
      if (names_[i] == name) return static_cast<uint32_t>(i);
    }
    ADD_FAILURE() << "no tag " << name;
    return 0;
  }

  // One round of OutputFilterEx and InputFilterEx.
  loaded_driver::input_round read(const std::vector<loaded_driver::request>& wanted) {
    unitydrv_result output{};
    loaded_driver::input_round round = host_->read(wanted, &output);
    EXPECT_EQ(output.byte_3, 8);
    return round;
  }

  void write(const loaded_driver::request& one, const std::vector<uint16_t>& words,
             uint8_t bit_value = 0) {
    EXPECT_EQ(host_->write(one, words, bit_value).byte_3, 8);
  }

  // Bytes of a variable in the simulator's memory.
  std::vector<uint8_t> memory(const std::string& variable, uint32_t offset, std::size_t n) {
    uint16_t block = 0;
    uint32_t base = 0;
    EXPECT_TRUE(server_->variable_location(variable, block, base)) << variable;
    return server_->read_memory(block, base + offset, n);
  }

  // Elements [first, first + n) of a variable as the host's 16-bit units: one per 1-byte
  // element, little-endian pairs otherwise.
  std::vector<uint16_t> held(const std::string& variable, unsigned size, unsigned first,
                             unsigned n) {
    const std::vector<uint8_t> bytes = memory(variable, first * size, std::size_t{n} * size);
    std::vector<uint16_t> units;
    for (std::size_t i = 0; i < bytes.size(); i += size == 1 ? 1 : 2) {
      units.push_back(size == 1 ? bytes[i] : static_cast<uint16_t>(bytes[i] | bytes[i + 1] << 8));
    }
    return units;
  }

  const uint32_t tag_offset_;
  const std::string project_file_;
  const std::string tags_file_;
  std::vector<std::string> names_;
  std::string tag_path_;
  std::unique_ptr<sim_server> server_;
  std::unique_ptr<loaded_driver::library> lib_;
  std::unique_ptr<loaded_driver::device> host_;
};

}  // namespace plant
