// The driver's own share of a host read cycle: OutputFilterEx and InputFilterEx over 100
// INT requests, against a device whose session talks to a local peer that answers every
// request at once with the same reply.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "driver/device_context.h"
#include "driver/tag_driver_offline_578.h"
#include "tools/common/tag_file_writer.h"
#include "wire/byte_cursor.h"

namespace {

constexpr int kTags = 100;

// Answers each request it receives with one fixed reply; every wait is bounded.
class answering_peer {
 public:
  explicit answering_peer(std::vector<unsigned char> reply) : reply_(std::move(reply)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(listener_, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    ::listen(listener_, 1);
    socklen_t len = sizeof addr;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&addr), &len);
    port_ = ntohs(addr.sin_port);
    thread_ = std::thread([this] { run(); });
  }
  ~answering_peer() {
    stopping_ = true;
    thread_.join();
    ::close(listener_);
  }
  answering_peer(const answering_peer&) = delete;
  answering_peer& operator=(const answering_peer&) = delete;
  uint16_t port() const { return port_; }

 private:
  static bool readable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, 20) > 0;
  }
  void run() {
    int fd = -1;
    while (!stopping_ && fd < 0) {
      if (readable(listener_)) fd = ::accept(listener_, nullptr, nullptr);
    }
    std::vector<unsigned char> buffer(4096);
    while (!stopping_) {
      if (!readable(fd)) continue;
      if (::recv(fd, buffer.data(), buffer.size(), 0) <= 0) break;
      ::send(fd, reply_.data(), reply_.size(), MSG_NOSIGNAL);
    }
    if (fd >= 0) ::close(fd);
  }

  std::vector<unsigned char> reply_;
  int listener_ = -1;
  uint16_t port_ = 0;
  std::thread thread_;
  std::atomic<bool> stopping_{false};
};

// Read reply for kTags INT values: value i is 1000 + i.
std::vector<unsigned char> int_values_reply() {
  std::vector<unsigned char> raw(8, 0);
  wire::be_writer header(raw);
  header.u16(1);
  header.u16(0);
  header.u16(static_cast<uint16_t>(2 + 2 + 2 * kTags));
  header.u8(0);
  header.u8(0x5A);
  wire::le_writer w(raw);
  w.u8(0x00).u8(0xFE);
  for (int i = 0; i < kTags; ++i) w.u16(static_cast<uint16_t>(1000 + i));
  return raw;
}

// A device of kTags INT tags, resolved by hand, its session connected to the peer.
class online_device {
 public:
  online_device() : peer_(int_values_reply()) {
    const std::string path = "/tmp/micro_host_filters_" + std::to_string(getpid()) + ".tags";
    std::vector<tag_file::record> records;
    for (int i = 0; i < kTags; ++i) records.push_back({"Value" + std::to_string(i)});
    tag_file::write(path, records, false);
    device.tag_table.Read(path.c_str(), 0);
    std::remove(path.c_str());
    for (uint32_t i = 0; i < kTags; ++i) {
      tag_entry* e = device.tag_table.Get(i);
      e->read_format = 2;
      e->type_id = 4;
      e->location = {1, 0, static_cast<unsigned char>(2 * i), 0, 0, 0};
    }
    connected = device.session.setup_device("127.0.0.1", peer_.port(), 100) != 0;
    device.session.state = unity_process::state_ready;
    requests.resize(kTags);
    std::memset(static_cast<void*>(requests.data()), 0, kTags * sizeof(_gui_request_));
    for (uint32_t i = 0; i < kTags; ++i) {
      requests[i].ref.tag_index = i;
      requests[i].ref.type_code_a = UNITYDRV_TYPE_INT;
      requests[i].ref.element_count = 1;
    }
    requests[0].device_handle = &device;
    results.resize(kTags);
    infos.resize(kTags);
    std::memset(static_cast<void*>(infos.data()), 0, kTags * sizeof(_system_info));
    infos[0].info_valid = 1;
    infos[0].device_handle = &device;
  }

  bool delivered() const {
    for (int i = 0; i < kTags; ++i) {
      if (results[i].result_code != 5 || results[i].result_words[0] != 1000 + i) return false;
    }
    return true;
  }

  answering_peer peer_;
  device_context device;
  bool connected = false;
  std::vector<_gui_request_> requests;
  std::vector<_input_data_> results;
  std::vector<_system_info> infos;
};

// One exchange per iteration: most of the time is the loopback round trip, the rest is ours.
void BM_outputfilter_read_100(benchmark::State& state) {
  online_device d;
  if (!d.connected) return state.SkipWithError("peer not reachable");
  for (auto _ : state) {
    driver_object.outputfilter(d.requests.data(), kTags);
  }
  driver_object.inputFilter(d.results.data(), nullptr, d.infos.data(), kTags);
  if (!d.delivered()) state.SkipWithError("values not delivered");
  state.SetItemsProcessed(state.iterations() * kTags);
}
BENCHMARK(BM_outputfilter_read_100);

void BM_inputFilter_100(benchmark::State& state) {
  online_device d;
  if (!d.connected) return state.SkipWithError("peer not reachable");
  driver_object.outputfilter(d.requests.data(), kTags);
  for (auto _ : state) {
    driver_object.inputFilter(d.results.data(), nullptr, d.infos.data(), kTags);
  }
  if (!d.delivered()) state.SkipWithError("values not delivered");
  state.SetItemsProcessed(state.iterations() * kTags);
}
BENCHMARK(BM_inputFilter_100);

}  // namespace
