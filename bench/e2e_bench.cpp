// End-to-end figures: the driver loaded the way the host loads it, against the simulated
// controller on loopback, side by side with two baselines measured in the same iterations:
// a bare socket client sending the driver's own request bytes (the floor of this machine)
// and libmodbus reading as many 16-bit registers from its own server. Also the dictionary
// download, the memory a device keeps, and, with --callgrind, one instrumented read cycle.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <modbus.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/driver_api.h"
#include "tools/common/tag_file_writer.h"
#include "tools/plcsim/plcsim.h"
#include "unity/unity_process.h"

namespace {

using clock_type = std::chrono::steady_clock;

const std::string source_dir = UNITYDRV_SOURCE_DIR;
constexpr uint16_t int_type = 4;  // the controller's INT: one 16-bit register per tag
constexpr int io_timeout_ms = 1000;

double seconds_since(clock_type::time_point start) {
  return std::chrono::duration<double>(clock_type::now() - start).count();
}

// CPU time of the calling thread: user (the driver's own code) and system (its socket calls).
struct cpu_times {
  double user = 0;
  double system = 0;
};

double seconds_of(const timeval& t) {
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
}

cpu_times thread_cpu() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  return {seconds_of(usage.ru_utime), seconds_of(usage.ru_stime)};
}

long vm_rss_kb() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
  }
  return -1;
}

long heap_in_use_bytes() {
  return static_cast<long>(mallinfo2().uordblks);
}

double median(std::vector<double> samples) {
  if (samples.empty()) return 0;
  std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
  return samples[samples.size() / 2];
}

driver_api::library& driver() {
  static driver_api::library lib;
  return lib;
}

// One device of the dlopen'ed driver with its own tag file, initialised against server.
class host_device {
 public:
  host_device(const plcsim::server& server, const std::vector<std::string>& names)
      : path_("/tmp/e2e_bench_" + std::to_string(getpid()) + "_" + std::to_string(++files_) +
              ".tags") {
    std::vector<tag_file::record> records;
    for (const auto& n : names) records.push_back({n});
    tag_file::write(path_, records, false);
    const unitydrv_init_params params = driver_api::init_params(server.address());
    driver().InitEx(0, &params);
    if (driver().StartDeviceEx(0, &handle_, path_.c_str(), 0) != 0) handle_ = nullptr;
  }
  ~host_device() {
    if (handle_ != nullptr) driver().CloseDevice(0, handle_);
    std::remove(path_.c_str());
  }
  host_device(const host_device&) = delete;
  host_device& operator=(const host_device&) = delete;

  bool get_init_cmd() {
    if (handle_ == nullptr) return false;
    uint32_t code = 99;
    driver().GetInitCmdEx2(&code, 0, 0, 0, &handle_);
    return code == 0;
  }
  bool ready() {
    return handle_ != nullptr && driver().CheckInitCmdResponseEx2(0, 0, &handle_) == 1;
  }
  void* handle() const { return handle_; }

 private:
  static inline int files_ = 0;
  std::string path_;
  void* handle_ = nullptr;
};

// One host read cycle of the first n tags, as INT: OutputFilterEx then InputFilterEx.
class host_cycle {
 public:
  host_cycle(void* device, std::size_t n)
      : requests_(driver_api::requests(device, first_tags_as_int(n))), round_(device, n) {}

  bool run() {
    const int n = static_cast<int>(round_.results.size());
    driver().OutputFilterEx(requests_.data(), n);
    driver().InputFilterEx(round_.results.data(), nullptr, round_.infos.data(), n);
    return round_.results[0].result_status == 0 && round_.results[0].result_code == 5;
  }
  uint16_t unit(std::size_t i) const { return round_.results[i].result_words[0]; }

 private:
  static std::vector<driver_api::request> first_tags_as_int(std::size_t n) {
    std::vector<driver_api::request> out(n);
    for (std::size_t i = 0; i < n; ++i) out[i] = {static_cast<uint32_t>(i), UNITYDRV_TYPE_INT};
    return out;
  }

  std::vector<_gui_request_> requests_;
  driver_api::input_round round_;
};

// A plain TCP client: sends given bytes, receives one whole Modbus TCP reply.
class bare_client {
 public:
  bool connect_to(const std::string& address, uint16_t port) {
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    peer.sin_addr.s_addr = inet_addr(address.c_str());
    return fd_ >= 0 && ::connect(fd_, reinterpret_cast<sockaddr*>(&peer), sizeof peer) == 0;
  }
  ~bare_client() {
    if (fd_ >= 0) ::close(fd_);
  }

