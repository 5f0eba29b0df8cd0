// Writes the fuzzers' seed corpora. The session runs its real sequences (identification,
// data type list, type details, variables table, a read and a write) against the
// simulator with examples/plant.json through a relay that records every reply.
// Usage: fuzz_corpus_dump SOURCE_DIR   (writes SOURCE_DIR/fuzz/corpus/<target>/)

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tests/support/loopback_peer.h"
#include "tools/common/tag_file_writer.h"
#include "tools/plcsim/plcsim.h"
#include "unity/unity_process.h"
#include "wire/byte_cursor.h"

namespace {

using bytes = std::vector<unsigned char>;
namespace fs = std::filesystem;

// Passes each request to the simulator and records its reply under the current label.
class recording_relay {
 public:
  recording_relay(const std::string& sim_address, uint16_t sim_port)
      : relay_(sim_address, sim_port, [this](const bytes& reply) {
          std::lock_guard<std::mutex> lock(mutex_);
          replies_.emplace_back(label_, reply);
        }) {}

  uint16_t port() const { return relay_.port(); }
  void label(const std::string& l) {
    std::lock_guard<std::mutex> lock(mutex_);
    label_ = l;
  }
  std::vector<std::pair<std::string, bytes>> replies() {
    std::lock_guard<std::mutex> lock(mutex_);
    return replies_;
  }

 private:
  std::mutex mutex_;
  std::string label_;
  std::vector<std::pair<std::string, bytes>> replies_;
  harness::relay_peer relay_;  // last: its thread stops before the rest goes
};

void write_file(const fs::path& path, const bytes& content) {
  std::ofstream out(path, std::ios::binary);
  out.write(reinterpret_cast<const char*>(content.data()),
            static_cast<std::streamsize>(content.size()));
}

read_comm item_of(const table& t, uint16_t count) {
  read_comm it;
  std::copy(t.location.begin(), t.location.end(), it.location.begin());
  it.read_format = static_cast<uint8_t>(t.read_format);
  it.type_id = t.type_id;
  it.count = count;
  return it;
}

std::vector<std::pair<std::string, bytes>> record_session(plcsim::server& sim) {
  recording_relay relay(sim.address(), sim.port());
  unity_process session;
  if (session.setup_device("127.0.0.1", relay.port(), 1000) == 0) return {};
  relay.label("init");
  if (session.initial_device()) {
    relay.label("types");
    session.get_data_type_list();
    relay.label("detail");
    session.get_data_type_detail();
    relay.label("browse");
    session.browse();
    std::vector<read_comm> items;
    for (const char* name : {"Counter", "Total"}) {
      const auto found = session.tables.find(std::string(name) + '\0');
      if (found != session.tables.end()) items.push_back(item_of(found->second, 1));
    }
    std::vector<unsigned char> values;
    relay.label("read");
    session.read(items, values);
    if (!items.empty()) {
      items.resize(1);
      items[0].data = {0x2A, 0x00};
      relay.label("write");
      session.write(items);
    }
  }
  session.stop();
  return relay.replies();
}

// Every reply on its own, at most per_label of each step.
void dump_replies(const fs::path& dir, const std::vector<std::pair<std::string, bytes>>& replies,
                  std::size_t per_label) {
  std::map<std::string, std::size_t> seen;
  for (const auto& [label, reply] : replies) {
    const std::size_t k = seen[label]++;
    if (k < per_label) write_file(dir / (label + "_" + std::to_string(k)), reply);
  }
}

// Operation byte, then each reply with its u16 length, up to limit bytes.
bytes session_stream(uint8_t operation, const std::vector<std::pair<std::string, bytes>>& replies,
                     const std::vector<std::string>& labels, std::size_t limit) {
  bytes out{operation};
  for (const auto& [label, reply] : replies) {
    if (std::find(labels.begin(), labels.end(), label) == labels.end()) continue;
    if (out.size() + 2 + reply.size() > limit) break;
    wire::le_writer(out).u16(static_cast<uint16_t>(reply.size()));
    out.insert(out.end(), reply.begin(), reply.end());
  }
  return out;
}

void dump_streams(const fs::path& dir, const std::vector<std::pair<std::string, bytes>>& r) {
  constexpr std::size_t limit = 4096;
  write_file(dir / "initial_device", session_stream(0, r, {"init"}, limit));
  write_file(dir / "data_type_list", session_stream(1, r, {"types"}, limit));
  write_file(dir / "data_type_detail", session_stream(2, r, {"detail"}, limit));
  write_file(dir / "browse", session_stream(3, r, {"browse"}, limit));
  write_file(dir / "read", session_stream(4, r, {"read"}, limit));
  write_file(dir / "write", session_stream(5, r, {"write"}, limit));
  write_file(dir / "handshake",
             session_stream(6, r, {"init", "types", "detail", "browse", "read", "write"}, limit));
}

void dump_tag_files(const fs::path& dir) {
  const std::vector<std::vector<std::string>> sets = {
      {"Motor.Speed", "Motor.Inner.B", "Counter", "Counter[5]"},
      {"Line[2].Last", "Line.Arr[3]", "Bits[3]", "Motor.bad.A", "Unknown"},
      {"Motor", "Motor.Inner", "Line[1,2].Last", "Counter"},
  };
  int n = 0;
  for (const auto& names : sets) {
    std::vector<tag_file::record> records;
    for (const auto& name : names) records.push_back({name, 1, 2, 3});
    for (const bool wide : {false, true}) {
      const uint32_t offset = static_cast<uint32_t>(n % 4);
      bytes file{static_cast<unsigned char>(offset)};
      const bytes encoded = tag_file::encode(records, wide, offset);
      file.insert(file.end(), encoded.begin(), encoded.end());
      write_file(dir / ("tags_" + std::to_string(n++)), file);
    }
  }
}

void dump_tag_names(const fs::path& dir) {
  const std::vector<std::string> names = {
      "Recipe[3].Temp", "Matrix[1,2]", "Alarm[7]", "Bits[2]", "A[]", "Tag", "M[1, 2]", "a[1][2]"};
  int n = 0;
  for (const auto& name : names) {
    bytes input{96, 0, 211};
    input.insert(input.end(), name.begin(), name.end());
    write_file(dir / ("name_" + std::to_string(n++)), input);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: fuzz_corpus_dump SOURCE_DIR\n";
    return 2;
  }
  const fs::path source = argv[1];
  plcsim::server sim(plcsim::load_project_file((source / "examples/plant.json").string()));
  if (!sim.start_on_free_loopback()) {
    std::cerr << "simulator did not start\n";
    return 1;
  }
  const auto replies = record_session(sim);
  sim.stop();
  if (replies.empty()) {
    std::cerr << "no replies recorded\n";
    return 1;
  }
  const fs::path corpus = source / "fuzz/corpus";
  for (const char* target :
       {"fuzz_reply_decoding", "fuzz_session_replies", "fuzz_tag_file", "fuzz_tag_names"}) {
    fs::remove_all(corpus / target);
    fs::create_directories(corpus / target);
  }
  dump_replies(corpus / "fuzz_reply_decoding", replies, 4);
  dump_streams(corpus / "fuzz_session_replies", replies);
  dump_tag_files(corpus / "fuzz_tag_file");
  dump_tag_names(corpus / "fuzz_tag_names");
  std::cout << replies.size() << " replies recorded\n";
  return 0;
}
