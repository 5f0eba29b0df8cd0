#include "tools/plcsim/error_reply.h"

namespace plcsim {

byte_vector error_reply(const byte_vector& request, uint8_t code) {
  return {request.empty() ? uint8_t{0} : request[0], status_error, code};
}

}  // namespace plcsim
