#include <gtest/gtest.h>

#include <set>

#include "plcsim/sim_client.h"

using simtest::bytes;
using simtest::hex;

namespace {

const char* handle = "EF CD AB 89";

bytes type_list_request(uint32_t continuation) {
  bytes b = hex(std::string("00 26 03 FB 03 ") + handle);
  simtest::put_le32(b, continuation);
  return b;
}

bytes detail_request(uint16_t type, uint32_t continuation) {
  bytes b = hex(std::string("00 26 02 FB 03 ") + handle);
  b.push_back(static_cast<uint8_t>(type));
  b.push_back(static_cast<uint8_t>(type >> 8));
  simtest::put_le32(b, continuation);
  return b;
}

using dictionary = simtest::served;

TEST_F(dictionary, TypeListHoldsDerivedTypesOnly) {
  serve(simtest::plant());
  bytes r = c->exchange(type_list_request(0));
  ASSERT_GT(r.size(), 13u);
  EXPECT_EQ(bytes(r.begin(), r.begin() + 13), hex("00 FE 00000000 0600 0000000000"));
  EXPECT_EQ(bytes(r.begin() + 13, r.begin() + 29),
            hex("6400 4D4F544F5200 0000000000 6500 41"));  // 100 "MOTOR", 101 "A
}

TEST_F(dictionary, StructureDetailListsMembers) {
  serve(simtest::plant());
  bytes r = c->exchange(detail_request(100, 0));
  ASSERT_GT(r.size(), 39u);
  EXPECT_EQ(bytes(r.begin(), r.begin() + 39), hex("00FE02 0000 0000 0500 "
                                                  "0800 00000000 0000 537065656400 "
                                                  "0800 04000000 0000 43757272656E7400"));
}

TEST_F(dictionary, ArrayDetailGivesElementTypeAndBounds) {
  serve(simtest::plant());
  EXPECT_EQ(c->exchange(detail_request(101, 0)), hex("00FE04 6400 01 00000000 03000000"));
}

TEST_F(dictionary, StringDetailIsAnElevenByteErrorFrame) {
  serve(simtest::plant());
  ASSERT_TRUE(c->send(simtest::adu(3, detail_request(102, 0))));
  bytes frame = c->recv_frame();
  ASSERT_EQ(frame.size(), 11u);
  EXPECT_EQ(frame[9], 0xFD);
}

TEST_F(dictionary, VariablesTableFirstRecord) {
  serve(simtest::plant());
  bytes r = c->exchange(detail_request(0xFFFF, 0));
  ASSERT_GT(r.size(), 26u);
  EXPECT_EQ(bytes(r.begin(), r.begin() + 26),
            hex("00FE09 00000000 1100 6400 0100 00000000 0000 4D6F746F723100"));
}

TEST_F(dictionary, WrongHandleIsRefused) {
  serve(simtest::plant());
  bytes bad = type_list_request(0);
  bad[5] ^= 0xFF;
  EXPECT_EQ(c->exchange(bad).at(1), 0xFD);
  bytes bad_detail = detail_request(100, 0);
  bad_detail[8] ^= 0x01;
  EXPECT_EQ(c->exchange(bad_detail).at(1), 0xFD);
}

// Paging over a project far bigger than one reply, checked on every page.
class dictionary_paging : public dictionary {
 protected:
  void SetUp() override {
    proj = plcsim::generate_project(3000, 300, false);
    serve(proj);
  }
  bytes page(const bytes& request) {
    EXPECT_TRUE(c->send(simtest::adu(7, request)));
    bytes frame = c->recv_frame();
    EXPECT_LE(frame.size(), 2048u);
    EXPECT_GE(frame.size(), 10u);
    EXPECT_EQ(frame[9], 0xFE);
    return frame.size() > 8 ? bytes(frame.begin() + 8, frame.end()) : bytes{};
  }
  plcsim::project proj;
};

TEST_F(dictionary_paging, TypeListContinuesUntilAllTypesAreListed) {
  std::vector<uint16_t> ids;
  uint32_t cont = 0;
  int pages = 0;
  do {
    bytes r = page(type_list_request(cont));
    ASSERT_GE(r.size(), 13u);
    cont = simtest::le32_at(r, 2);
    std::size_t p = 13;
    for (uint16_t i = 0, n = simtest::le16_at(r, 6); i < n; ++i) {
      ids.push_back(simtest::le16_at(r, p));
      p += 2;
      while (r.at(p) != 0) ++p;
      p += 1 + 5;
    }
    EXPECT_EQ(p, r.size());
  } while (cont != 0 && ++pages < 50);
  EXPECT_GT(pages, 0);
  std::vector<uint16_t> expected;
  for (const auto& t : proj.types) expected.push_back(t.first);
  EXPECT_EQ(ids, expected);
}

TEST_F(dictionary_paging, BrowseReturnsEveryVariableOnce) {
  std::vector<std::string> names;
  uint32_t next = 0;
  int pages = 0;
  do {
    bytes r = page(detail_request(0xFFFF, next));
    ASSERT_GE(r.size(), 9u);
    next = simtest::le32_at(r, 3);
    std::size_t p = 9;
    for (uint16_t i = 0, n = simtest::le16_at(r, 7); i < n; ++i) {
      std::size_t end = p + 10;
      while (r.at(end) != 0) ++end;
      names.emplace_back(r.begin() + static_cast<long>(p) + 10, r.begin() + static_cast<long>(end));
      p = end + 1;
    }
  } while (next != 0 && ++pages < 200);
  EXPECT_GT(pages, 10);
  ASSERT_EQ(names.size(), proj.variables.size());
  for (std::size_t i = 0; i < names.size(); ++i) EXPECT_EQ(names[i], proj.variables[i].name);
}

TEST_F(dictionary_paging, WideStructureDetailPagesWithEchoedContinuation) {
  const auto& wide = proj.types.at(100);
  std::vector<uint32_t> offsets;
  uint16_t cont = 0;
  int pages = 0;
  do {
    bytes r = page(detail_request(100, cont));
    ASSERT_GE(r.size(), 9u);
    EXPECT_EQ(r[2], 2);
    cont = simtest::le16_at(r, 3);
    std::size_t p = 9;
    for (uint16_t i = 0, n = simtest::le16_at(r, 7); i < n; ++i) {
      offsets.push_back(simtest::le32_at(r, p + 2));
      p += 8;
      while (r.at(p) == 0) ++p;
      while (r.at(p) != 0) ++p;
      ++p;
    }
  } while (cont != 0 && ++pages < 20);
  EXPECT_GE(pages, 2);
  ASSERT_EQ(offsets.size(), wide.members.size());
  for (std::size_t i = 0; i < offsets.size(); ++i) EXPECT_EQ(offsets[i], wide.members[i].offset);
}

}  // namespace