  // The reply's length comes from its MBAP header; every wait is bounded.
  bool exchange(const std::vector<unsigned char>& request, std::vector<unsigned char>& reply) {
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

 private:
  int fd_ = -1;
};

// A libmodbus server on an ephemeral loopback port answering one client on its own thread.
class modbus_pair {
 public:
  explicit modbus_pair(int registers) {
    map_ = modbus_mapping_new(0, 0, registers, 0);
    for (int i = 0; i < registers; ++i) map_->tab_registers[i] = static_cast<uint16_t>(i * 7);
    server_ = modbus_new_tcp("127.0.0.1", 0);
    listen_fd_ = modbus_tcp_listen(server_, 1);
    modbus_set_indication_timeout(server_, 10, 0);
    thread_ = std::thread([this] { serve(); });
    client_ = modbus_new_tcp("127.0.0.1", bound_port());
    modbus_set_response_timeout(client_, 1, 0);
    connected_ = modbus_connect(client_) == 0;
  }
  ~modbus_pair() {
    modbus_close(client_);
    modbus_free(client_);
    ::shutdown(listen_fd_, SHUT_RDWR);  // ends an accept that never got its client
    thread_.join();
    ::close(listen_fd_);
    modbus_free(server_);
    modbus_mapping_free(map_);
  }
  modbus_pair(const modbus_pair&) = delete;
  modbus_pair& operator=(const modbus_pair&) = delete;

  bool read(int n) { return connected_ && modbus_read_registers(client_, 0, n, regs_) == n; }

 private:
  int bound_port() const {
    sockaddr_in local{};
    socklen_t size = sizeof local;
    getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&local), &size);
    return ntohs(local.sin_port);
  }
  void serve() {
    if (modbus_tcp_accept(server_, &listen_fd_) < 0) return;
    uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
    for (;;) {
      const int rc = modbus_receive(server_, query);
      if (rc < 0) break;
      if (rc > 0) modbus_reply(server_, query, rc, map_);
    }
    modbus_close(server_);
  }

  modbus_mapping_t* map_ = nullptr;
  modbus_t* server_ = nullptr;
  modbus_t* client_ = nullptr;
  int listen_fd_ = -1;
  bool connected_ = false;
  std::thread thread_;
  uint16_t regs_[MODBUS_MAX_READ_REGISTERS];
};

// The read-cycle setting: a controller whose first 100+ INT variables are the device's tags.
struct cycle_rig {
  static constexpr std::size_t max_tags = 100;

  cycle_rig() : server(plcsim::generate_project(2000, 4, false)) {
    for (const auto& v : server.loaded_project().variables) {
      if (v.type == int_type && names.size() < max_tags) names.push_back(v.name);
    }
    server.start_on_free_loopback();
    device = std::make_unique<host_device>(server, names);
    ok = device->get_init_cmd() && device->ready() && capture_requests();
  }

  // The driver's request bytes for the first n tags, built the driver's way by a session of
  // its own that downloaded the same dictionary.
  bool capture_requests() {
    unity_process session;
    if (session.setup_device(server.address().c_str(), 502, 100) == 0 || !session.initial_device())
      return false;
    session.get_data_type_list();
    session.get_data_type_detail();
    session.browse();
    for (std::size_t n = 1; n <= max_tags; ++n) {
      std::vector<read_comm> items;
      for (std::size_t i = 0; i < n; ++i) items.push_back(item(session, names[i]));
      bool expect_reply = true;
      bool normalise = false;
      requests.push_back(
          session
              .create_read_request(session.transaction_counter, 2, expect_reply, items, normalise)
              .to_raw_data());
    }
    session.stop();
    return true;
  }

  static read_comm item(const unity_process& session, const std::string& name) {
    const table& t = session.tables.at(name + '\0');
    read_comm out;
    std::copy(t.location.begin(), t.location.end(), out.location.begin());
    out.read_format = static_cast<uint8_t>(t.read_format);
    out.type_id = t.type_id;
    out.count = 1;
    return out;
  }

  plcsim::server server;
  std::vector<std::string> names;
  std::unique_ptr<host_device> device;
  std::vector<std::vector<unsigned char>> requests;  // [n - 1]: request for n tags
  bool ok = false;
};

cycle_rig& rig() {
  static cycle_rig r;
  return r;
}

// The driver and the floor must have read the same values.
bool same_values(const host_cycle& cycle, const std::vector<unsigned char>& reply, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t at = 10 + 2 * i;
    if (at + 1 >= reply.size() || cycle.unit(i) != (reply[at] | reply[at + 1] << 8)) return false;
  }
  return true;
}

