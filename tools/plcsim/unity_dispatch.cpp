#include "tools/plcsim/unity_replies.h"

namespace plcsim {

byte_vector error_reply(const byte_vector& request, uint8_t code) {
  return {request.empty() ? uint8_t{0} : request[0], status_error, code};
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
