#include "tools/chaos/soak_device.h"

#include <cmath>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "unitydrv/unitydrv.h"

namespace chaos {

namespace {

constexpr std::size_t kept_events = 24;
constexpr std::size_t levels_tag = 7;
constexpr std::size_t alarms_tag = 9;
constexpr int life_end_one_in = 400;  // steps: a device's life ends now and then
constexpr int write_one_in = 4;
// The header's points, as a wrong value in the default mode is attributed to them.
const char* const point_download =
    "1 program download (a variable read where the earlier program had it)";
const char* const point_unresolved = "5 tag that does not resolve";
const char* const point_late =
    "6 late reply (a reply not to this request left in the socket, here duplicated, split or "
    "stalled, taken by the next read; one read is one reply, received in one piece)";

// Every entry point returns within 1.1 s per exchange and 0.1 s for a connect.
double bound_ms(uint64_t exchanges, bool connects) {
  return 1100.0 * static_cast<double>(exchanges) + (connects ? 100.0 : 0.0);
}

double ms_since(clock::time_point t) {
  return std::chrono::duration<double, std::milli>(clock::now() - t).count();
}

int64_t now_ns() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(clock::now().time_since_epoch())
      .count();
}

}  // namespace

soak_device::soak_device(int id, controller& ctl, loaded_driver::driver_api& api, std::string tag_path,
                         tally& t, call_watch& watch, uint64_t seed)
    : id_(id),
      ctl_(ctl),
      api_(api),
      tag_path_(std::move(tag_path)),
      t_(t),
      watch_(watch),
      rng_(seed) {}

soak_device::~soak_device() {
  close();
}

void soak_device::note(const std::string& event) {
  std::ostringstream line;
  line << std::fixed;
  line.precision(3);
  line << std::chrono::duration<double>(clock::now().time_since_epoch()).count() << " " << event;
  last_.push_back(line.str());
  if (last_.size() > kept_events) last_.pop_front();
}

void soak_device::connected_to(const controller* c) {
  if (c == &ctl_) return;
  note("connected to the other controller");
  t_.fail("device " + std::to_string(id_) + " connected to the other controller", last_);
}

void soak_device::fault_seen(const std::string& kind) {
  taint_.insert(kind);
  note("proxy: " + kind);
}

// Times one entry point call, bounded by 1.1 s per exchange it made and 0.1 s for a connect;
// an exception is counted and, where the header does not name it, a failure.
template <typename F>
void soak_device::timed(const char* entry, bool connects, F call) {
  const uint64_t exchanges_before = ctl_.proxy().requests();
  const auto started = clock::now();
  watch_.handle = handle_;
  watch_.started_ns = now_ns();
  try {
    call();
  } catch (const std::exception& e) {
    const bool range = dynamic_cast<const std::out_of_range*>(&e) != nullptr;
    const std::string what = std::string(entry) + ": " + (range ? "std::out_of_range" : e.what());
    ++t_.exceptions[what];
    note("exception " + what);
    const bool named = !t_.guarded && (std::string(entry) == "GetInitCmdEx2" ||
                                       std::string(entry) == "OutputFilterEx");
    if (!named) t_.fail("exception out of " + what, last_);
    watch_.started_ns = 0;
    throw;
  }
  watch_.started_ns = 0;
  const double ms = ms_since(started);
  const uint64_t exchanges = std::max<uint64_t>(1, ctl_.proxy().requests() - exchanges_before);
  if (ms > t_.longest_call_ms) t_.longest_call_ms = ms, t_.longest_call = entry;
  t_.longest_exchange_ms = std::max(t_.longest_exchange_ms, ms / static_cast<double>(exchanges));
  if (watch_.ended_by_watchdog.exchange(false)) {
    ++t_.hangs;
    t_.fail(std::string(entry) + " did not return within the watchdog's limit", last_);
  } else if (ms > bound_ms(exchanges, connects)) {
    // Past the bound; a failure when past it by more than a loaded machine's scheduling.
    ++t_.slow_calls;
    t_.worst_overrun_ms = std::max(t_.worst_overrun_ms, ms - bound_ms(exchanges, connects));
    if (ms > bound_ms(exchanges, connects) + t_.timing_slack_ms) {
      t_.fail(std::string(entry) + " took " + std::to_string(static_cast<int>(ms)) + " ms for " +
                  std::to_string(exchanges) + " exchanges",
              last_);
    }
  }
}

