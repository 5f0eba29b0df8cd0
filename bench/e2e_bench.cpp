// End-to-end figures: the driver loaded the way the host loads it, against the simulated
// controller on loopback, side by side with two baselines measured in the same iterations:
// a bare socket client sending the driver's own request bytes (the floor of this machine)
// and libmodbus reading as many 16-bit registers from its own server. Also the dictionary
// download, the memory a device keeps, and, with --callgrind, one instrumented read cycle.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <sys/resource.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "bench/e2e_rig.h"
#include "tests/support/counting_new.h"
#include "tools/common/host_records.h"
#include "tools/plcsim/plcsim.h"
#include "unity/unity_process.h"

namespace {

using e2e::bare_client;
using e2e::bench_device;
using e2e::cores;
using e2e::driver;
using e2e::modbus_pair;
using clock_type = std::chrono::steady_clock;

const std::string source_dir = UNITYDRV_SOURCE_DIR;
constexpr uint16_t int_type = 4;  // the controller's INT: one 16-bit register per tag

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

// One host read cycle of the first n tags, as INT: OutputFilterEx then InputFilterEx.
class host_cycle {
 public:
  host_cycle(void* device, std::size_t n)
      : requests_(loaded_driver::requests(device, first_tags_as_int(n))), round_(device, n) {}

  bool run() {
    const int n = static_cast<int>(round_.results.size());
    driver().OutputFilterEx(requests_.data(), n);
    driver().InputFilterEx(round_.results.data(), nullptr, round_.infos.data(), n);
    return round_.results[0].result_status == 0 && round_.results[0].result_code == 5;
  }
  uint16_t unit(std::size_t i) const { return round_.results[i].result_words[0]; }

 private:
  static std::vector<loaded_driver::request> first_tags_as_int(std::size_t n) {
    std::vector<loaded_driver::request> out(n);
    for (std::size_t i = 0; i < n; ++i) out[i] = {static_cast<uint32_t>(i), UNITYDRV_TYPE_INT};
    return out;
  }

  std::vector<_gui_request_> requests_;
  loaded_driver::input_round round_;
};

// The read-cycle setting: a controller whose first 255 INT variables are the device's tags.
struct cycle_rig {
  static constexpr std::size_t max_tags = 255;  // a read request holds at most 255 items

  // One variable in 17 of a generated project is an INT: 5,000 give 294 of them.
  cycle_rig() : server(plcsim::generate_project(5000, 4, false)) {
    for (const auto& v : server.loaded_project().variables) {
      if (v.type == int_type && names.size() < max_tags) names.push_back(v.name);
    }
    if (names.size() < max_tags) return;
    cores::as_server([this] { return server.start_on_free_loopback(); });
    device = std::make_unique<bench_device>(server, names);
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
  std::unique_ptr<bench_device> device;
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
  // Modbus reads at most 125 registers at a time: above that libmodbus is left out.
  const bool with_modbus = n <= MODBUS_MAX_READ_REGISTERS;
  modbus_pair modbus(static_cast<int>(n));
  const auto modbus_read = [&] { return !with_modbus || modbus.read(static_cast<int>(n)); };
  std::vector<unsigned char> reply;
  if (!floor.connect_to(r.server.address(), r.server.port()) || !cycle.run() ||
      !floor.exchange(r.requests[n - 1], reply) || !same_values(cycle, reply, n))
    return state.SkipWithError("driver and bare client disagree");
  // Warm caches, branch predictors and the connections before anything is timed.
  for (int i = 0; i < 200; ++i) {
    if (!cycle.run() || !floor.exchange(r.requests[n - 1], reply) || !modbus_read())
      return state.SkipWithError("an exchange failed");
  }
  std::vector<double> driver_s, floor_s, modbus_s;
  std::size_t allocations = 0;
  const auto timed = [](std::vector<double>& samples, const auto& exchange) {
    const auto t0 = clock_type::now();
    const bool ok = exchange();
    samples.push_back(seconds_since(t0));
    return ok;
  };
  const std::function<bool()> exchanges[3] = {
      [&] {
        return timed(driver_s, [&] {
          const std::size_t before = counting_new::thread_allocations();
          const bool ok = cycle.run();
          allocations += counting_new::thread_allocations() - before;
          return ok;
        });
      },
      [&] { return timed(floor_s, [&] { return floor.exchange(r.requests[n - 1], reply); }); },
      [&] { return timed(modbus_s, modbus_read); },
  };
  // The order turns every iteration, so that each exchange follows each other one equally
  // often: the simulator's thread has just answered, or has waited through a libmodbus
  // exchange, as often for the driver as for the floor.
  std::size_t turn = 0;
  for (auto _ : state) {
    bool ok = true;
    for (std::size_t k = 0; k < 3; ++k) ok = exchanges[(turn + k) % 3]() && ok;
    turn = (turn + 1) % 3;
    if (!ok) return state.SkipWithError("an exchange failed");
  }
  // Medians show the typical cycle; minima the cost of the work itself, without the
  // scheduling noise that a shared two-core machine adds to some exchanges and not others.
  const double d = median(driver_s), f = median(floor_s);
  const double dmin = *std::min_element(driver_s.begin(), driver_s.end());
  const double fmin = *std::min_element(floor_s.begin(), floor_s.end());
  state.counters["tags"] = static_cast<double>(n);
  state.counters["request_bytes"] = static_cast<double>(r.requests[n - 1].size());
  state.counters["driver_allocations_per_cycle"] =
      static_cast<double>(allocations) / static_cast<double>(state.iterations());
  state.counters["driver_us"] = d * 1e6;
  state.counters["floor_us"] = f * 1e6;
  state.counters["driver_min_us"] = dmin * 1e6;
  state.counters["floor_min_us"] = fmin * 1e6;
  state.counters["driver_vs_floor"] = d / f;
  state.counters["driver_vs_floor_min"] = dmin / fmin;
  if (!with_modbus) return;
  const double m = median(modbus_s);
  const double mmin = *std::min_element(modbus_s.begin(), modbus_s.end());
  state.counters["libmodbus_us"] = m * 1e6;
  state.counters["libmodbus_min_us"] = mmin * 1e6;
  state.counters["driver_vs_libmodbus"] = d / m;
  state.counters["driver_vs_libmodbus_min"] = dmin / mmin;
}
BENCHMARK(BM_read_cycle)
    ->Arg(1)
    ->Arg(5)
    ->Arg(10)
    ->Arg(25)
    ->Arg(50)
    ->Arg(100)
    ->Arg(255)
    ->MinTime(1.0);

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

