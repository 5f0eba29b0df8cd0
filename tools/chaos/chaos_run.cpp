#include "tools/chaos/chaos_run.h"

#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <thread>
#include <utility>

#include "tools/chaos/chaos_controller.h"
#include "tools/chaos/corpus_recorder.h"
#include "tools/chaos/soak_device.h"
#include "tools/common/process_resources.h"
#include "tools/common/tag_file_writer.h"

namespace chaos {

namespace {

constexpr int devices_per_controller = 2;
constexpr int warm_up_seconds = 12;  // longer than the value history keeps: heap settles
constexpr int watchdog_limit_s = 20;
constexpr int pause_between_steps_ms = 3;
// Mean seconds between controller events of one kind, per controller, while faults are on.
constexpr double restart_every_s = 15, download_every_s = 25, refusal_every_s = 15,
                 drop_every_s = 15;

using process_resources::heap_in_use;
using process_resources::open_descriptors;

struct world {
  world(const run_options& o, tally& t) : options(o), t(t), api(o.library), rng(o.seed) {}

  const run_options& options;
  tally& t;
  loaded_driver::driver_api api;
  std::mt19937_64 rng;
  std::vector<std::unique_ptr<controller>> controllers;
  std::vector<std::unique_ptr<soak_device>> devices;
  call_watch watch;
  std::atomic<int> current{-1};  // the device whose call is in progress
  std::mutex seen_mu;            // faults the proxies applied, for the host thread
  struct proxy_seen {
    int device;
    std::string kind;
    std::size_t controller;
  };
  std::vector<proxy_seen> seen;
  std::atomic<bool> running{true};
  corpus_recorder corpus;

  // Faults and connects the proxies saw, handed to the device whose call was in progress.
  void proxy_event(std::size_t controller_index, const std::string& event) {
    std::string kind;
    if (event.rfind("fault ", 0) == 0) {
      kind = event.substr(6, event.find(' ', 6) - 6);
    } else if (event == "connection accepted") {
      kind = "connected";
    } else {
      return;
    }
    std::lock_guard<std::mutex> lock(seen_mu);
    seen.push_back({current.load(), kind, controller_index});
  }

  void deliver_seen() {
    std::lock_guard<std::mutex> lock(seen_mu);
    for (const proxy_seen& e : seen) {
      if (e.device < 0) continue;
      soak_device& d = *devices[static_cast<std::size_t>(e.device)];
      if (e.kind == "connected") {
        d.connected_to(controllers[e.controller].get());
      } else {
        d.fault_seen(e.kind);
      }
    }
    seen.clear();
  }

  void host_iteration(bool quiet) {
    for (auto& d : devices) {
      current = d->id();
      d->step(quiet);
      current = -1;
      deliver_seen();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(pause_between_steps_ms));
  }

  // A call that never returns is ended as the header allows: Timeout from another thread.
  void watchdog() {
    while (running) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
      const int64_t started = watch.started_ns;
      const int64_t now =
          std::chrono::duration_cast<std::chrono::nanoseconds>(clock::now().time_since_epoch())
              .count();
      if (started != 0 && now - started > int64_t{watchdog_limit_s} * 1000000000) {
        watch.ended_by_watchdog = true;
        watch.started_ns = 0;
        api.Timeout(0, watch.handle);
      }
    }
  }

  bool chance(double seconds, double mean_s) {
    return std::uniform_real_distribution<double>(0, 1)(rng) < seconds / mean_s;
  }

  void controller_events(controller& c, std::size_t index, double seconds) {
    const std::string name = index == 0 ? "A" : "B";
    auto announce = [&](const std::string& what) {
      ++t.events[what];
      for (auto& d : devices) d->note("controller " + name + ": " + what);
    };
    if (chance(seconds, restart_every_s)) announce("restart"), c.restart();
    if (chance(seconds, download_every_s)) announce("download"), c.download();
    if (chance(seconds, refusal_every_s)) {
      for (auto& d : devices) d->note("controller " + name + ": refusal");
      c.proxy().refuse_for(std::uniform_int_distribution<int>(200, 3000)(rng));
    }
    if (chance(seconds, drop_every_s)) announce("drop"), c.proxy().drop_all();
  }

