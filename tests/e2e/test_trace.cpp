// The driver trace: every kind of event has its line. That it changes no record and no wire
// byte is test_trace_differential's.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "driver/device_context.h"
#include "driver/init_handshake.h"
#include "driver/tag_driver_offline_578.h"
#include "driver/trace_events.h"
#include "guard/guard.h"
#include "support/guarded_run.h"
#include "support/pcap_payloads.h"
#include "support/plant_device.h"
#include "trace/trace.h"

#if !defined(UNITYDRV_REMOTE_SIM)
namespace {

std::string temp_path(const std::string& what) {
  return ::testing::TempDir() + "trace_" + std::to_string(::getpid()) + "_" + what;
}

using pcap_payloads::slurp;

// A pump station: structure arrays with a low bound of 1, a structure inside a structure.
const std::string station_types = R"({
  "plc_type": "BMX P34 2020",
  "types": [
    {"id": 100, "kind": "struct", "name": "PUMP",
     "members": [{"name": "Speed", "type": 8, "offset": 0}, {"name": "Mode", "type": 4, "offset": 4}]},
    {"id": 101, "kind": "struct", "name": "STATION",
     "members": [{"name": "Pump", "type": 100, "offset": 0}, {"name": "Level", "type": 4, "offset": 8}]},
    {"id": 102, "kind": "array", "name": "ARRAY[1..3] OF PUMP", "element": 100, "dimensions": [[1, 3]]}
  ],)";
const std::string station_project = station_types + R"(
  "variables": [
    {"name": "Pumps", "type": 102, "block": 1, "offset": 0},
    {"name": "Station", "type": 101, "block": 1, "offset": 32, "value": {"Level": 7}},
    {"name": "After", "type": 4, "block": 1, "offset": 48}
  ]})";

// The same station after a program download: Station moved, After gone, Fresh new.
const std::string changed_project = station_types + R"(
  "variables": [
    {"name": "Pumps", "type": 102, "block": 1, "offset": 0},
    {"name": "Fresh", "type": 4, "block": 1, "offset": 48},
    {"name": "Station", "type": 101, "block": 1, "offset": 64}
  ]})";

