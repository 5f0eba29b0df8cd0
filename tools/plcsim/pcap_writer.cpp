#include "tools/plcsim/pcap_writer.h"

#include <chrono>

namespace plcsim {

namespace {

constexpr uint32_t pcap_magic = 0xA1B2C3D4u;  // microsecond timestamps
constexpr uint32_t link_ethernet = 1;
constexpr uint32_t snap_length = 65535;
constexpr uint16_t ethertype_ipv4 = 0x0800;
constexpr uint8_t protocol_tcp = 6;
constexpr std::size_t ip_header = 20;
constexpr std::size_t tcp_header = 20;
constexpr uint32_t client_isn = 1000;
constexpr uint32_t server_isn = 50000;
constexpr uint16_t window = 64240;

// Locally administered MAC addresses: the capture names no real interface.
const byte_vector client_mac{0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
const byte_vector server_mac{0x02, 0x00, 0x00, 0x00, 0x00, 0x02};

// Internet checksum over bytes [from, from + n) of b, starting from a partial sum.
uint16_t checksum(const byte_vector& b, std::size_t from, std::size_t n, uint32_t sum = 0) {
  byte_vector words(b.begin() + static_cast<std::ptrdiff_t>(from),
                    b.begin() + static_cast<std::ptrdiff_t>(from + n));
  if (words.size() % 2) words.push_back(0);
  msg_reader r(words);
  while (r.remaining() > 0) sum += r.be16();
  while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
  return static_cast<uint16_t>(~sum & 0xFFFF);
}

void put_be16(byte_vector& b, std::size_t at, uint16_t v) {
  msg_writer w;
  w.be16(v);
  b[at] = w.bytes()[0];
  b[at + 1] = w.bytes()[1];
}

}  // namespace

pcap_writer::~pcap_writer() {
  if (file_) std::fclose(file_);
}

bool pcap_writer::open(const std::string& path) {
  std::lock_guard<std::mutex> lock(mu_);
  file_ = std::fopen(path.c_str(), "wb");
  if (!file_) return false;
  // Little-endian file header; readers tell the byte order by the magic.
  msg_writer w;
  w.le32(pcap_magic).le16(2).le16(4).le32(0).le32(0).le32(snap_length).le32(link_ethernet);
  return std::fwrite(w.bytes().data(), 1, w.size(), file_) == w.size() && std::fflush(file_) == 0;
}

int pcap_writer::open_stream(tcp_end client, tcp_end server) {
  std::lock_guard<std::mutex> lock(mu_);
  int id = next_id_++;
  stream_state& s = streams_[id];
  s.client = client;
  s.server = server;
  s.client_seq = client_isn;
  s.server_seq = server_isn;
  segment(s, true, syn, nullptr, 0);
  ++s.client_seq;
  segment(s, false, syn | ack, nullptr, 0);
  ++s.server_seq;
  segment(s, true, ack, nullptr, 0);
  return id;
}

void pcap_writer::sent(int stream, direction from, const uint8_t* data, std::size_t n) {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = streams_.find(stream);
  if (it == streams_.end() || n == 0) return;
  const bool from_client = from == direction::from_client;
  segment(it->second, from_client, psh | ack, data, n);
  (from_client ? it->second.client_seq : it->second.server_seq) += static_cast<uint32_t>(n);
}

void pcap_writer::close_stream(int stream) {
  std::lock_guard<std::mutex> lock(mu_);
  auto it = streams_.find(stream);
  if (it == streams_.end()) return;
  stream_state& s = it->second;
  segment(s, false, fin | ack, nullptr, 0);
  ++s.server_seq;
  segment(s, true, fin | ack, nullptr, 0);
  ++s.client_seq;
  segment(s, false, ack, nullptr, 0);
  streams_.erase(it);
}

// One Ethernet frame carrying one TCP segment; the ACK field acknowledges
// everything the other side has sent so far.
void pcap_writer::segment(const stream_state& s, bool from_client, uint8_t flags,
                          const uint8_t* data, std::size_t n) {
  const tcp_end& src = from_client ? s.client : s.server;
  const tcp_end& dst = from_client ? s.server : s.client;
  uint32_t seq = from_client ? s.client_seq : s.server_seq;
  uint32_t ack_no = (flags & ack) ? (from_client ? s.server_seq : s.client_seq) : 0;
  msg_writer w;
  w.raw(from_client ? server_mac : client_mac).raw(from_client ? client_mac : server_mac);
  w.be16(ethertype_ipv4);
  const std::size_t ip_at = w.size();
  w.u8(0x45).u8(0).be16(static_cast<uint16_t>(ip_header + tcp_header + n)).be16(ip_id_++);
  w.be16(0x4000).u8(64).u8(protocol_tcp).be16(0).be32(src.ip).be32(dst.ip);
  const std::size_t tcp_at = w.size();
  w.be16(src.port).be16(dst.port).be32(seq).be32(ack_no).u8(0x50).u8(flags).be16(window);
  w.be16(0).be16(0);
  if (n > 0) w.raw(byte_vector(data, data + n));
  byte_vector& frame = w.bytes();
  put_be16(frame, ip_at + 10, checksum(frame, ip_at, ip_header));
  // TCP checksum over the pseudo header (addresses, protocol, length) and the segment.
  const std::size_t tcp_len = tcp_header + n;
  uint32_t pseudo = (src.ip >> 16) + (src.ip & 0xFFFF) + (dst.ip >> 16) + (dst.ip & 0xFFFF) +
                    protocol_tcp + static_cast<uint32_t>(tcp_len);
  put_be16(frame, tcp_at + 16, checksum(frame, tcp_at, tcp_len, pseudo));
  write_record(frame);
}

void pcap_writer::write_record(const byte_vector& frame) {
  if (!file_) return;
  auto now = std::chrono::system_clock::now().time_since_epoch();
  auto usec = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
  msg_writer w;
  w.le32(static_cast<uint32_t>(usec / 1000000)).le32(static_cast<uint32_t>(usec % 1000000));
  w.le32(static_cast<uint32_t>(frame.size())).le32(static_cast<uint32_t>(frame.size()));
  w.raw(frame);
  std::fwrite(w.bytes().data(), 1, w.size(), file_);
  std::fflush(file_);
}

}  // namespace plcsim