  void fault_phase(int phase) {
    for (std::size_t i = 0; i < controllers.size(); ++i) {
      controllers[i]->proxy().plan().randomise(
          options.seed * 1000 + static_cast<uint64_t>(phase) * 10 + i,
          options.reply_fault_probability, faultproxy::all_kinds());
    }
    const auto end = clock::now() + std::chrono::seconds(options.fault_seconds);
    auto last = clock::now();
    while (clock::now() < end) {
      host_iteration(false);
      const double seconds = std::chrono::duration<double>(clock::now() - last).count();
      last = clock::now();
      for (std::size_t i = 0; i < controllers.size(); ++i)
        controller_events(*controllers[i], i, seconds);
    }
  }

  // Faults off; each device counts its steps up to its first right round.
  void quiet_phase(int seconds) {
    for (auto& c : controllers) c->proxy().calm();
    // The relays close within their poll period; the devices then start from scratch.
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    for (auto& d : devices) d->faults_stopped();
    std::vector<uint64_t> right_before;
    std::vector<int> steps(devices.size(), 0);
    std::vector<bool> recovered(devices.size(), false);
    for (auto& d : devices) right_before.push_back(d->right_rounds());
    const auto end = clock::now() + std::chrono::seconds(seconds);
    while (clock::now() < end) {
      host_iteration(true);
      for (std::size_t i = 0; i < devices.size(); ++i) {
        if (recovered[i]) continue;
        ++steps[i];
        recovered[i] = devices[i]->right_rounds() > right_before[i];
        if (recovered[i]) t.recover_steps.push_back(steps[i]);
      }
    }
    for (std::size_t i = 0; i < devices.size(); ++i) {
      if (!recovered[i]) {
        ++t.not_recovered;
        t.fail("device " + std::to_string(i) + " served no right round in a quiet phase",
               devices[i]->last_events());
      } else if (steps[i] > options.recover_bound) {
        t.fail("device " + std::to_string(i) + " took " + std::to_string(steps[i]) +
                   " steps to recover",
               devices[i]->last_events());
      }
    }
  }
};

void set_up(world& w, const std::string& tag_path) {
  const plcsim::project plant = original_program(w.options.source_dir);
  for (int i = 0; i < 2; ++i) {
    auto sink = [&w, i](const std::string& e) { w.proxy_event(static_cast<std::size_t>(i), e); };
    auto replies = [&w, i](uint64_t connection, const bytes& frame) {
      if (!w.options.corpus_dir.empty()) w.corpus.reply(i, connection, frame);
    };
    w.controllers.push_back(std::make_unique<controller>(plant, i == 0 ? 1 : 7, sink, replies));
  }
  int id = 0;
  for (auto& c : w.controllers) {
    if (!c->started()) throw std::runtime_error("cannot start a controller on loopback port 502");
    for (int k = 0; k < devices_per_controller; ++k, ++id) {
      w.devices.push_back(std::make_unique<soak_device>(
          id, *c, w.api, tag_path, w.t, w.watch, w.options.seed * 100 + static_cast<uint64_t>(id)));
    }
  }
}

}  // namespace

tally run(const run_options& options) {
  tally t;
  t.seed = options.seed;
  const char* guard = std::getenv("UNITYDRV_GUARD");
  t.guarded = guard != nullptr && std::string(guard) == "1";
  t.recover_bound = options.recover_bound;
  t.timing_slack_ms = options.timing_slack_ms;
  const std::string tag_path = "/tmp/unitydrv_chaos_" + std::to_string(::getpid()) + ".tags";
  std::vector<std::string> names;
  for (const tag& g : tags()) names.push_back(g.name);
  tag_file::write_names(tag_path, names);
  world w(options, t);
  std::thread dog([&w] { w.watchdog(); });
  set_up(w, tag_path);
  w.quiet_phase(warm_up_seconds);
  t.fds_before = open_descriptors();
  t.heap_before = heap_in_use();
  const auto deadline = clock::now() + std::chrono::duration<double>(options.minutes * 60);
  for (int phase = 1; clock::now() < deadline; ++phase) {
    w.fault_phase(phase);
    w.quiet_phase(options.quiet_seconds);
  }
  t.fds_after = open_descriptors();
  t.heap_after = heap_in_use();
  for (std::size_t k = 0; k < faultproxy::kind_count; ++k) {
    const auto kind = static_cast<faultproxy::kind>(k);
    for (auto& c : w.controllers) t.events[faultproxy::name_of(kind)] += c->proxy().faults(kind);
  }
  if (!options.corpus_dir.empty()) w.corpus.write(options.corpus_dir, 40);
  w.devices.clear();
  w.running = false;
  dog.join();
  w.controllers.clear();
  std::remove(tag_path.c_str());
  return t;
}

}  // namespace chaos
