// Large requests through dlopen, as the host makes them, against the simulated controller of
// tests/e2e/large_arrays.json (600 INT, 300 DINT, 300 LINT) and offline.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/guarded_run.h"
#include "support/open_file_limit.h"
#include "support/plant_device.h"

namespace {

using loaded_driver::request;

class LargeRequests : public plant::device_test {
 protected:
  LargeRequests()
      : device_test(0, "tests/e2e/large_arrays.json", "tests/e2e/large_arrays_tags.txt") {}
};

struct large_case {
  const char* variable;
  uint8_t type;
  unsigned size;  // bytes per element
  uint16_t first;
  uint16_t count;
};

// Regression: one request of many elements was cut at 396 units (one slot's data area);
// the rest of result_words kept what the host had put there.
TEST_F(LargeRequests, OneRequestOfManyElementsIsReadWhole) {
  const large_case cases[] = {
      {"Words", UNITYDRV_TYPE_INT, 2, 0, 500},    {"Words", UNITYDRV_TYPE_INT, 2, 0, 600},
      {"Words", UNITYDRV_TYPE_INT, 2, 99, 501},   {"Doubles", UNITYDRV_TYPE_DINT, 4, 0, 250},
      {"Doubles", UNITYDRV_TYPE_DINT, 4, 0, 300}, {"Longs", UNITYDRV_TYPE_LINT, 8, 0, 254},
      {"Longs", UNITYDRV_TYPE_LINT, 8, 46, 254},
  };
  start_device(0);
  initialise();
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.variable) + " from " + std::to_string(c.first) + " x" +
                 std::to_string(c.count));
    const auto round = read({{tag(c.variable), c.type, c.first, c.count}});
    const std::size_t units = std::size_t{c.count} * c.size / 2;
    EXPECT_EQ(round.units(0, units), held(c.variable, c.size, c.first, c.count));
  }
}

// Regression: with several requests in one call, a long fill must run on into the slots
// behind it and be overwritten by their own fills, in request order.
TEST_F(LargeRequests, SharedCallGivesTheOrderOfFillsAndCopies) {
  start_device(0);
  initialise();
  const auto round =
      read({{tag("Words"), UNITYDRV_TYPE_INT, 0, 500}, {tag("Doubles"), UNITYDRV_TYPE_DINT, 0, 1}});
  const std::vector<uint16_t> words = held("Words", 2, 0, 500);
  const std::vector<uint16_t> first_double = held("Doubles", 4, 0, 1);
  if (guarded_run::on()) {
    // Guarded: the long request is refused, not delivered with the other's values inside.
    EXPECT_EQ(round.results[0].result_status, 2);
    EXPECT_EQ(round.results[0].result_code, 10);
    EXPECT_EQ(round.results[1].result_status, 0);
    EXPECT_EQ(round.units(1, 2), first_double);
    return;
  }
  // Slot 1's data starts 804 bytes after slot 0's: unit 402 of the first result. Its fill
  // clears 512 bytes there and then writes its own DINT.
  std::vector<uint16_t> want(words.begin(), words.begin() + 402);
  want.insert(want.end(), first_double.begin(), first_double.end());
  want.resize(500, 0);
  EXPECT_EQ(round.units(0, 500), want);
  EXPECT_EQ(round.results[1].request_id, 1001u);
}

// Writes n elements of type from distinct words, then reads them back in one request.
struct offline_case {
  uint8_t type;
  unsigned size;
  uint16_t count;
};

// Regression: offline, writing 500 elements and reading them back in one request gave the
// first 396 units only.
TEST_F(LargeRequests, OfflineRequestOfManyElementsIsReadBackWhole) {
  const offline_case cases[] = {
      {UNITYDRV_TYPE_INT, 2, 500},   {UNITYDRV_TYPE_INT, 2, 2048}, {UNITYDRV_TYPE_DINT, 4, 250},
      {UNITYDRV_TYPE_DINT, 4, 1024}, {UNITYDRV_TYPE_LINT, 8, 125}, {UNITYDRV_TYPE_LINT, 8, 512},
  };
  start_device(1);
  initialise();
  uint32_t tag_number = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.type) + " x" + std::to_string(c.count));
    const std::size_t units = std::size_t{c.count} * c.size / 2;
    std::vector<uint16_t> words(units);
    for (std::size_t i = 0; i < units; ++i) words[i] = static_cast<uint16_t>(i * 7 + c.type);
    const request whole{tag_number++ % 3, c.type, 0, c.count};
    write(whole, words);
    EXPECT_EQ(read({whole}).units(0, units), words);
  }
}

struct online_write_case {
  const char* what;
  const char* variable;
  uint8_t type;
  unsigned size;  // bytes per element
  uint16_t first;
  uint16_t n;  // element_count
  int items;   // the count argument of OutputFilterEx: items with the same data
};