void soak_device::step(bool quiet) {
  ++t_.steps;
  try {
    if (state_ == state::stopped) {
      start();
    } else if (state_ == state::starting) {
      initialise();
    } else if (!quiet && rng_() % life_end_one_in == 0) {
      note("life ends: CloseDevice");
      close();
    } else if (rng_() % write_one_in == 0) {
      write_round(quiet);
    } else {
      read_round();
    }
  } catch (const std::exception&) {
    failed("exception");
  }
}

void soak_device::start() {
  ++t_.lives;
  int result = -1;
  timed("StartDeviceEx", false,
        [&] { result = api_.StartDeviceEx(0, &handle_, tag_path_.c_str(), 0); });
  note("StartDeviceEx -> " + std::to_string(result));
  state_ = state::starting;
}

// InitEx with this device's address before every GetInitCmdEx2 (recipe 2) in the default
// mode; guarded, only before the first of each device, as the calling order has it.
void soak_device::initialise() {
  ++t_.inits;
  if (!t_.guarded || !ever_initialised_) {
    const unitydrv_init_params params = loaded_driver::init_params_of(ctl_.address());
    timed("InitEx", false, [&] { api_.InitEx(0, &params); });
  }
  ever_initialised_ = true;
  const int program = ctl_.program();
  taint_.clear();  // a new connection
  uint32_t code = 99;
  timed("GetInitCmdEx2", true, [&] { api_.GetInitCmdEx2(&code, 0, 0, 0, &handle_); });
  int ready = 0;
  timed("CheckInitCmdResponseEx2", false,
        [&] { ready = api_.CheckInitCmdResponseEx2(0, 0, &handle_); });
  note("GetInitCmdEx2 code=" + std::to_string(code) + " ready=" + std::to_string(ready));
  if (ready == 1) {
    state_ = state::ready;
    dictionary_program_ = program;
  } else if (!t_.guarded) {
    timed("Timeout", false, [&] { api_.Timeout(0, handle_); });
  }
}

// Default mode: Timeout, then CloseDevice and StartDeviceEx (the program may have changed:
// recipe 1) and the handshake. Guarded: the handshake again on the same device.
void soak_device::failed(const std::string& why) {
  ++t_.rounds_failed;
  note("round failed: " + why);
  last_round_right_ = false;
  try {
    if (t_.guarded) {
      state_ = state::starting;
      return;
    }
    timed("Timeout", false, [&] { api_.Timeout(0, handle_); });
    close();
  } catch (const std::exception&) {
    state_ = state::stopped;
  }
}

void soak_device::close() {
  if (state_ == state::stopped) return;
  void* handle = handle_;
  handle_ = nullptr;
  state_ = state::stopped;
  ever_initialised_ = false;  // a new device gets InitEx before its first GetInitCmdEx2
  timed("CloseDevice", false, [&] { api_.CloseDevice(0, handle); });
  state_ = state::stopped;
}

// The tags a round reads. Guarded: every tag of the file. Default: those of the program the
// device was initialised with, as a host that checks its tag file against the controller
// after a download reads them (recipes 1 and 5).
std::vector<loaded_driver::request> soak_device::round_requests() {
  std::vector<loaded_driver::request> wanted;
  const plcsim::project& known = ctl_.program_text(dictionary_program_);
  for (std::size_t i = 0; i < tags().size(); ++i) {
    uint16_t block;
    uint32_t offset;
    if (!t_.guarded && !element_location(known, tags()[i], 0, block, offset)) continue;
    loaded_driver::request r{static_cast<uint32_t>(i), tags()[i].type};
    if (i == levels_tag) {
      r.array_index = static_cast<uint16_t>(rng_() % 10);
      r.count = static_cast<uint16_t>(1 + rng_() % (10 - r.array_index));
    } else if (i == alarms_tag) {
      r.bit_spec = static_cast<uint8_t>(1 + rng_() % 16);
    }
    wanted.push_back(r);
  }
  return wanted;
}

// Every value delivered with status 0 is checked; the round is right when every tag of the
// running program was delivered right.
void soak_device::read_round() {
  ++t_.reads;
  const std::vector<loaded_driver::request> wanted = round_requests();
  auto requests = loaded_driver::requests(handle_, wanted);
  loaded_driver::input_round round(handle_, wanted.size());
  const auto sent = clock::now();
  timed("OutputFilterEx", false,
        [&] { api_.OutputFilterEx(requests.data(), static_cast<int>(requests.size())); });
  const auto replied = clock::now();
  timed("InputFilterEx", false, [&] {
    api_.InputFilterEx(round.results.data(), nullptr, round.infos.data(),
                       static_cast<int>(wanted.size()));
  });
  std::size_t served = 0, right = 0, resolvable = 0;
  const plcsim::project& running = ctl_.program_text(ctl_.program());
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    uint16_t block;
    uint32_t offset;
    resolvable += element_location(running, tags()[wanted[i].tag], 0, block, offset);
    if (round.results[i].result_status != 0) continue;
    ++served;
    const uint8_t bit = static_cast<uint8_t>(wanted[i].bit_spec - 1);
    right += check_position(wanted[i].tag, round.results[i], wanted[i].array_index, wanted[i].count,
                            bit, sent, replied);
  }
  t_.positions_failed += wanted.size() - served;
  note("read served=" + std::to_string(served) + "/" + std::to_string(wanted.size()) +
       " right=" + std::to_string(right));
  last_round_right_ = right >= resolvable && served > 0;
  right_rounds_ += last_round_right_;
  if (served == 0) failed("every position failed");
}