  bool start() {
    return started ||
           (started = cores::as_server([this] { return server.start_on_free_loopback(); }));
  }
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

// One host request of every kind the example project offers: REAL, DINT, UDINT, INT, WORD
// and DWORD scalars, structure and array-of-structure members, EBOOL and BOOL bits, array
// runs, a string, a 64-bit value and one BitArray element.
struct mixed_request {
  const char* name;
  uint8_t type;
  uint16_t array_index;
  uint16_t count;
};

const mixed_request mixed_requests[] = {
    {"Motor1.Speed", UNITYDRV_TYPE_REAL, 0, 1},   {"Motor1.Current", UNITYDRV_TYPE_REAL, 0, 1},
    {"Motor1.Running", UNITYDRV_TYPE_BOOL, 0, 1}, {"Motor1.Mode", UNITYDRV_TYPE_INT, 0, 1},
    {"Motor1.Starts", UNITYDRV_TYPE_UDINT, 0, 1}, {"Motor2.Speed", UNITYDRV_TYPE_REAL, 0, 1},
    {"Motor2.Running", UNITYDRV_TYPE_BOOL, 0, 1}, {"Line[0].Speed", UNITYDRV_TYPE_REAL, 0, 1},
    {"Line[2].Speed", UNITYDRV_TYPE_REAL, 0, 1},  {"Line[3].Starts", UNITYDRV_TYPE_UDINT, 0, 1},
    {"Counter", UNITYDRV_TYPE_INT, 0, 1},         {"Total", UNITYDRV_TYPE_DINT, 0, 1},
    {"Production", UNITYDRV_TYPE_UDINT, 0, 1},    {"Alarms", UNITYDRV_TYPE_WORD, 0, 1},
    {"Status", UNITYDRV_TYPE_DWORD, 0, 1},        {"Levels", UNITYDRV_TYPE_INT, 0, 10},
    {"Levels", UNITYDRV_TYPE_INT, 2, 3},          {"Valves", UNITYDRV_TYPE_BITARRAY, 3, 1},
    {"Name", UNITYDRV_TYPE_STRING, 0, 7},         {"Energy", UNITYDRV_TYPE_LINT, 0, 1},
    {"Temperature", UNITYDRV_TYPE_REAL, 0, 1},    {"Running", UNITYDRV_TYPE_BOOL, 0, 1},
    {"Ready", UNITYDRV_TYPE_BOOL, 0, 1},          {"Setpoint", UNITYDRV_TYPE_REAL, 0, 1},
};
constexpr std::size_t mixed_count = sizeof(mixed_requests) / sizeof(mixed_requests[0]);

// The mixed request against the example project, on a device of its own.
class mixed_cycle {
 public:
  mixed_cycle();
  bool ok() const { return ok_; }
  // Every result must come back valid, not only the first.
  bool run() {
    const int n = static_cast<int>(mixed_count);
    driver().OutputFilterEx(requests_.data(), n);
    driver().InputFilterEx(round_->results.data(), nullptr, round_->infos.data(), n);
    for (const auto& result : round_->results)
      if (result.result_status != 0 || result.result_code != 5) return false;
    return true;
  }

