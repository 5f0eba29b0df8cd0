// One received buffer through classification (get_strategy, get_commands) and then through
// every dictionary decoder, each on a fresh session. A short buffer may only raise
// std::out_of_range; anything else escaping, or any sanitizer report, is a finding. The
// announced length stays within 256 bytes past the input (announced_length.h).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include "announced_length.h"
#include "unity/receive_buffer.h"
#include "unity/unity_process.h"

namespace {

using bytes = std::vector<unsigned char>;

std::vector<unity_frame> classify(unity_process& session, const bytes& reply) {
  std::vector<unity_frame> frames;
  session.impl->get_strategy(reply)->get_commands(frames);
  return frames;
}

template <typename Decode>
void decode_on_fresh_session(const std::vector<unity_frame>& frames, Decode decode) {
  unity_process session;
  try {
    decode(session, frames);
  } catch (const std::out_of_range&) {
  }
}

void run_every_decoder(const std::vector<unity_frame>& frames) {
  decode_on_fresh_session(frames, [](unity_process& s, const auto& f) { s.save_plc_type(f); });
  decode_on_fresh_session(frames,
                          [](unity_process& s, const auto& f) { s.save_array_type_pos(f); });
  decode_on_fresh_session(frames, [](unity_process& s, const auto& f) { s.save_table_info(f); });
  decode_on_fresh_session(frames,
                          [](unity_process& s, const auto& f) { s.save_data_type_info(f); });
  decode_on_fresh_session(frames, [](unity_process& s, const auto& f) {
    unity_process::data_type_entry entry{42, data_type{}};
    std::vector<data_type> members;
    s.save_struct_detail(f, entry, members);
    s.save_array_detail(f, entry);
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  // One receive takes at most a receive buffer's bytes.
  bytes reply(data, data + std::min(size, receive_buffer_size));
  bound_announced_length(reply);
  unity_process session;
  std::vector<unity_frame> frames;
  try {
    frames = classify(session, reply);
  } catch (const std::out_of_range&) {
    return 0;
  }
  run_every_decoder(frames);
  return 0;
}
