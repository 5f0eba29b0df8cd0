#include "bench/e2e_rig.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "tools/common/tag_file_writer.h"

namespace e2e {

namespace {

constexpr int io_timeout_ms = 1000;
int tag_files = 0;

}  // namespace

loaded_driver::library& driver() {
  static loaded_driver::library lib;
  return lib;
}

bench_device::bench_device(const plcsim::server& server, const std::vector<std::string>& names)
    : path_("/tmp/e2e_bench_" + std::to_string(getpid()) + "_" + std::to_string(++tag_files) +
            ".tags"),
      device_(driver()) {
  tag_file::write_names(path_, names);
  const unitydrv_init_params params = loaded_driver::init_params_of(server.address());
  driver().InitEx(0, &params);
  started_ = device_.start(path_, 0) == 0;
}

bench_device::~bench_device() {
  device_.close();
  std::remove(path_.c_str());
}

void cores::pin(int k) {
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0 || CPU_COUNT(&allowed) < 2) return;
  static const cpu_set_t process = allowed;
  int seen = 0;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (!CPU_ISSET(cpu, &process) || seen++ != k) continue;
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(cpu, &one);
    pthread_setaffinity_np(pthread_self(), sizeof one, &one);
    return;
  }
}

bool bare_client::connect_to(const std::string& address, uint16_t port) {
  fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(port);
  peer.sin_addr.s_addr = inet_addr(address.c_str());
  return fd_ >= 0 && ::connect(fd_, reinterpret_cast<sockaddr*>(&peer), sizeof peer) == 0;
}

bare_client::~bare_client() {
  if (fd_ >= 0) ::close(fd_);
}

bool bare_client::exchange(const std::vector<unsigned char>& request,
                           std::vector<unsigned char>& reply) {
  if (::send(fd_, request.data(), request.size(), MSG_NOSIGNAL) !=
      static_cast<ssize_t>(request.size()))
    return false;
  reply.resize(2048);
  std::size_t have = 0;
  std::size_t want = 6;
  while (have < want) {
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, io_timeout_ms) != 1) return false;
    const ssize_t n = ::recv(fd_, reply.data() + have, reply.size() - have, 0);
    if (n <= 0) return false;
    have += static_cast<std::size_t>(n);
    if (have >= 6) want = std::min<std::size_t>(6u + (reply[4] << 8 | reply[5]), reply.size());
  }
  reply.resize(have);
  return true;
}

modbus_pair::modbus_pair(int registers) {
  map_ = modbus_mapping_new(0, 0, registers, 0);
  for (int i = 0; i < registers; ++i) map_->tab_registers[i] = static_cast<uint16_t>(i * 7);
  server_ = modbus_new_tcp("127.0.0.1", 0);
  listen_fd_ = modbus_tcp_listen(server_, 1);
  modbus_set_indication_timeout(server_, 10, 0);
  thread_ = cores::as_server([this] { return std::thread([this] { serve(); }); });
  client_ = modbus_new_tcp("127.0.0.1", bound_port());
  modbus_set_response_timeout(client_, 1, 0);
  connected_ = modbus_connect(client_) == 0;
}

modbus_pair::~modbus_pair() {
  modbus_close(client_);
  modbus_free(client_);
  ::shutdown(listen_fd_, SHUT_RDWR);  // ends an accept that never got its client
  thread_.join();
  ::close(listen_fd_);
  modbus_free(server_);
  modbus_mapping_free(map_);
}

int modbus_pair::bound_port() const {
  sockaddr_in local{};
  socklen_t size = sizeof local;
  getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&local), &size);
  return ntohs(local.sin_port);
}

void modbus_pair::serve() {
  if (modbus_tcp_accept(server_, &listen_fd_) < 0) return;
  uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
  for (;;) {
    const int rc = modbus_receive(server_, query);
    if (rc < 0) break;
    if (rc > 0) modbus_reply(server_, query, rc, map_);
  }
  modbus_close(server_);
}

}  // namespace e2e