// Traces into a file of its own for one test; a device of the driver's core, driven
// through the handshake and the filters as the entry points drive it. These are the
// default mode's lines: the guarded run of the suite keeps the driver's core unguarded
// here, and its own tests hold the guarded lines.
class TraceEvents : public ::testing::Test {
 protected:
  void SetUp() override {
    guarded_ = guard::on;
    guard::on = false;
    trace_path_ = temp_path(::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::remove(trace_path_.c_str());
    ASSERT_TRUE(trace::configure(trace_path_.c_str(), false));
  }
  void TearDown() override {
    guard::on = guarded_;
    trace::configure(nullptr, false);
    std::remove(trace_path_.c_str());
    std::remove(tag_path_.c_str());
  }

  std::unique_ptr<plcsim::server> serve(const std::string& json) {
    auto server = std::make_unique<plcsim::server>(plcsim::parse_project(json));
    EXPECT_TRUE(server->start_on_free_loopback());
    return server;
  }

  std::unique_ptr<device_context> device(const std::vector<std::string>& names, unsigned number) {
    tag_path_ = temp_path("tags");
    std::vector<tag_file::record> records;
    for (const auto& n : names) records.push_back({n});
    EXPECT_TRUE(tag_file::write(tag_path_, records, false, 0));
    auto d = std::make_unique<device_context>();
    d->tag_table.Read(tag_path_.c_str(), 0);
    d->trace_number = number;
    return d;
  }

  // GetInitCmdEx2 for the device at address: its code.
  uint32_t connect(device_context& d, const std::string& address) {
    plc_address = address;
    trace::current_device = d.trace_number;
    uint32_t code = 99;
    init_handshake::get_init_cmd(d, &code);
    return code;
  }

  // Each expected text must be on a line of the trace, in any order.
  void expect_lines(const std::vector<std::string>& wanted) {
    const std::string text = slurp(trace_path_);
    for (const auto& w : wanted)
      EXPECT_NE(text.find(w), std::string::npos) << w << "\nin:\n" << text;
  }

  std::string trace_path_;
  std::string tag_path_;

 private:
  bool guarded_ = false;
};

TEST_F(TraceEvents, EveryUnresolvedReasonAndEveryAddressOutsideItsVariable) {
  auto server = serve(station_project);
  auto d = device({"Pumps[1].Speed", "Pumps[3].Speed", "Station.Pump", "Station.Bad.Level",
                   "Station.Nope", "Ghost", "After[2]", "Pumps[-1].Speed", "Pumps[x].Speed"},
                  1);
  ASSERT_EQ(connect(*d, server->address()), 0u);
  expect_lines({
      "dev=1 connect address=" + server->address() + ":502 ms=",
      "result=ok",
      "identification result=ok plc_type=\"BMX P34 2020\"",
      "dictionary types=3 structures=3 arrays=1 variables=3",
      // ARRAY[1..3]: subscript 1 is the second element, subscript 3 lies past the array.
      "extent tag=Pumps[1].Speed variable_type=\"ARRAY[1..3] OF PUMP\" subscript=1 "
      "counted_from_start=1 element=2 offset=6 extent=18 (counted from 0: not the element "
      "the subscript declares)",
      "extent tag=Pumps[3].Speed variable_type=\"ARRAY[1..3] OF PUMP\" subscript=3 "
      "counted_from_start=1 element=4 offset=18 extent=18 outside=1 (lies past the array",
      "unresolved tag=2 name=Station.Pump reason=\"the path ends in structure PUMP",
      "resolved-skipping tag=3 name=Station.Bad.Level note=\"unknown member 'Bad' in "
      "structure STATION (the walk went on",
      "unresolved tag=4 name=Station.Nope reason=\"unknown member 'Nope' in structure STATION",
      "unresolved tag=5 name=Ghost reason=\"unknown variable 'Ghost'\"",
      "subscript tag=6 name=After[2] the subscript of the whole name is dropped",
      "unresolved tag=8 name=Pumps[x].Speed reason=\"the subscript [x] of 'Pumps' is not a "
      "list of integers\"",
      "extent tag=Pumps[-1].Speed variable_type=\"ARRAY[1..3] OF PUMP\" subscript=-1 "
      "counted_from_start=1 element=0 offset=4294967290 extent=18 outside=1 (lies before the "
      "array",
      // Only the tags before and past the array lie outside; the one counted from 0 is inside.
      "resolution tags=9 resolved=5 unresolved=4 outside=2 failed=\"the index build stopped: "
      "the name of tag 8 cannot be read",
  });
}

// Regression: a name holding a line break or a quote split one event over two lines.
TEST_F(TraceEvents, ANameIsEscapedSoThatOneEventIsOneLine) {
  auto server = serve(station_project);
  auto d = device({"Gho\nst", "Sta\"tion x.Level", "Pumps[1].X\"Y.Speed"}, 1);
  ASSERT_EQ(connect(*d, server->address()), 0u);
  expect_lines({"unresolved tag=0 name=Gho\\x0ast reason=\"unknown variable 'Gho\\x0ast'\"",
                "unresolved tag=1 name=Sta\\x22tion\\x20x.Level reason=\"unknown variable "
                "'Sta\\x22tion x'\"",
                "extent tag=Pumps[1].X\\x22Y.Speed variable_type=\"ARRAY[1..3] OF PUMP\""});
  std::istringstream lines(slurp(trace_path_));
  for (std::string line; std::getline(lines, line);) EXPECT_EQ(line.rfind("20", 0), 0u) << line;
}

TEST_F(TraceEvents, ProgramChangeBetweenTwoDownloads) {
  auto server = serve(station_project);
  auto d = device({"Station.Level", "After"}, 1);
  ASSERT_EQ(connect(*d, server->address()), 0u);
  server->load_program(plcsim::parse_project(changed_project));
  d->session.stop();
  ASSERT_EQ(connect(*d, server->address()), 0u);
  expect_lines({
      "dev=1 reconnect address=" + server->address() + " previous=" + server->address(),
      "program-change variable=After gone=1 old=1:48 (its tags keep the earlier address",
      "program-change variable=Station moved=1 old=1:32 new=1:64",
      "program-change gone=1 moved=1",
  });
  // The trace keeps the earlier variables aside only while it looks: the session holds
  // them as it would without the trace (kept and added to).
  EXPECT_EQ(d->session.tables.count(std::string("After") + '\0'), 1u);
  EXPECT_EQ(d->session.tables.count(std::string("Fresh") + '\0'), 1u);
  EXPECT_EQ(d->tag_table.entries[1].location, (std::array<unsigned char, 6>{1, 0, 48, 0, 0, 0}));
}

TEST_F(TraceEvents, ReconnectToTheAddressOfAnotherDevice) {
  auto a = serve(station_project);
  auto b = serve(station_project);
  auto first = device({"After"}, 1);
  auto second = device({"After"}, 2);
  ASSERT_EQ(connect(*first, a->address()), 0u);
  ASSERT_EQ(connect(*second, b->address()), 0u);
  first->session.stop();
  ASSERT_EQ(connect(*first, b->address()), 0u);  // the last InitEx was for the second device
  expect_lines({"dev=1 reconnect address=" + b->address() + " previous=" + a->address() +
                " changed=1 (the address of the last InitEx, whichever device it was for) "
                "(the address device 2 connected to last)"});
}

// The failures of an exchange, and what the host is told of them.
TEST_F(TraceEvents, FailedExchangesAndWhatTheHostIsTold) {
  auto server = serve(station_project);
  auto d = device({"After", "Station.Level"}, 1);
  ASSERT_EQ(connect(*d, server->address()), 0u);
  const auto read = [&](const std::vector<loaded_driver::request>& wanted, uint8_t kind = 0) {
    auto req = loaded_driver::requests(d.get(), wanted, kind);
    req[0].write.bit.write_bit_value = 1;
    trace_events::round_begun(req.data(), static_cast<int>(req.size()));  // as OutputFilterEx
    driver_object.outputfilter(req.data(), static_cast<int>(req.size()));
    loaded_driver::input_round round(d.get(), wanted.size());
    driver_object.inputFilter(round.results.data(), nullptr, round.infos.data(), 1);
  };
  plcsim::faults refuse;
  refuse.error_function = 0x22;
  server->set_faults(refuse);
  read({{0, UNITYDRV_TYPE_INT}});
  server->set_faults(plcsim::faults{});
  read({{1, UNITYDRV_TYPE_WORD, 0, 1, 3}}, 1);  // bit 2 of a word: kept, not sent
  server->stop();
  read({{0, UNITYDRV_TYPE_INT}});
  expect_lines({
      // The device, the tags of the request refused, and what was refused.
      "error-reply status=0xFD (refused) code=0x07 function=0x22 (read variables) step=",
      " address=" + server->address() + " read=After requests=1",
      "failure-report results=1 status=2 code=10 address=" + server->address() +
          " read=After requests=1",
      "bit-write tag=1 bit=2 value=1 kept in the driver's memory, not sent",
  });
  const std::string text = slurp(trace_path_);
  const std::size_t refused = text.find("error-reply");
  ASSERT_NE(refused, std::string::npos);
  EXPECT_NE(text.substr(refused, text.find('\n', refused) - refused)
                .find(" address=" + server->address() + " read=After requests=1"),
            std::string::npos)
      << text;
  // The controller gone: the next send fails, or its reply never comes.
  EXPECT_TRUE(text.find("no-reply closed=1") != std::string::npos ||
              text.find("send-failed bytes=") != std::string::npos)
      << text;
  d->session.stop();
  plc_address = "127.0.0.253";  // outside the addresses the simulators take
  uint32_t code = 0;
  init_handshake::get_init_cmd(*d, &code);
  device_context missing;  // a tag file that is not there leaves the table empty
  missing.tag_table.Read("/nonexistent-dir/plant.tags", 0);
  void* handle = &missing;
  trace_events::started(&handle, "/nonexistent-dir/plant.tags", 0);
  expect_lines({"connect address=127.0.0.253:502", "result=failed error=\"",
                "error=\"No such file or directory\" (the result is 0"});
}

// Regression: an empty table made the trace open the tag file once more to name the reason;
// on a named pipe that waits for a writer that never comes.
TEST_F(TraceEvents, AnEmptyTableOfANamedPipeIsNotOpenedAgain) {
  const std::string fifo = temp_path("fifo");
  std::remove(fifo.c_str());
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::thread writer([&] {  // one writer that sends nothing
    const int fd = ::open(fifo.c_str(), O_WRONLY);
    if (fd >= 0) ::close(fd);
  });
  device_context d;
  d.tag_table.Read(fifo.c_str(), 0);
  writer.join();
  // A reader opening the pipe now can only be a second open: a writer that finds one
  // unblocks it and says so. Bounded by the started call's return.
  std::atomic<bool> done{false}, reopened{false};
  std::thread watch([&] {
    while (!done) {
      const int fd = ::open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
      if (fd >= 0) {
        reopened = true;
        ::close(fd);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  void* handle = &d;
  trace_events::started(&handle, fifo.c_str(), 0);
  done = true;
  watch.join();
  std::remove(fifo.c_str());
  EXPECT_FALSE(reopened);
  expect_lines({"tags=0 wide_names=0 offline=0\n"});  // opened and empty: no error to name
}

// Each target: whether the trace comes on, and what standard error shows of it.
TEST(TraceTarget, StandardErrorSyslogOrAFileThatCanBeOpened) {
  const struct {
    const char* target;
    bool on;
    const char* on_stderr;
  } cases[] = {
      {"stderr", true, "unitydrv loaded version="},
      {"syslog", true, ""},
      {"/nonexistent-dir/trace.log", false,
       "cannot open the trace file /nonexistent-dir/trace.log: No such file or directory"},
      {"", false, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.target);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(trace::configure(c.target, true), c.on);
    if (trace::on) trace::emit("test", "target=%s", c.target);
    const std::string said = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(trace::on, c.on);
    EXPECT_EQ(trace::wire, c.on);
    EXPECT_NE(said.find(c.on_stderr), std::string::npos) << said;
    trace::configure(nullptr, false);
  }
}

// Runs a host program (LIBRARY ADDRESS TAGFILE TAGLIST) against a fresh simulator, with
// UNITYDRV_TRACE set to trace; what it prints. Bounded to a minute.
std::string run_host(const char* program, const std::string& trace) {
  plcsim::server server(plcsim::load_project_file(plant::source_dir + "/examples/plant.json"));
  const std::string tags = temp_path("dump.tags");
  std::vector<tag_file::record> records;
  for (const auto& n : plant::tag_names()) records.push_back({n});
  EXPECT_TRUE(tag_file::write(tags, records, false, 0));
  EXPECT_TRUE(server.start_on_free_loopback());
  int out[2];
  EXPECT_EQ(::pipe(out), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(out[1], 1);
    ::close(out[0]);
    ::setenv("UNITYDRV_TRACE", trace.c_str(), 1);
    ::setenv("UNITYDRV_TRACE_WIRE", "1", 1);
    const std::string list = plant::source_dir + "/examples/plant_tags.txt";
    ::execl(program, program, UNITYDRV_LIBRARY_PATH, server.address().c_str(), tags.c_str(),
            list.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(out[1]);
  std::string printed;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  char buffer[65536];
  for (pollfd p{out[0], POLLIN, 0}; std::chrono::steady_clock::now() < deadline;) {
    if (::poll(&p, 1, 1000) <= 0) continue;
    const ssize_t n = ::read(out[0], buffer, sizeof buffer);
    if (n <= 0) break;
    printed.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(out[0]);
  ::kill(child, SIGKILL);  // only if still running past the deadline
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  server.stop();
  std::remove(tags.c_str());
  return printed;
}

// The C host of examples/ behind its C++ shim, reading a tag number past its table.
TEST(TraceOffOrOn, AnExceptionLeavingOutputFilterExIsTracedAndReachesTheHostUnchanged) {
  const std::string trace_file = temp_path("guarded.log");
  std::remove(trace_file.c_str());
  const std::string printed = run_host(UNITYDRV_GUARDED_HOST, trace_file);
  const std::string trace = slurp(trace_file);
  std::remove(trace_file.c_str());
  if (guarded_run::on()) {
    // Guarded: the position is refused, nothing is raised, and the host goes on.
    EXPECT_EQ(printed.find("the driver raised"), std::string::npos) << printed;
    EXPECT_NE(printed.find("Counter after the reconnect: -42\nok"), std::string::npos) << printed;
    EXPECT_NE(trace.find("guarded request=0 tag=1000 name= refused reason=\"no such tag"),
              std::string::npos)
        << trace;
    return;
  }
  EXPECT_NE(printed.find("the driver raised \"vector::_M_range_check"), std::string::npos)
      << printed;
  for (const char* line :
       {"tag-past-table request=0 tag=1000 tags=25", "short-reply request=0 type=195",
        "exception entry=OutputFilterEx type=std::out_of_range "
        "what=\"vector::_M_range_check",
        "timeout connection closed by the host"}) {
    EXPECT_NE(trace.find(line), std::string::npos) << line << "\nin:\n" << trace;
  }
}

}  // namespace
#endif
