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
#include <thread>
#include <vector>

#include "tools/common/unity_reply.h"

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

}  // namespace harness
