// Runs a session through the whole initialisation against a simulator, in the order
// the driver's handshake uses.
#pragma once

#include <string>
#include <vector>

#include "tools/plcsim/plcsim.h"
#include "unity/unity_process.h"
#include "wire/byte_cursor.h"

namespace session_test {

inline bool download_dictionary(unity_process& session, const plcsim::server& plc) {
  if (session.setup_device(plc.address().c_str(), plc.port(), 100) == 0) return false;
  if (!session.initial_device()) return false;
  session.get_data_type_list();
  session.get_data_type_detail();
  return session.browse() && session.state == unity_process::state_ready;
}

inline std::string key(const std::string& name) {
  return name + '\0';
}

// The block and byte offset of a table entry's location.
inline void location_of(const table& t, uint16_t& block, uint32_t& offset) {
  wire::le_reader r(t.location);
  block = r.u16();
  offset = r.u32();
}

}  // namespace session_test
