// The Unity payloads of a capture the simulator recorded (plcsim::server::record_to), in
// order: requests and replies as the controller saw them, without the made-up lower layers,
// whose ports and times differ from run to run.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace pcap_payloads {

inline std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline std::vector<uint8_t> of(const std::string& pcap) {
  const std::string bytes = slurp(pcap);
  constexpr std::size_t file_header = 24, record_header = 16, frame_headers = 14 + 20 + 20;
  std::vector<uint8_t> out;
  for (std::size_t at = file_header; at + record_header <= bytes.size();) {
    uint32_t length = 0;
    std::memcpy(&length, bytes.data() + at + 8, 4);
    const std::size_t data = at + record_header;
    if (length > frame_headers && data + length <= bytes.size())
      out.insert(out.end(), bytes.begin() + data + frame_headers, bytes.begin() + data + length);
    at = data + length;
  }
  return out;
}

}  // namespace pcap_payloads
