// A controller stand-in for tests, benchmarks and the fuzz corpus: listens on 127.0.0.1
// (ephemeral port), reads one request per recv and answers with whatever the script
// returns for it (nothing when it returns an empty vector). Every wait is bounded.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/unity_reply.h"

namespace harness {

// A TCP listener on 127.0.0.1 at an ephemeral port; port receives the port.
inline int listen_on_loopback(uint16_t& port) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int on = 1;
  ::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  ::listen(listener, 4);
  socklen_t len = sizeof addr;
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&addr), &len);
  port = ntohs(addr.sin_port);
  return listener;
}

// True when fd has something to read within wait_ms.
inline bool readable(int fd, int wait_ms = 20) {
  pollfd p{fd, POLLIN, 0};
  return ::poll(&p, 1, wait_ms) > 0;
}

class scripted_peer {
 public:
  // index: 0-based number of the request since the peer started, over all connections.
  // close_connection set by the script drops the connection after this request.
  using script =
      std::function<bytes(const bytes& request, std::size_t index, bool& close_connection)>;

  explicit scripted_peer(script s) : script_(std::move(s)) {
    listener_ = listen_on_loopback(port_);
    thread_ = std::thread([this] { run(); });
  }

  ~scripted_peer() {
    stopping_ = true;
    thread_.join();
    ::close(listener_);
  }

  uint16_t port() const { return port_; }

  std::vector<bytes> requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
  }

  std::size_t connections() const { return connections_; }

 private:
  void run() {
    while (!stopping_) {
      if (!readable(listener_)) continue;
      const int fd = ::accept(listener_, nullptr, nullptr);
      if (fd < 0) continue;
      ++connections_;
      serve(fd);
      ::close(fd);
    }
  }

  void serve(int fd) {
    bytes buffer(4096);
    while (!stopping_) {
      if (!readable(fd)) continue;
      const ssize_t n = ::recv(fd, buffer.data(), buffer.size(), 0);
      if (n <= 0) return;
      bytes request(buffer.begin(), buffer.begin() + n);
      std::size_t index;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        index = requests_.size();
        requests_.push_back(request);
      }
      bool close_connection = false;
      const bytes reply = script_(request, index, close_connection);
      if (!reply.empty()) ::send(fd, reply.data(), reply.size(), MSG_NOSIGNAL);
      if (close_connection) return;
    }
  }

  script script_;
  int listener_ = -1;
  uint16_t port_ = 0;
  std::thread thread_;
  std::atomic<bool> stopping_{false};
  std::atomic<std::size_t> connections_{0};
  mutable std::mutex mutex_;
  std::vector<bytes> requests_;
};

// A peer that passes each request on to a server at address:port and returns its reply
// (what one receive gets within wait_ms), so that a test or a recorder sees both sides of
// a session's traffic. on_reply sees every reply; none, and the connection is dropped.
class relay_peer {
 public:
  using observer = std::function<void(const bytes& reply)>;

  relay_peer(const std::string& address, uint16_t port, observer on_reply = {}, int wait_ms = 3000)
      : upstream_(connect_to(address, port)),
        on_reply_(std::move(on_reply)),
        wait_ms_(wait_ms),
        peer_([this](const bytes& request, std::size_t, bool& close) {
          return pass(request, close);
        }) {}
  ~relay_peer() { ::close(upstream_); }
  relay_peer(const relay_peer&) = delete;
  relay_peer& operator=(const relay_peer&) = delete;

  uint16_t port() const { return peer_.port(); }
  std::vector<bytes> requests() const { return peer_.requests(); }

 private:
  static int connect_to(const std::string& address, uint16_t port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = ::inet_addr(address.c_str());
    ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    return fd;
  }

  bytes pass(const bytes& request, bool& close) {
    bytes reply(8192);
    const bool sent = ::send(upstream_, request.data(), request.size(), MSG_NOSIGNAL) ==
                      static_cast<ssize_t>(request.size());
    const ssize_t n = sent && readable(upstream_, wait_ms_)
                          ? ::recv(upstream_, reply.data(), reply.size(), 0)
                          : -1;
    close = n <= 0;
    reply.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    if (!close && on_reply_) on_reply_(reply);
    return reply;
  }

  int upstream_;
  observer on_reply_;
  int wait_ms_;
  scripted_peer peer_;  // last: its thread stops before the rest goes
};

}  // namespace harness
