#include <gtest/gtest.h>

#include "plcsim/sim_client.h"

using simtest::bytes;
using simtest::hex;

namespace {

const std::string table = "78 56 34 12";  // the plant's table address, LE

class variables : public simtest::served_plant {
 protected:
  bytes read(const std::string& items, int count = 1) { return access("22", items, count); }
  bytes write(const std::string& items, int count = 1) { return access("23", items, count); }
  bytes access(const std::string& code, const std::string& items, int count) {
    bytes req = hex("00 " + code + " " + table);
    req.push_back(static_cast<uint8_t>(count));
    bytes it = hex(items);
    req.insert(req.end(), it.begin(), it.end());
    return c->exchange(req);
  }
};

struct read_case {
  const char* what;
  const char* item;
  const char* value;
};

TEST_F(variables, ReadsEachItemShape) {
  const read_case cases[] = {
      {"EBOOL, format 0", "00 0100 01 0000 BC", "01"},
      {"INT, format 2", "02 0100 01 0000 60", "D6FF"},
      {"REAL, format 3", "03 0100 01 0000 B8", "0000AC41"},
      {"64-bit, format 4", "04 0100 01 0000 B0", "CB04FB711F010000"},
      {"INT run of 3, length code 18", "12 0100 01 0000 8E 0300", "14001E002800"},
      {"BOOL array element, 0x21", "21 0100 01 0000 01 76", "01"},
      {"STRING[16], length code 17", "11 0100 01 0000 A0 1000", "504C414E542D41000000000000000000"},
      {"REAL in block 2", "03 0200 01 0000 00", "00009642"},
  };
  for (const auto& k : cases) {
    bytes expected = hex("00 FE");
    bytes v = hex(k.value);
    expected.insert(expected.end(), v.begin(), v.end());
    EXPECT_EQ(read(k.item), expected) << k.what;
  }
}

TEST_F(variables, ReadAddressUsesAll24Bits) {
  srv->write_memory(1, 0x012345, {0xAB});
  EXPECT_EQ(read("01 0100 01 2301 45"), hex("00 FE AB"));
}

TEST_F(variables, MalformedReadsAreRefused) {
  EXPECT_EQ(read("30 0100 01 0000 60").at(1), 0xFD) << "unknown code";
  EXPECT_EQ(read("02 0100 01 0000 60", 2).at(1), 0xFD) << "fewer items than announced";
  EXPECT_EQ(read("02 0100 01 0000 60 FF").at(1), 0xFD) << "trailing bytes";
}

TEST_F(variables, WrongTableAddressIsRefused) {
  bytes req = hex("00 22 78 56 34 13 01 02 0100 01 0000 60");
  EXPECT_EQ(c->exchange(req).at(1), 0xFD);
  bytes wr = hex("00 23 78 56 34 13 01 02 0100 60000000 0700");
  EXPECT_EQ(c->exchange(wr).at(1), 0xFD);
  EXPECT_EQ(srv->read_memory(1, 96, 2), hex("D6FF"));
}

struct write_case {
  const char* what;
  const char* items;
  int count;
  uint32_t offset;     // in block 1
  const char* memory;  // what is there afterwards
};

TEST_F(variables, WritesStoreEachItemShape) {
  const write_case cases[] = {
      {"single value", "02 0100 60000000 0700", 1, 96, "0700"},
      {"run with a count", "12 0100 8C000000 0300 0100 0200 0300", 1, 140, "0100 0200 0300 2800"},
      {"several equal-sized items", "01 0100 74000000 00  01 0100 75000000 01", 2, 116, "00 01 01"},
      // The first item's 0x21 code puts a count into every item, also the second.
      {"count field follows the first item's code",
       "21 0100 76000000 0100 00  21 0100 77000000 0100 01", 2, 118, "00 01"},
      {"no more than the code's width; the next bytes stay untouched", "02 0100 60000000 1111 2222",
       1, 96, "1111 0000"},
  };
  for (const auto& k : cases) {
    EXPECT_EQ(write(k.items, k.count), hex("00 FE 01")) << k.what;
    const bytes want = hex(k.memory);
    EXPECT_EQ(srv->read_memory(1, k.offset, want.size()), want) << k.what;
  }
}

TEST_F(variables, UnevenWriteIsRefused) {
  EXPECT_EQ(write("02 0100 60000000 0700 01", 2).at(1), 0xFD);
}

}  // namespace