// Driver, floor and libmodbus in turn in every iteration, so that all three see the same load.
void BM_read_cycle(benchmark::State& state) {
  cycle_rig& r = rig();
  const auto n = static_cast<std::size_t>(state.range(0));
  if (!r.ok) return state.SkipWithError("simulator or driver did not come up");
  host_cycle cycle(r.device->handle(), n);
  bare_client floor;
  modbus_pair modbus(static_cast<int>(n));
  std::vector<unsigned char> reply;
  if (!floor.connect_to(r.server.address(), r.server.port()) || !cycle.run() ||
      !floor.exchange(r.requests[n - 1], reply) || !same_values(cycle, reply, n))
    return state.SkipWithError("driver and bare client disagree");
  // Warm caches, branch predictors and the connections before anything is timed.
  for (int i = 0; i < 200; ++i) {
    if (!cycle.run() || !floor.exchange(r.requests[n - 1], reply) ||
        !modbus.read(static_cast<int>(n)))
      return state.SkipWithError("an exchange failed");
  }
  std::vector<double> driver_s, floor_s, modbus_s;
  for (auto _ : state) {
    auto t0 = clock_type::now();
    const bool a = cycle.run();
    driver_s.push_back(seconds_since(t0));
    t0 = clock_type::now();
    const bool b = floor.exchange(r.requests[n - 1], reply);
    floor_s.push_back(seconds_since(t0));
    t0 = clock_type::now();
    const bool c = modbus.read(static_cast<int>(n));
    modbus_s.push_back(seconds_since(t0));
    if (!(a && b && c)) return state.SkipWithError("an exchange failed");
  }
  // Medians show the typical cycle; minima the cost of the work itself, without the
  // scheduling noise that a shared two-core machine adds to some exchanges and not others.
  const double d = median(driver_s), f = median(floor_s), m = median(modbus_s);
  const double dmin = *std::min_element(driver_s.begin(), driver_s.end());
  const double fmin = *std::min_element(floor_s.begin(), floor_s.end());
  const double mmin = *std::min_element(modbus_s.begin(), modbus_s.end());
  state.counters["tags"] = static_cast<double>(n);
  state.counters["driver_us"] = d * 1e6;
  state.counters["floor_us"] = f * 1e6;
  state.counters["libmodbus_us"] = m * 1e6;
  state.counters["driver_min_us"] = dmin * 1e6;
  state.counters["floor_min_us"] = fmin * 1e6;
  state.counters["libmodbus_min_us"] = mmin * 1e6;
  state.counters["driver_vs_floor"] = d / f;
  state.counters["driver_vs_libmodbus"] = d / m;
  state.counters["driver_vs_floor_min"] = dmin / fmin;
  state.counters["driver_vs_libmodbus_min"] = dmin / mmin;
}
BENCHMARK(BM_read_cycle)->Arg(1)->Arg(5)->Arg(10)->Arg(25)->Arg(50)->Arg(100)->MinTime(1.0);

std::vector<std::string> plant_tags() {
  std::ifstream in(source_dir + "/examples/plant_tags.txt");
  std::vector<std::string> names;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty()) names.push_back(line);
  }
  return names;
}

// Every variable of a generated project, structures through one of their members.
std::vector<std::string> generated_tags(const plcsim::project& p) {
  std::vector<std::string> names;
  for (const auto& v : p.variables) {
    const auto type = p.types.find(v.type);
    const bool structure = type != p.types.end() && type->second.kind == "struct";
    names.push_back(structure ? v.name + "." + type->second.members.back().name : v.name);
  }
  return names;
}

struct init_setting {
  plcsim::server server;
  std::vector<std::string> names;
  bool started = false;

  bool start() { return started || (started = server.start_on_free_loopback()); }
};

init_setting& plant_setting() {
  static init_setting s{
      plcsim::server(plcsim::load_project_file(source_dir + "/examples/plant.json")), plant_tags()};
  return s;
}

init_setting& large_setting() {
  static init_setting s{plcsim::server(plcsim::generate_project(50000, 2000, false)), {}};
  if (s.names.empty()) s.names = generated_tags(s.server.loaded_project());
  return s;
}

