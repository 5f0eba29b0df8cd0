// A controller stand-in for session tests: listens on 127.0.0.1 (ephemeral port), reads
// one request per recv and answers with whatever the test's script returns for it
// (nothing when the script returns an empty vector). Every wait is bounded.
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

#include "wire/byte_cursor.h"

namespace test_peer {

using bytes = std::vector<unsigned char>;

// A whole Modbus TCP reply around a Unity message.
inline bytes reply_frame(uint16_t transaction, const bytes& message) {
  bytes out(8, 0);
  wire::be_writer w(out);
  w.u16(transaction);
  w.u16(0);
  w.u16(static_cast<uint16_t>(message.size() + 2));
  w.u8(0);
  w.u8(0x5A);
  out.insert(out.end(), message.begin(), message.end());
  return out;
}

inline uint16_t transaction_of(const bytes& request) {
  return wire::be_reader(request).u16();
}

// The Unity message of a request (bytes after the function code).
inline bytes message_of(const bytes& request) {
  return bytes(request.begin() + 8, request.end());
}

class scripted_peer {
 public:
  // index: 0-based number of the request since the peer started, over all connections.
  // close_connection set by the script drops the connection after this request.
  using script =
      std::function<bytes(const bytes& request, std::size_t index, bool& close_connection)>;

  explicit scripted_peer(script s) : script_(std::move(s)) {
    listener_ = ::socket(AF_INET, SOCK_STREAM, 0);
    int on = 1;
    ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    ::bind(listener_, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    ::listen(listener_, 4);
    socklen_t len = sizeof addr;
    ::getsockname(listener_, reinterpret_cast<sockaddr*>(&addr), &len);
    port_ = ntohs(addr.sin_port);
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
  bool wait_readable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, 20) > 0;
  }

  void run() {
    while (!stopping_) {
      if (!wait_readable(listener_)) continue;
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
      if (!wait_readable(fd)) continue;
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

}  // namespace test_peer