 private:
  std::unique_ptr<bench_device> device_;
  std::vector<_gui_request_> requests_;
  std::unique_ptr<loaded_driver::input_round> round_;
  bool ok_ = false;
};

// What one device with 50,000 resolved tags keeps resident.
void BM_memory_per_device(benchmark::State& state) {
  init_setting& s = large_setting();
  if (!s.start()) return state.SkipWithError("simulator did not start");
  for (auto _ : state) {
    const long rss0 = vm_rss_kb();
    const long heap0 = heap_in_use_bytes();
    bench_device device(s.server, s.names);
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
    bench_device device(s.server, s.names);
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

mixed_cycle::mixed_cycle() {
  init_setting& s = plant_setting();
  if (!s.start()) return;
  device_ = std::make_unique<bench_device>(s.server, s.names);
  if (!device_->get_init_cmd() || !device_->ready()) return;
  std::vector<loaded_driver::request> wanted;
  for (const auto& m : mixed_requests) {
    const auto at = std::find(s.names.begin(), s.names.end(), m.name);
    if (at == s.names.end()) return;
    wanted.push_back({static_cast<uint32_t>(at - s.names.begin()), m.type, m.array_index, m.count});
  }
  requests_ = loaded_driver::requests(device_->handle(), wanted);
  round_ = std::make_unique<loaded_driver::input_round>(device_->handle(), mixed_count);
  ok_ = run();
}

// The mixed request alone: there is no floor for it, its figure is its instruction count.
void BM_mixed_cycle(benchmark::State& state) {
  mixed_cycle cycle;
  if (!cycle.ok()) return state.SkipWithError("mixed cycle failed");
  for (int i = 0; i < 200; ++i) cycle.run();
  std::vector<double> driver_s;
  std::size_t allocations = 0;
  for (auto _ : state) {
    const auto t0 = clock_type::now();
    const std::size_t before = counting_new::thread_allocations();
    const bool ok = cycle.run();
    allocations += counting_new::thread_allocations() - before;
    driver_s.push_back(seconds_since(t0));
    if (!ok) return state.SkipWithError("mixed cycle failed");
  }
  state.counters["tags"] = static_cast<double>(mixed_count);
  state.counters["driver_us"] = median(driver_s) * 1e6;
  state.counters["driver_min_us"] = *std::min_element(driver_s.begin(), driver_s.end()) * 1e6;
  state.counters["driver_allocations_per_cycle"] =
      static_cast<double>(allocations) / static_cast<double>(state.iterations());
}
BENCHMARK(BM_mixed_cycle)->MinTime(1.0);

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

// Under callgrind (--instr-atstart=no), each dumped on its own: the driver's 100-tag cycle
// after one warm cycle, the bare client's exchange of the same bytes, the warm mixed cycle
// and one GetInitCmdEx2 of 50,000 variables and tags. Prints the allocations of each cycle.
// cycle_only: the driver's cycle alone (run again with the driver trace on).
int callgrind_runs(bool cycle_only) {
  cycle_rig& r = rig();
  if (!r.ok) return 1;
  host_cycle cycle(r.device->handle(), 100);
  if (cycle_only) {
    if (!cycle.run()) return 1;
    CALLGRIND_START_INSTRUMENTATION;
    CALLGRIND_ZERO_STATS;
    const std::size_t before = counting_new::thread_allocations();
    const bool ok = cycle.run();
    CALLGRIND_DUMP_STATS_AT("driver_cycle_100");
    CALLGRIND_STOP_INSTRUMENTATION;
    std::printf("allocations: driver_cycle_100 %zu\n", counting_new::thread_allocations() - before);
    return ok ? 0 : 1;
  }
  bare_client floor;
  std::vector<unsigned char> reply;
  const auto& request = r.requests[99];
  if (!floor.connect_to(r.server.address(), r.server.port()) || !cycle.run() ||
      !floor.exchange(request, reply))
    return 1;
  mixed_cycle mixed;
  if (!mixed.ok() || !mixed.run()) return 1;
  init_setting& large = large_setting();
  if (!large.start()) return 1;
  bench_device device(large.server, large.names);

  CALLGRIND_START_INSTRUMENTATION;
  CALLGRIND_ZERO_STATS;
  std::size_t before = counting_new::thread_allocations();
  const bool a = cycle.run();
  CALLGRIND_DUMP_STATS_AT("driver_cycle_100");
  const std::size_t cycle_allocations = counting_new::thread_allocations() - before;
  const bool b = floor.exchange(request, reply);
  CALLGRIND_DUMP_STATS_AT("floor_cycle_100");
  before = counting_new::thread_allocations();
  const bool c = mixed.run();
  CALLGRIND_DUMP_STATS_AT("mixed_cycle");
  const std::size_t mixed_allocations = counting_new::thread_allocations() - before;
  before = counting_new::thread_allocations();
  const bool d = device.get_init_cmd();
  CALLGRIND_DUMP_STATS_AT("handshake_50000");
  CALLGRIND_STOP_INSTRUMENTATION;
  const std::size_t handshake_allocations = counting_new::thread_allocations() - before;
  std::printf("allocations: driver_cycle_100 %zu, mixed_cycle %zu (%zu requests)\n",
              cycle_allocations, mixed_allocations, mixed_count);
  std::printf("handshake_50000: %zu tags, %zu allocations\n", large.names.size(),
              handshake_allocations);
  return a && b && c && d ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  cores::client();
  if (argc > 1 && std::strcmp(argv[1], "--callgrind") == 0)
    return callgrind_runs(argc > 2 && std::strcmp(argv[2], "cycle") == 0);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
