#include "tag_index/tag_table.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "wire/byte_cursor.h"

namespace {

// Length, kind and two values: the least a tag record can occupy.
constexpr std::size_t kMinRecordBytes = 2 + 1 + 4 + 4;
constexpr std::size_t kHeaderBytes = 8;

// Everything from position start to the end of the file; empty when start lies beyond it.
wire::bytes read_rest_of_file(std::FILE* file, uint64_t start) {
  if (std::fseek(file, 0, SEEK_END) != 0) {
    return {};
  }
  const long end = std::ftell(file);
  if (end < 0 || static_cast<uint64_t>(end) <= start ||
      std::fseek(file, static_cast<long>(start), SEEK_SET) != 0) {
    return {};
  }
  wire::bytes data(static_cast<std::size_t>(static_cast<uint64_t>(end) - start));
  data.resize(std::fread(data.data(), 1, data.size(), file));
  return data;
}

class record_reader {
 public:
  record_reader(const wire::bytes& data, std::size_t pos, std::size_t char_width)
      : data_(data), cursor_(data, pos), width_(char_width) {}

  std::size_t remaining() const { return data_.size() - cursor_.pos(); }

  // Reads one record into entry; false when the file ended inside it. The name keeps the
  // characters the file holds, and fields the file does not hold stay zero.
  bool read(tag_entry& entry) {
    if (remaining() < 2) {
      return false;
    }
    const std::size_t declared = cursor_.u16();
    const std::size_t present = std::min(declared, remaining() / width_);
    entry.name = static_cast<char*>(std::malloc((present + 1) * width_));
    for (std::size_t i = 0; i < present * width_; ++i) {
      entry.name[i] = static_cast<char>(cursor_.u8());
    }
    std::memset(entry.name + present * width_, 0, width_);
    if (present < declared || remaining() < kMinRecordBytes - 2) {
      return false;
    }
    entry.file_kind = cursor_.u8();
    entry.file_value1 = cursor_.u32();
    entry.file_value2 = cursor_.u32();
    return true;
  }

 private:
  const wire::bytes& data_;
  wire::le_reader cursor_;
  std::size_t width_;
};

char* empty_name(std::size_t char_width) {
  return static_cast<char*>(std::calloc(1, char_width));
}

}  // namespace

offline_CTagTable_578::offline_CTagTable_578() = default;

offline_CTagTable_578::~offline_CTagTable_578() {
  Release();
}

int offline_CTagTable_578::Read(const char* path, unsigned int offset) {
  std::FILE* file = std::fopen(path, "rb");
  open_error = file == nullptr ? errno : 0;
  if (file == nullptr) {
    return 0;
  }
  Release();
  const wire::bytes data = read_rest_of_file(file, uint64_t{offset} + 7);
  wire::le_reader header(data);
  wide_names = data.size() >= 4 ? header.u32() : 0;
  const uint32_t declared = data.size() >= kHeaderBytes ? header.u32() : 0;
  // A hostile count must not size the allocation: no more entries than the file could hold.
  const std::size_t body = data.size() > kHeaderBytes ? data.size() - kHeaderBytes : 0;
  tag_count = static_cast<uint32_t>(std::min<std::size_t>(declared, body / kMinRecordBytes));
  if (tag_count != 0) {
    const std::size_t width = wide_names != 0 ? 2 : 1;
    entries = static_cast<tag_entry*>(std::calloc(tag_count, sizeof(tag_entry)));
    record_reader records(data, kHeaderBytes, width);
    uint32_t filled = 0;
    while (filled < tag_count && records.read(entries[filled])) {
      ++filled;
    }
    for (uint32_t i = 0; i < tag_count; ++i) {
      if (entries[i].name == nullptr) {
        entries[i].name = empty_name(width);
      }
    }
  }
  build_name_index();
  return std::fclose(file);
}

void offline_CTagTable_578::Release() {
  for (uint32_t i = 0; entries != nullptr && i < tag_count; ++i) {
    std::free(entries[i].name);
  }
  std::free(entries);
  entries = nullptr;
  tag_count = 0;
  name_index_.clear();
}

void offline_CTagTable_578::build_name_index() {
  name_index_.clear();
  name_index_.reserve(tag_count);
  for (uint32_t i = 0; i < tag_count; ++i) {
    // emplace keeps the first position of a repeated name.
    name_index_.emplace(entries[i].name, i);
  }
}

unsigned short offline_CTagTable_578::GetTagIndexfromName(const char* name) const {
  if (name == nullptr) {
    return 0;
  }
  const auto found = name_index_.find(name);
  return found == name_index_.end() ? 0 : static_cast<unsigned short>(found->second);
}
