#include "tools/chaos/corpus_recorder.h"

#include <sys/stat.h>

#include <fstream>

namespace chaos {

namespace {

constexpr std::size_t replies_per_connection = 40;
constexpr std::size_t distinct_replies = 2000;
constexpr uint8_t whole_session = 6;  // the session target's operation: initialise, read, write

using bytes = std::vector<uint8_t>;

bool save(const std::string& dir, const std::string& target, std::size_t n, const bytes& data) {
  ::mkdir((dir + "/" + target).c_str(), 0755);
  std::ofstream out(dir + "/" + target + "/chaos_" + std::to_string(n), std::ios::binary);
  out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
  return static_cast<bool>(out);
}

// The session target's input: the operation, then each reply behind its u16 length.
bytes session_input(const std::vector<bytes>& replies) {
  bytes out = {whole_session};
  for (const bytes& r : replies) {
    out.push_back(static_cast<uint8_t>(r.size()));
    out.push_back(static_cast<uint8_t>(r.size() >> 8));
    out.insert(out.end(), r.begin(), r.end());
  }
  return out;
}

// The host filters target's input: one online read of tag 0 as an INT, the tag entries'
// formats and types zero, then the reply.
bytes filters_input(const bytes& reply) {
  bytes out = {0, 1};
  bytes ref(17, 0);
  ref[4] = 195;  // INT
  ref[15] = 1;   // one element
  out.insert(out.end(), ref.begin(), ref.end());
  out.insert(out.end(), 4, 0);   // write count and word
  out.insert(out.end(), 21, 0);  // 7 tag entries: format and type
  out.insert(out.end(), reply.begin(), reply.end());
  return out;
}

}  // namespace

void corpus_recorder::reply(int controller, uint64_t connection, const bytes& frame) {
  std::lock_guard<std::mutex> lock(mu_);
  auto& replies = connections_[{controller, connection}];
  if (replies.size() < replies_per_connection) replies.push_back(frame);
  if (replies_.size() < distinct_replies) replies_.insert(frame);
}

std::size_t corpus_recorder::write(const std::string& dir, std::size_t per_target) const {
  std::lock_guard<std::mutex> lock(mu_);
  ::mkdir(dir.c_str(), 0755);
  std::size_t written = 0, n = 0;
  for (const auto& [key, replies] : connections_) {
    if (n == per_target) break;
    written += save(dir, "fuzz_session_replies", n++, session_input(replies));
  }
  // Replies of distinct sizes first: they reach the most different decoding paths.
  std::set<std::size_t> sizes;
  n = 0;
  for (const bytes& r : replies_) {
    if (n == per_target || !sizes.insert(r.size()).second) continue;
    written += save(dir, "fuzz_reply_decoding", n, r);
    written += save(dir, "fuzz_host_filters", n++, filters_input(r));
  }
  return written;
}

}  // namespace chaos
