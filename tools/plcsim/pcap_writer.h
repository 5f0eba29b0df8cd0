// Records the simulator's traffic as a classic pcap file (Ethernet link type)
// that Wireshark and tshark open as ordinary TCP conversations on port 502.
// Link, IP and TCP headers are made up: MAC addresses are fixed, sequence and
// acknowledgement numbers are counted from the bytes recorded, so the streams
// follow. Thread-safe: every connection thread writes through one writer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>

#include "tools/plcsim/sim_bytes.h"

namespace plcsim {

// One end of a TCP connection: IPv4 address and port, both in host byte order.
struct tcp_end {
  uint32_t ip = 0;
  uint16_t port = 0;
};

class pcap_writer {
 public:
  pcap_writer() = default;
  ~pcap_writer();
  pcap_writer(const pcap_writer&) = delete;
  pcap_writer& operator=(const pcap_writer&) = delete;

  bool open(const std::string& path);  // creates the file and writes its header
  // Records the three-way handshake of a new connection; returns its stream id.
  int open_stream(tcp_end client, tcp_end server);
  enum class direction { from_client, from_server };
  // Records bytes one side sent on the stream.
  void sent(int stream, direction from, const uint8_t* data, std::size_t n);
  // Records the server's FIN, the client's FIN and the last ACK.
  void close_stream(int stream);

 private:
  struct stream_state {
    tcp_end client, server;
    uint32_t client_seq = 0, server_seq = 0;  // next sequence number of each side
  };
  enum : uint8_t { fin = 0x01, syn = 0x02, psh = 0x08, ack = 0x10 };

  void segment(const stream_state& s, bool from_client, uint8_t flags, const uint8_t* data,
               std::size_t n);
  void write_record(const byte_vector& frame);

  std::mutex mu_;
  std::FILE* file_ = nullptr;
  std::map<int, stream_state> streams_;
  int next_id_ = 1;
  uint16_t ip_id_ = 1;
};

}  // namespace plcsim