// What one device with 50,000 resolved tags keeps resident.
void BM_memory_per_device(benchmark::State& state) {
  init_setting& s = large_setting();
  if (!s.start()) return state.SkipWithError("simulator did not start");
  for (auto _ : state) {
    const long rss0 = vm_rss_kb();
    const long heap0 = heap_in_use_bytes();
    host_device device(s.server, s.names);
    if (!device.get_init_cmd() || !device.ready()) return state.SkipWithError("init failed");
    state.counters["rss_kb"] = static_cast<double>(vm_rss_kb() - rss0);
    state.counters["heap_kb"] = static_cast<double>(heap_in_use_bytes() - heap0) / 1024;
    state.counters["heap_bytes_per_tag"] =
        static_cast<double>(heap_in_use_bytes() - heap0) / static_cast<double>(s.names.size());
  }
}
BENCHMARK(BM_memory_per_device)->Iterations(1)->Unit(benchmark::kMillisecond);

// GetInitCmdEx2 alone is timed: the connect, the identification, the whole dictionary and
// the resolution of every tag. cpu_share is the calling thread's CPU time over wall time;
// user_share counts only its user time, the driver's own code without the kernel's socket work.
void BM_GetInitCmdEx2(benchmark::State& state) {
  init_setting& s = state.range(0) == 0 ? plant_setting() : large_setting();
  if (!s.start()) return state.SkipWithError("simulator did not start");
  double wall = 0, user = 0, system = 0;
  uint64_t exchanges = 0;
  for (auto _ : state) {
    host_device device(s.server, s.names);
    const uint64_t before = s.server.request_count();
    const cpu_times cpu0 = thread_cpu();
    const auto t0 = clock_type::now();
    const bool ok = device.get_init_cmd();
    const double elapsed = seconds_since(t0);
    const cpu_times cpu1 = thread_cpu();
    user += cpu1.user - cpu0.user;
    system += cpu1.system - cpu0.system;
    wall += elapsed;
    exchanges = s.server.request_count() - before;
    state.SetIterationTime(elapsed);
    if (!ok || !device.ready()) return state.SkipWithError("initialisation failed");
  }
  const double runs = static_cast<double>(state.iterations());
  state.counters["tags"] = static_cast<double>(s.names.size());
  state.counters["exchanges"] = static_cast<double>(exchanges);
  state.counters["cpu_share"] = (user + system) / wall;
  state.counters["user_share"] = user / wall;
  state.counters["user_ms"] = user * 1e3 / runs;
  state.counters["sys_ms"] = system * 1e3 / runs;
}
BENCHMARK(BM_GetInitCmdEx2)->Arg(0)->Iterations(20)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_GetInitCmdEx2)->Arg(1)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

// Resident memory after 1,000 warm cycles and after 100,000 more 100-tag cycles.
void BM_rss_over_cycles(benchmark::State& state) {
  cycle_rig& r = rig();
  if (!r.ok) return state.SkipWithError("simulator or driver did not come up");
  host_cycle cycle(r.device->handle(), cycle_rig::max_tags);
  for (auto _ : state) {
    for (int i = 0; i < 1000; ++i) cycle.run();
    const long rss0 = vm_rss_kb();
    const long heap0 = heap_in_use_bytes();
    for (int i = 0; i < state.range(0); ++i) {
      if (!cycle.run()) return state.SkipWithError("a cycle failed");
    }
    state.counters["rss_growth_kb"] = static_cast<double>(vm_rss_kb() - rss0);
    state.counters["heap_growth_bytes"] = static_cast<double>(heap_in_use_bytes() - heap0);
  }
}
BENCHMARK(BM_rss_over_cycles)->Arg(100000)->Iterations(1)->Unit(benchmark::kMillisecond);

// Under callgrind (--instr-atstart=no): one warm cycle, then the driver's 100-tag cycle and
// the bare client's exchange, each dumped on its own.
int callgrind_cycle() {
  cycle_rig& r = rig();
  if (!r.ok) return 1;
  host_cycle cycle(r.device->handle(), cycle_rig::max_tags);
  bare_client floor;
  std::vector<unsigned char> reply;
  const auto& request = r.requests.back();
  if (!floor.connect_to(r.server.address(), r.server.port()) || !cycle.run() ||
      !floor.exchange(request, reply))
    return 1;
  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_ZERO_STATS;
  const bool a = cycle.run();
  CALLGRIND_DUMP_STATS_AT("driver_cycle_100");
  const bool b = floor.exchange(request, reply);
  CALLGRIND_DUMP_STATS_AT("floor_cycle_100");
  CALLGRIND_STOP_INSTRUMENTATION;
  return a && b ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && std::strcmp(argv[1], "--callgrind") == 0) return callgrind_cycle();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
