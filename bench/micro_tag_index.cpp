// Tag resolution and name lookup at the size of a large project: 50,000 tags against a
// 50,000-variable dictionary. The linear scan is the baseline the name index replaces.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "tag_index/tag_table.h"
#include "tests/support/dictionary_builders.h"
#include "tools/common/tag_file_writer.h"
#include "dictionary/dictionary_records.h"
#include "wire/byte_cursor.h"

namespace {

using dictionary_builders::member;

constexpr int kCount = 50000;
constexpr unsigned short kStructTypes = 40;
constexpr unsigned short kFirstStruct = 100;
constexpr unsigned short kInnerStruct = 99;

using member_map = std::map<unsigned short, std::vector<data_type>>;

struct dictionary {
  std::map<std::string, table> tables;
  member_map members;
};

// Structure types of ten members each, the fifth a nested structure.
dictionary make_dictionary() {
  dictionary d;
  d.members[kInnerStruct] = {member("X", 4, 0), member("Y", 6, 2)};
  for (unsigned short t = 0; t < kStructTypes; ++t) {
    std::vector<data_type>& list = d.members[static_cast<unsigned short>(kFirstStruct + t)];
    for (uint32_t m = 0; m < 10; ++m) {
      list.push_back(m == 4 ? member("Inner", kInnerStruct, 16)
                            : member("Member" + std::to_string(m), 6, 4 * m));
    }
  }
  for (int i = 0; i < kCount; ++i) {
    table v;
    v.type_id = static_cast<uint16_t>(kFirstStruct + i % kStructTypes);
    v.read_format = read_comm::get_read_format_from_type(v.type_id);
    wire::le_writer(v.location).u16(1).u32(static_cast<uint32_t>(i) * 64);
    d.tables["Var" + std::to_string(i) + '\0'] = v;
  }
  return d;
}

std::string tag_name(int i) {
  const std::string base = "Var" + std::to_string(i);
  switch (i % 4) {
    case 0:
      return base;
    case 1:
      return base + ".Member" + std::to_string(i % 10);
    case 2:
      return base + ".Inner.Y";
    default:
      return base + "[2].Member7";
  }
}

class loaded_table {
 public:
  loaded_table() {
    std::vector<std::string> names;
    for (int i = 0; i < kCount; ++i) {
      names.push_back(tag_name(i));
    }
    const std::string path = "/tmp/micro_tag_index_" + std::to_string(getpid()) + ".tags";
    tag_file::write_names(path, names);
    tags.Read(path.c_str(), 0);
    std::remove(path.c_str());
  }
  offline_CTagTable_578 tags;
};

void BM_setup_memory_index(benchmark::State& state) {
  const dictionary d = make_dictionary();
  loaded_table loaded;
  for (auto _ : state) {
    // The maps are taken by value, as the initialisation handshake passes copies.
    if (loaded.tags.setup_memory_index(d.tables, d.members, {}) != 1) {
      state.SkipWithError("no tag resolved");
      break;
    }
  }
  // A nested member and a subscripted variable land where the dictionary puts them.
  if (loaded.tags.Get(kCount - 2)->member_offset != 16 + 2 ||
      loaded.tags.Get(kCount - 1)->member_offset != 28 + 2 * 40) {
    state.SkipWithError("tags resolved to wrong offsets");
  }
  state.SetItemsProcessed(state.iterations() * kCount);
}
BENCHMARK(BM_setup_memory_index)->Unit(benchmark::kMillisecond);

void BM_GetTagIndexfromName_last(benchmark::State& state) {
  loaded_table loaded;
  const std::string last = tag_name(kCount - 1);
  for (auto _ : state) {
    benchmark::DoNotOptimize(loaded.tags.GetTagIndexfromName(last.c_str()));
  }
}
BENCHMARK(BM_GetTagIndexfromName_last);

// Baseline: the first-match strcmp scan that the name index stands in for.
void BM_linear_scan_last(benchmark::State& state) {
  loaded_table loaded;
  const std::string last = tag_name(kCount - 1);
  for (auto _ : state) {
    unsigned short found = 0;
    for (uint32_t i = 0; i < loaded.tags.tag_count; ++i) {
      if (std::strcmp(loaded.tags.entries[i].name, last.c_str()) == 0) {
        found = static_cast<unsigned short>(i);
        break;
      }
    }
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(BM_linear_scan_last);

}  // namespace