// A controller reads each write item by its own code, count and width: an item with the
// wrong code or count is refused whole, one with the wrong address lands elsewhere. Each
// element written is checked in memory, with its neighbours left as they were.
TEST_F(LargeRequests, OnlineWritesLandItemByItem) {
  const online_write_case cases[] = {
      {"LINT run", "Longs", UNITYDRV_TYPE_LINT, 8, 1, 3, 1},
      {"LREAL run", "Longs", UNITYDRV_TYPE_LREAL, 8, 10, 2, 1},
      {"LINT, three items", "Longs", UNITYDRV_TYPE_LINT, 8, 20, 1, 3},
      {"DINT run", "Doubles", UNITYDRV_TYPE_DINT, 4, 3, 4, 1},
      {"INT, two items", "Words", UNITYDRV_TYPE_INT, 2, 7, 1, 2},
  };
  start_device(0);
  initialise();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const unsigned span = c.n + c.items - 1;  // elements written
    std::vector<uint16_t> words(std::size_t{c.n} * c.size / 2);
    for (std::size_t i = 0; i < words.size(); ++i)
      words[i] = static_cast<uint16_t>(0x1111 * (i + 1));
    std::vector<uint16_t> want = held(c.variable, c.size, c.first - 1, span + 2);
    for (int j = 0; j < c.items; ++j) {
      std::copy(words.begin(), words.end(), want.begin() + (1 + j) * c.size / 2);
    }
    auto req = loaded_driver::write_request(host_->handle(), {tag(c.variable), c.type, c.first, c.n},
                                           words);
    lib_->OutputFilterEx(req.data(), c.items);
    EXPECT_EQ(held(c.variable, c.size, c.first - 1, span + 2), want);
  }
}

struct value_case {
  const char* what;
  uint8_t type;
  uint16_t count;
  uint16_t write_count;  // its high byte is write_bit_value
  std::vector<uint16_t> words;
  std::vector<uint16_t> read_back;
};

// Regression: offline whole-value writes took BOOL and BitArray from write_bit_value and
// stored 0 for elements beyond write_count.
TEST_F(LargeRequests, OfflineWholeValueWritesTakeEveryElementFromWriteWords) {
  const value_case cases[] = {
      {"BOOL, bit value 1 ignored", UNITYDRV_TYPE_BOOL, 4, 0x0100, {0x0100, 0x0001}, {0, 1, 1, 0}},
      {"BitArray", UNITYDRV_TYPE_BITARRAY, 3, 0x0000, {0x0001, 0x0001}, {1, 0, 1}},
      {"SINT, byte by byte", UNITYDRV_TYPE_SINT, 3, 1, {0x2211, 0x0033}, {0x11, 0x22, 0x33}},
      {"INT past write_count", UNITYDRV_TYPE_INT, 3, 1, {7, 8, 9}, {7, 8, 9}},
      {"DINT, write_count 0", UNITYDRV_TYPE_DINT, 2, 0, {1, 2, 3, 4}, {1, 2, 3, 4}},
      {"LINT", UNITYDRV_TYPE_LINT, 1, 2, {5, 6, 7, 8}, {5, 6, 7, 8}},
      {"LREAL", UNITYDRV_TYPE_LREAL, 1, 4, {1, 2, 3, 4}, {1, 2, 3, 4}},
      {"STRING, one character per unit",
       UNITYDRV_TYPE_STRING,
       3,
       2,
       {0x6261, 0x0063},
       {'a', 'b', 'c'}},
  };
  start_device(1);
  initialise();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const request whole{tag("Words"), c.type, 10, c.count};
    auto req = loaded_driver::write_request(host_->handle(), whole, c.words);
    req[0].write.write_count = c.write_count;
    lib_->OutputFilterEx(req.data(), 1);
    EXPECT_EQ(read({whole}).units(0, c.read_back.size()), c.read_back);
  }
}

// Holds the lowest free descriptors up to number `last`, so the next socket is numbered above.
class descriptor_filler {
 public:
  explicit descriptor_filler(int last) {
    for (int fd = ::open("/dev/null", O_RDONLY); fd >= 0 && fd <= last;
         fd = ::open("/dev/null", O_RDONLY)) {
      held_.push_back(fd);
    }
  }
  ~descriptor_filler() {
    for (int fd : held_) ::close(fd);
  }
  descriptor_filler(const descriptor_filler&) = delete;
  descriptor_filler& operator=(const descriptor_filler&) = delete;
  std::size_t held() const { return held_.size(); }

 private:
  std::vector<int> held_;
};

// Regression: a device whose socket was numbered 1024 or above failed every exchange,
// because select() cannot watch such a descriptor.
TEST_F(LargeRequests, DeviceWithASocketPastDescriptor1023IsServed) {
  const large_case cases[] = {
      {"Words", UNITYDRV_TYPE_INT, 2, 3, 1},
      {"Doubles", UNITYDRV_TYPE_DINT, 4, 0, 300},
      {"Longs", UNITYDRV_TYPE_LINT, 8, 7, 2},
  };
  open_file_limit files(1200);
  if (!files.allowed()) GTEST_SKIP() << "the hard limit on open files is below 1200";
  ASSERT_TRUE(files.raise());
  {
    descriptor_filler filler(1100);
    ASSERT_GT(filler.held(), 0u);
    start_device(0);
    initialise();
    for (const auto& c : cases) {
      SCOPED_TRACE(c.variable);
      const auto round = read({{tag(c.variable), c.type, c.first, c.count}});
      EXPECT_EQ(round.units(0, std::size_t{c.count} * c.size / 2),
                held(c.variable, c.size, c.first, c.count));
    }
    host_->close();
  }
}

}  // namespace
