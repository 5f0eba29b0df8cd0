// A damaged or hostile tag file: read it, resolve every tag against a small dictionary
// (structures nested two deep, an array variable, a structure of arrays), then look every
// name up again and rewrite its subscript as the request translation does. Only
// std::out_of_range and boost::bad_lexical_cast may leave the resolution.
#include <unistd.h>

#include <boost/lexical_cast.hpp>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "dictionary/dictionary_records.h"
#include "tag_index/tag_names.h"
#include "tag_index/tag_table.h"
#include "tests/support/dictionary_builders.h"
#include "wire/byte_cursor.h"

namespace {

using dictionary_builders::member;
using dictionary_builders::variable;

struct dictionary {
  std::map<std::string, table> tables;
  std::map<unsigned short, std::vector<data_type>> struct_members;
  std::map<unsigned short, data_type> data_types;

  dictionary() {
    struct_members[100] = {member("Speed", 5, 0), member("Temp", 16, 4), member("Inner", 101, 12)};
    struct_members[101] = {member("A", 1, 0), member("B", 9, 2)};
    struct_members[102] = {member("Arr", 103, 0), member("Last", 4, 40)};
    data_types[103].element_type = 5;
    tables[std::string("Motor") + '\0'] = variable(100, 1, 0x10);
    tables[std::string("Line") + '\0'] = variable(102, 2, 0x200);
    tables[std::string("Counter") + '\0'] = variable(6, 3, 0x40);
    tables[std::string("Bits") + '\0'] = variable(103, 3, 0x80);
  }
};

// In memory (tmpfs) where there is one: the file is written once per input.
std::string scratch_path() {
  const char* dir = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
  return std::string(dir) + "/fuzz_tag_file." + std::to_string(::getpid());
}

bool write_file(const std::string& path, const uint8_t* data, std::size_t size) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(data, 1, size, f) == size;
  return std::fclose(f) == 0 && ok;
}

void exercise_names(offline_CTagTable_578& table) {
  for (uint32_t i = 0; i < table.tag_count; ++i) {
    const char* name = table.Get(i)->name;
    if (table.GetTagIndexfromName(name) > i % 65536) std::abort();  // first match wins
    std::vector<char> target(std::strlen(name) + 16);
    tag_plc_tools_function_578::OverrideTagNameForNewArrayIndex(name, target.data(), 70, 211);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  static const dictionary dict;
  static const std::string path = scratch_path();
  if (size < 1 || !write_file(path, data + 1, size - 1)) return 0;
  offline_CTagTable_578 table;
  // The first byte is the start offset: the records begin at offset + 7.
  table.Read(path.c_str(), data[0] % 16);
  try {
    table.setup_memory_index(dict.tables, dict.struct_members, dict.data_types);
  } catch (const std::out_of_range&) {
  } catch (const boost::bad_lexical_cast&) {
  }
  exercise_names(table);
  return 0;
}
