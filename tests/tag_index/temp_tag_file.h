// A tag file in the test's temporary directory, removed when the test ends.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "tools/common/tag_file_writer.h"

class temp_tag_file {
 public:
  temp_tag_file() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ =
        ::testing::TempDir() + "unitydrv_" + info->test_suite_name() + "_" + info->name() + ".tags";
  }
  ~temp_tag_file() { std::remove(path_.c_str()); }

  const char* path() const { return path_.c_str(); }

  void write_bytes(const std::vector<unsigned char>& bytes) const {
    std::FILE* file = std::fopen(path_.c_str(), "wb");
    ASSERT_NE(file, nullptr);
    if (!bytes.empty()) {
      ASSERT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
    }
    ASSERT_EQ(std::fclose(file), 0);
  }

  void write_names(const std::vector<std::string>& names, bool wide = false) const {
    ASSERT_TRUE(tag_file::write_names(path_, names, wide));
  }

 private:
  std::string path_;
};