bool soak_device::check_position(std::size_t tag, const _input_data_& r, uint16_t index,
                                 uint16_t count, uint8_t bit, clock::time_point from,
                                 clock::time_point to) {
  const chaos::tag& t = tags()[tag];
  const std::vector<int> programs = ctl_.programs_between(from, to);
  const std::size_t n = t.elements > 1 ? count : 1;
  const std::size_t first = t.elements > 1 ? index : 0;
  const std::size_t per = units_per_element(t.form);
  bool right = true;
  for (std::size_t j = 0; j < n && right; ++j) {
    ++t_.values_checked;
    const std::vector<uint16_t> got(r.result_words + j * per, r.result_words + (j + 1) * per);
    bool matched = false;
    for (int p : programs) {
      for (const bytes& held : ctl_.held(p, tag, first + j, from, to))
        matched = matched || expected_units(t.form, held, bit) == got;
    }
    right = matched;
  }
  if (right) return true;
  const std::string point = attribute(tag, programs);
  note("WRONG " + t.name + " (" + point + ")");
  if (point.empty()) {
    ++t_.unexplained;
    t_.fail("wrong value with status 0: " + t.name, last_);
  } else {
    ++t_.wrong_by_point[point];
  }
  return false;
}

// The header's point that lets a wrong value through in the default mode; empty when none
// does (and always in guarded mode).
std::string soak_device::attribute(std::size_t tag, const std::vector<int>& programs) const {
  if (t_.guarded) return {};
  uint16_t block, known_block;
  uint32_t offset, known_offset;
  const bool known = element_location(ctl_.program_text(dictionary_program_), tags()[tag], 0,
                                      known_block, known_offset);
  for (int p : programs) {
    const bool there = element_location(ctl_.program_text(p), tags()[tag], 0, block, offset);
    if (!there && !known) return point_unresolved;
    // Read where the program the device downloaded had it.
    if (known && (!there || block != known_block || offset != known_offset)) return point_download;
  }
  for (const char* late : {"delay_long", "stall", "split", "duplicate", "black_hole"}) {
    if (taint_.count(late) != 0) return point_late;
  }
  return {};
}

// One whole value into a written tag; it must land unless a fault is on.
void soak_device::write_round(bool quiet) {
  ++t_.writes;
  const std::size_t tag = 10 + rng_() % 3;
  const chaos::tag& t = tags()[tag];
  const uint32_t seq = ++write_seq_;
  uint32_t value = static_cast<uint32_t>(id_ + 1) << 20 | (seq & 0xFFFFF);
  if (t.type == UNITYDRV_TYPE_REAL) {
    const float f = static_cast<float>(value);
    std::memcpy(&value, &f, sizeof value);
  } else if (t.type == UNITYDRV_TYPE_INT) {
    value = static_cast<uint16_t>((id_ + 1) * 4096 + (seq & 0xFFF));
  }
  std::vector<uint16_t> words = {static_cast<uint16_t>(value)};
  if (t.element_size == 4) words.push_back(static_cast<uint16_t>(value >> 16));
  auto request = loaded_driver::write_request(handle_, {static_cast<uint32_t>(tag), t.type}, words);
  const auto sent = clock::now();
  timed("OutputFilterEx", false, [&] { api_.OutputFilterEx(request.data(), 1); });
  bytes expected(t.element_size);
  for (std::size_t i = 0; i < expected.size(); ++i)
    expected[i] = static_cast<uint8_t>(value >> (8 * i));
  bool landed = false;
  for (const bytes& held : ctl_.held(ctl_.program(), tag, 0, sent, clock::now()))
    landed = landed || held == expected;
  note(std::string("write ") + t.name + (landed ? " landed" : " not seen"));
  if (landed) {
    ++t_.writes_landed;
  } else if (quiet && last_round_right_) {
    ++t_.writes_lost_quiet;
    t_.fail("a write to " + t.name + " did not land while no fault was on", last_);
  }
}

}  // namespace chaos
