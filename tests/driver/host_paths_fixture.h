// Shared setup of the request, response and offline tests: a device_context built directly
// from a tag file, and host records shaped the way the host fills them.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "driver/device_context.h"
#include "driver/tag_driver_offline_578.h"
#include "tools/common/host_records.h"
#include "tools/common/tag_file_writer.h"

namespace host_paths {

using request_desc = loaded_driver::request;

class device_test : public ::testing::Test {
 protected:
  // Tags 0..n-1 of the table, in this order.
  void load(const std::vector<std::string>& names, uint8_t offline) {
    path_ = ::testing::TempDir() + "host_paths_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".bin";
    ASSERT_TRUE(tag_file::write_names(path_, names));
    device_ = std::make_unique<device_context>();
    device_->tag_table.Read(path_.c_str(), 0);
    ASSERT_EQ(device_->tag_table.tag_count, names.size());
    device_->offline_mode = offline;
  }

  void TearDown() override {
    if (!path_.empty()) std::remove(path_.c_str());
  }

  // Gives tag i the dictionary position the index builder would have given it.
  void resolve(uint32_t i, uint32_t read_format, uint16_t type_id, uint16_t block, uint32_t offset,
               uint64_t member_offset = 0) {
    tag_entry* e = device_->tag_table.Get(i);
    e->read_format = read_format;
    e->type_id = type_id;
    e->location = {
        static_cast<unsigned char>(block),        static_cast<unsigned char>(block >> 8),
        static_cast<unsigned char>(offset),       static_cast<unsigned char>(offset >> 8),
        static_cast<unsigned char>(offset >> 16), static_cast<unsigned char>(offset >> 24)};
    e->member_offset = member_offset;
  }

  // As the host fills them, with status bytes 0x5C so that the ones written show.
  std::vector<_gui_request_> requests(const std::vector<request_desc>& wanted, uint8_t kind = 0) {
    auto out = loaded_driver::requests(device_.get(), wanted, kind);
    std::memset(out[0].status, 0x5C, sizeof(out[0].status));
    return out;
  }

  // Host results pre-filled with a pattern, so that untouched bytes show, and their
  // bookkeeping (request ids 1000 + i).
  loaded_driver::input_round round(std::size_t n, uint32_t valid = 1) {
    return loaded_driver::input_round(device_.get(), n, valid);
  }

  static std::vector<uint16_t> slot_units(const result_slot& s, std::size_t n) {
    std::vector<uint16_t> out(n);
    for (std::size_t i = 0; i < n; ++i)
      out[i] = static_cast<uint16_t>(s.data[2 * i] | s.data[2 * i + 1] << 8);
    return out;
  }

  tag_driver_offline_578 driver_;
  std::unique_ptr<device_context> device_;
  std::string path_;
};

}  // namespace host_paths
