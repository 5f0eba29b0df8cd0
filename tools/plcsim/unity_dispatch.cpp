#include "tools/plcsim/unity_replies.h"

namespace plcsim {

std::optional<byte_vector> refused_header(const byte_vector& frame) {
  msg_reader header(frame, 2);
  if (header.be16() != 0) return byte_vector{};
  header.be16();  // the length, which framed it
  const uint8_t unit = header.u8();
  if (unit != 0x00 && unit != 0xFF)
    return byte_vector{static_cast<uint8_t>(header.u8() | 0x80), 0x0A};
  return std::nullopt;
}

byte_vector answer_unity(const project& p, sim_memory& mem, const byte_vector& request) {
  if (request.size() < 2) return error_reply(request, 2);
  switch (request[1]) {
    case 0x22:
      return answer_read_variables(p, mem, request);
    case 0x23:
      return answer_write_variables(p, mem, request);
    case 0x26:
      return answer_dictionary(p, request);
    default:
      return answer_identification(p, mem, request);
  }
}

}  // namespace plcsim
