// A minimal Modbus TCP client for the simulator's tests: every wait is bounded.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/plcsim/plcsim.h"

namespace simtest {

using bytes = std::vector<uint8_t>;

inline bytes hex(const std::string& s) {
  bytes out;
  std::string digits;
  for (char c : s)
    if (c != ' ') digits += c;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    out.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  return out;
}

// Wraps a Unity message in a Modbus TCP frame with function code 0x5A.
inline bytes adu(uint16_t transaction, const bytes& unity) {
  bytes out{static_cast<uint8_t>(transaction >> 8), static_cast<uint8_t>(transaction), 0, 0};
  std::size_t len = unity.size() + 2;
  out.push_back(static_cast<uint8_t>(len >> 8));
  out.push_back(static_cast<uint8_t>(len));
  out.push_back(0);
  out.push_back(0x5A);
  out.insert(out.end(), unity.begin(), unity.end());
  return out;
}

class client {
 public:
  explicit client(const plcsim::server& srv) {
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_port = htons(srv.port());
    ::inet_pton(AF_INET, srv.address().c_str(), &sa.sin_addr);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&sa), sizeof sa) == 0;
  }
  ~client() { ::close(fd_); }
  client(const client&) = delete;
  client& operator=(const client&) = delete;

  bool connected() const { return connected_; }
  bool send(const bytes& b) {
    return ::send(fd_, b.data(), b.size(), MSG_NOSIGNAL) == ssize_t(b.size());
  }

  // One recv() after waiting at most timeout_ms; empty on time-out or close.
  bytes recv_once(int timeout_ms) {
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, timeout_ms) <= 0) return {};
    uint8_t buf[4096];
    ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
    return n > 0 ? bytes(buf, buf + n) : bytes{};
  }

  // True when the peer closed the connection within timeout_ms.
  bool closed_by_peer(int timeout_ms) {
    pollfd p{fd_, POLLIN, 0};
    if (::poll(&p, 1, timeout_ms) <= 0) return false;
    uint8_t b;
    return ::recv(fd_, &b, 1, 0) == 0;
  }

  // Reads a whole frame by its MBAP length; empty on time-out or close.
  // Bytes beyond that frame are kept for the next call.
  bytes recv_frame(int timeout_ms = 2000) {
    auto frame_size = [this] {
      return pending_.size() < 6 ? SIZE_MAX : 6u + (pending_[4] << 8 | pending_[5]);
    };
    while (pending_.size() < frame_size()) {
      bytes part = recv_once(timeout_ms);
      if (part.empty()) return {};
      pending_.insert(pending_.end(), part.begin(), part.end());
    }
    bytes frame(pending_.begin(), pending_.begin() + static_cast<long>(frame_size()));
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<long>(frame.size()));
    return frame;
  }

  // Sends a Unity message and returns the reply's Unity message (after the function code).
  bytes exchange(const bytes& unity, uint16_t transaction = 1) {
    if (!send(adu(transaction, unity))) return {};
    bytes frame = recv_frame();
    return frame.size() > 8 ? bytes(frame.begin() + 8, frame.end()) : bytes{};
  }

 private:
  int fd_ = -1;
  bool connected_ = false;
  bytes pending_;
};

// A started server on a free loopback address, for test fixtures.
inline std::unique_ptr<plcsim::server> started(plcsim::project p) {
  auto srv = std::make_unique<plcsim::server>(std::move(p));
  if (!srv->start_on_free_loopback()) srv.reset();
  return srv;
}

inline plcsim::project plant() {
  return plcsim::load_project_file(std::string(UNITYDRV_SOURCE_DIR) + "/examples/plant.json");
}

// A fixture holding a started server and a client connected to it.
class served : public ::testing::Test {
 protected:
  void serve(plcsim::project p) {
    srv = started(std::move(p));
    ASSERT_TRUE(srv);
    c = std::make_unique<client>(*srv);
    ASSERT_TRUE(c->connected());
  }
  std::unique_ptr<plcsim::server> srv;
  std::unique_ptr<client> c;
};

// The same, serving examples/plant.json from SetUp.
class served_plant : public served {
 protected:
  void SetUp() override { serve(plant()); }
};

}  // namespace simtest
