// The rig of the end-to-end benchmarks: the loaded driver and its devices, the two
// baselines measured beside it (a bare socket client and a libmodbus pair) and the cores
// they run on.
#pragma once

#include <modbus.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "tools/common/host_device.h"
#include "tools/plcsim/plcsim.h"

namespace e2e {

// The driver the benchmarks were built with, loaded once.
loaded_driver::library& driver();

// One device of the loaded driver with a tag file of its own, InitEx done for server.
class bench_device {
 public:
  bench_device(const plcsim::server& server, const std::vector<std::string>& names);
  ~bench_device();
  bench_device(const bench_device&) = delete;
  bench_device& operator=(const bench_device&) = delete;

  bool get_init_cmd() { return started_ && device_.get_init() == 0; }
  bool ready() { return started_ && device_.check_init() == 1; }
  void* handle() { return device_.handle(); }

 private:
  std::string path_;
  loaded_driver::device device_;
  bool started_ = false;
};

// The client on one core, every simulator thread on another, as a controller works beside
// the panel. Left to the scheduler, each simulator connection's thread lands on the
// client's core or the other one and stays there for a whole run, so one of the driver and
// the floor would get the fast same-core wake-ups and the other not. A thread starts on the
// cores of the thread that makes it: simulators are started while the calling thread
// stands on the server core, and their connection threads inherit it.
class cores {
 public:
  static void client() { pin(0); }
  template <typename F>
  static auto as_server(F&& start) {
    pin(1);
    auto result = start();
    pin(0);
    return result;
  }

 private:
  // The k-th core this process may use; nothing is pinned on a one-core machine.
  static void pin(int k);
};

// A plain TCP client: sends given bytes, receives one whole Modbus TCP reply.
class bare_client {
 public:
  bool connect_to(const std::string& address, uint16_t port);
  ~bare_client();

  // The reply's length comes from its MBAP header; every wait is bounded.
  bool exchange(const std::vector<unsigned char>& request, std::vector<unsigned char>& reply);

 private:
  int fd_ = -1;
};

// A libmodbus server on an ephemeral loopback port answering one client on its own thread.
class modbus_pair {
 public:
  explicit modbus_pair(int registers);
  ~modbus_pair();
  modbus_pair(const modbus_pair&) = delete;
  modbus_pair& operator=(const modbus_pair&) = delete;

  bool read(int n) { return connected_ && modbus_read_registers(client_, 0, n, regs_) == n; }

 private:
  int bound_port() const;
  void serve();

  modbus_mapping_t* map_ = nullptr;
  modbus_t* server_ = nullptr;
  modbus_t* client_ = nullptr;
  int listen_fd_ = -1;
  bool connected_ = false;
  std::thread thread_;
  uint16_t regs_[MODBUS_MAX_READ_REGISTERS];
};

}  // namespace e2e
