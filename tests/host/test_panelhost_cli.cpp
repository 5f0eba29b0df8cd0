// Runs the panelhost program against a simulator of the example plant and checks what a
// commissioning engineer sees: the message and the exit status. A cross build starts
// panelhost through the emulator and serves the plant from the native simulator helper.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <thread>

#include "support/plant_device.h"
#include "tools/plcsim/project_layout.h"
#include "unitydrv/version.h"

namespace {

const std::string k_lib = UNITYDRV_LIBRARY_PATH;
const std::string k_plant = std::string(UNITYDRV_SOURCE_DIR) + "/examples/plant.json";
// Arrays that start at 1, as integrators declare them.
const std::string k_commissioning =
    std::string(UNITYDRV_SOURCE_DIR) + "/tests/host/commissioning.json";
#if defined(UNITYDRV_EMULATOR)
// Each emulated start translates the whole program again: allow it more time.
const std::string k_host = "timeout 60 " UNITYDRV_EMULATOR " " + k_lib.substr(0, k_lib.rfind('/')) +
                           "/tools/host/panelhost";
#else
const std::string k_host =
    "timeout 30 " + k_lib.substr(0, k_lib.rfind('/')) + "/tools/host/panelhost";
#endif

struct run_result {
  int status = -1;
  std::string output;  // stdout and stderr
};

// Every run is bounded by timeout(1), so a hung connection fails the test instead of
// stalling it.
FILE* start(const std::string& args) {
  return popen((k_host + " " + args + " 2>&1").c_str(), "r");
}

run_result run(const std::string& args) {
  run_result r;
  FILE* p = start(args);
  if (p == nullptr) return r;
  std::array<char, 4096> buf;
  while (std::fgets(buf.data(), buf.size(), p)) r.output += buf.data();
  const int status = pclose(p);
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return r;
}

class PanelhostCli : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    sim = plant::make_server().release();
    ASSERT_TRUE(sim->start_on_free_loopback());
    plc = " --plc " + sim->address() + " ";
    char pattern[] = "/tmp/panelhost-cli-XXXXXX";
    dir = mkdtemp(pattern);
    write(dir + "/list.txt", "Counter:INT\nLevels\n");
    write(dir + "/garbage.bin", std::string("\x13\x99\xfe\x01garbage\xff\x00\x07zz", 16));
    write(dir + "/noblock.json", R"({"variables": [{"name": "Counter", "type": 4, "offset": 2}]})");
    write(dir + "/unreadable.txt", "Levels\nPumps[x].Speed\nLabel\n");
    ASSERT_EQ(run("tags build " + dir + "/unreadable.txt " + dir + "/unreadable.tags").status, 0);
    write(dir + "/mistakes.txt",
          "Levels[3]\nTmperature\nLine[1].Sped\nLevels[10]\nTemperature[3]\nLevels[x]\n"
          "Motor1.Speed.X\nMotor1\n");
    ASSERT_EQ(run("tags build " + dir + "/list.txt " + dir + "/list.tags").status, 0);
    ASSERT_EQ(run("tags build " + dir + "/mistakes.txt " + dir + "/mistakes.tags").status, 0);
    ASSERT_EQ(run("tags build --wide " + dir + "/list.txt " + dir + "/wide.tags").status, 0);
    ready = true;
  }
  void SetUp() override { ASSERT_TRUE(ready) << "no simulator or no runnable " << k_host; }
  static void TearDownTestSuite() {
    delete sim;
    sim = nullptr;
    if (!dir.empty()) std::system(("rm -rf " + dir).c_str());
  }
  static void write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }
  static std::string with_dir(std::string args) {
    for (auto at = args.find("$D"); at != std::string::npos; at = args.find("$D")) {
      args.replace(at, 2, dir);
    }
    for (auto at = args.find("$P"); at != std::string::npos; at = args.find("$P")) {
      args.replace(at, 2, plc);
    }
    for (auto at = args.find("$C"); at != std::string::npos; at = args.find("$C")) {
      args.replace(at, 2, k_commissioning);
    }
    return args;
  }

  static bool ready;
  static plant::sim_server* sim;
  static std::string plc;
  static std::string dir;
};

bool PanelhostCli::ready = false;
plant::sim_server* PanelhostCli::sim = nullptr;
std::string PanelhostCli::plc;
std::string PanelhostCli::dir;

struct cli_case {
  // $D: the test's directory, $P: --plc and the simulator's address, $C: the project of
  // arrays that start at 1
  const char* args;
  int status;
  const char* output_part;
};

// Each row was a mistake the tools let through: wrong data read or written, a leaked
// exception text, garbage printed with exit 0, or an unhelpful message.
const cli_case k_cases[] = {
    {"read $P Levels[10]", 1,
     "subscript 10 outside the bounds of Levels (ARRAY[0..9] OF INT: 0..9)"},
    {"read $P Levels[-1]", 1, "subscript -1 outside the bounds"},
    {"read $P Temperature[3]", 1, "subscript on Temperature, which is REAL, not an array"},
    {"read $P Motor1.Speed.X", 1, "Motor1.Speed is REAL, which has no member 'X'"},
    {"read $P Motor1", 1, "structure (MOTOR): name a member, e.g. Motor1.Speed"},
    {"read $P Tmperature Counter", 1, "did you mean 'Temperature'?"},
    {"read $P Tmperature Counter", 1, "Counter  INT   -42"},
    {"read $P Levels --index 10", 1, "--index 10 outside the bounds 0..9"},
    {"read $P Levels --index 9 --count 2", 1, "--count 2 runs past the last of its 10 elements"},
    {"read $P Levels --index 8", 0, "[90, 100]"},
    {"write $P Levels[10]=0", 1, "nothing written: 1 tag(s) refused"},
    {"write $P Levels=7", 1, "the array holds 10 elements: give all of them"},
    {"write $P Counter=70000", 1, "bad value '70000' for INT (accepted: -32768..32767)"},
    {"write $P Ready=yes", 1, "(accepted: 1, 0, TRUE, FALSE, ON, OFF, in any case)"},
    // Addresses: dotted decimal IPv4 only, a usage error otherwise.
    {"read --plc plc1.local Counter", 2,
     "'plc1.local' is not an IPv4 address: an IPv4 address is needed"},
    {"read --plc ::1 Counter", 2, "'::1' is an IPv6 address: an IPv4 address is needed"},
    {"read --plc 10.0.0.1.5 Counter", 2, "'10.0.0.1.5' is not an IPv4 address"},
    {"read --plc 127.0.0.42:5020 Counter", 2,
     "the port is fixed at 502; give the address alone "
     "(127.0.0.42)"},
    {"read --plc :502 Counter", 2, "':502': an IPv4 address is needed before the port"},
    {"read --plc 127.000.000.042 Counter", 2,
     "leading zeros are refused (the C library reads them as octal and reaches 127.0.0.34); "
     "write 127.0.0.42"},
    // The parser's own errors are usage errors too.
    {"read $P --bogus Counter", 2, "--bogus"},
    {"read $P --index 99999 Levels", 2, "--index"},
    {"--help", 0, "Exit status: 0 success; 1 a failure at run time"},
    // Options are limited to what the tag holds.
    {"read $P --type Levels=UINT Levels Counter", 0, "Counter  INT "},
    {"read $P --bit 16 Counter", 1, "--bit 16 is past the 16 bits of INT (0..15)"},
    {"read $P --bit 0 Ready", 1, "--bit needs a value with bits"},
    {"read $P --count 2 Temperature", 1, "--count 2 runs past a single REAL"},
    {"read $P --count 17 Name", 1, "--count 17 runs past the 16 characters of its STRING[16]"},
    {"write $P --bit 3 Alarms=1", 1,
     "bit 3 inside a WORD is kept in the driver's memory only: the driver sends nothing to the "
     "controller; add --memory-bit"},
    {"write $P --bit 3 --memory-bit Alarms=1", 0, "bit 3 kept in the driver's memory"},
    {"write $P Name=PLANT-A", 0,
     "Name: writes \"PLANT-A\" (7 of 16 characters, then a terminating"},
    {"write $P Name=ABCDEFGHIJKLMNOPQ", 1, "is longer than 16 characters"},
    // Where a raw library text used to come through.
    {"read --offline $C .x Levels", 1, "tag '.x': empty name part in '.x'"},
    {"read --offline $C --tags $D Levels", 1, "cannot read tag file $D: it is a directory"},
    {"tags build $D $D/x.tags", 1, "cannot read tag list $D: it is a directory"},
    {"tags build $D/list.txt $D/none/x.tags", 1,
     "cannot write tag file $D/none/x.tags: No such file or directory"},
    {"tags export $P $D/none/x.txt", 1, "cannot write tag list $D/none/x.txt: No such file"},
    {"read --offline $D/noblock.json Counter", 1, "variable 'Counter': key 'block' not found"},
    {"tags check $D/unreadable.tags --offline $C", 1,
     "the driver stopped resolving the tag file at tag 1 ('Pumps[x].Speed')"},
    // JSON a script can use: typed values, in the order given.
    {"write $P --json Temperature=21.5 Counter=-42", 0,
     "\"name\": \"Counter\",\n   \"ok\": true,\n   \"type\": \"INT\",\n   \"value\": -42"},
    {"watch $P --json --rounds 1 Running Counter", 0,
     "\"tags\":[{\"name\":\"Running\",\"ok\":true,\"type\":\"BOOL\",\"value\":true},"
     "{\"name\":\"Counter\""},
    {"read $P --json Nope Counter", 1, "[\n  {\n   \"message\": \"unknown variable 'Nope'"},
    {"read $P --tags $D/list.txt", 1, "list.txt is not a tag file"},
    {"tags list $D/list.txt", 1, "(it is text: pass a tag list with --list)"},
    {"read $P --list $D/list.tags", 1, "is not a text tag list: it holds binary data"},
    {"tags list $D/garbage.bin", 1, "is not a tag file"},
    {"tags list $D/missing.tags", 1, "cannot read tag file $D/missing.tags: No such file"},
    {"read --offline --list $D/list.txt Levels", 1, "a tag file carries no types"},
    {"read --offline $D/../nothing.json Counter", 1, "cannot open"},
    {"read --offline Counter:INT", 0, "Counter  INT   0"},
    {"read --offline " UNITYDRV_SOURCE_DIR "/examples/plant.json --list $D/list.txt", 0,
     "Levels   INT[10]  [10, 20, 30, 40, 50, 60, 70, 80, 90, 100]"},
    {"browse --offline $C", 0, "type details: 2 structures, 2 arrays of structures"},
    {"tags check $D/list.tags $P", 0, "2 tags: 2 resolve, 0 do not"},
    {"tags check $D/mistakes.tags $P", 1, "8 tags: 1 resolve, 7 do not"},
    {"tags check $D/mistakes.tags $P --json", 1, "\"reason\": \"malformed subscript\""},
    {"tags check $D/wide.tags $P", 1, "looks for \"C\": build the tag file without --wide"},
    {"read $P --tags $D/wide.tags Counter", 1, "looks for \"C\""},
    {"browse $P --json", 0, "\"name\": \"ARRAY[0..9] OF INT\""},
    {"read $P --json Motor1", 1, "\"reason\": \"structure: name a member\""},
    // The driver counts structure-array subscripts from 0 whatever the declared low bound.
    {"read --offline $C Pumps[3].Speed", 1,
     "Pumps[3].Speed lies past Pumps (ARRAY[1..3] OF PUMP): the driver counts structure-array "
     "subscripts from 0; the element declared as Pumps[3] is Pumps[2].Speed"},
    {"write --offline $C Line.Spare[2].Mode=1", 1,
     "the element declared as Line.Spare[2] is Line.Spare[1].Mode"},
    {"read --offline $C Pumps[-1].Speed", 1, "Pumps[-1].Speed lies before Pumps"},
    {"read --offline $C Pumps[1].Speed", 0,
     "note: tag 'Pumps[1].Speed': the driver counts structure-array subscripts from 0: "
     "Pumps[1].Speed is the element declared as Pumps[2].Speed"},
    {"read $P Line[4].Speed", 1,
     "Line[4].Speed lies past Line (ARRAY[0..3] OF MOTOR): Line takes subscripts 0..3"},
    {"tags check $D/mistakes.tags $P", 1,
     "Levels[3]: the driver addresses all of Levels; the host selects element 3"},
    // A field engineer could not tell which driver release panelhost loaded.
    {"--version", 0,
     "panelhost " UNITYDRV_VERSION "\nlibunitydrv " UNITYDRV_VERSION " (" UNITYDRV_LIBRARY_PATH
     ")"},
};

// Texts of the standard library and the JSON parser that an integrator cannot act on.
const char* const k_raw_texts[] = {
    "_M_range_check", "basic_string",     "json.exception", "bad lexical cast",
    "std::",          "terminate called", "what()"};

TEST_F(PanelhostCli, MistakesGetTheirMessageAndStatus) {
  for (const cli_case& c : k_cases) {
    const run_result r = run(with_dir(c.args));
    EXPECT_EQ(r.status, c.status) << c.args << '\n' << r.output;
    EXPECT_NE(r.output.find(with_dir(c.output_part)), std::string::npos) << c.args << '\n'
                                                                         << r.output;
    for (const char* raw : k_raw_texts) {
      EXPECT_EQ(r.output.find(raw), std::string::npos) << c.args << '\n' << r.output;
    }
  }
}

// An out-of-bounds write used to overwrite the STRING after the array.
TEST_F(PanelhostCli, RefusedWriteLeavesTheNeighbourAlone) {
  const std::vector<uint8_t> name_before = sim->read_memory(1, 160, 16);
  EXPECT_EQ(run("write" + plc + "Levels[10]=0 Name=X").status, 1);
  EXPECT_EQ(sim->read_memory(1, 160, 16), name_before);
}

TEST_F(PanelhostCli, ListFormWritesTheWholeArray) {
  const run_result r = run("write" + plc + "'Levels=[1, 2, 3, 4, 5, 6, 7, 8, 9, 10]'");
  EXPECT_EQ(r.status, 0) << r.output;
  EXPECT_EQ(sim->read_memory(1, 158, 2), (std::vector<uint8_t>{10, 0}));
}

TEST_F(PanelhostCli, CheckGivesEachMistakeItsReason) {
  const std::string out = run("tags check " + dir + "/mistakes.tags" + plc).output;
  for (const char* reason :
       {"Levels[3]  1      140         3        INT", "unknown variable 'Tmperature'",
        "unknown member 'Sped' of Line[1] (MOTOR)", "subscript 10 outside the bounds",
        "subscript on Temperature", "malformed subscript in 'Levels[x]'", "which has no member 'X'",
        "name a member"}) {
    EXPECT_NE(out.find(reason), std::string::npos) << reason << '\n' << out;
  }
}

// tags check --guard: the tag behind a name the driver cannot read resolves in guarded
// mode, and the refusals say so.
TEST_F(PanelhostCli, GuardReportsWhatGuardedModeRefuses) {
  const std::string args = "tags check " + dir + "/unreadable.tags --offline " + k_commissioning;
  const run_result plain = run(args + " --json");
  const run_result guarded = run(args + " --json --guard");
  EXPECT_EQ(guarded.status, 1);
  const auto reason_of = [](const std::string& output, std::size_t i) {
    const std::size_t from = output.find('{');
    const auto doc = nlohmann::json::parse(output.substr(from, output.rfind('}') + 1 - from));
    return doc["tags"][i].value("reason", std::string("resolved"));
  };
  EXPECT_EQ(reason_of(plain.output, 2), "not resolved") << plain.output;
  EXPECT_EQ(reason_of(guarded.output, 2), "resolved") << guarded.output;
  EXPECT_NE(guarded.output.find("guarded mode refuses it: malformed name"), std::string::npos)
      << guarded.output;
}

// read --guard loads the library in guarded mode, as its trace says.
TEST_F(PanelhostCli, GuardLoadsTheLibraryInGuardedMode) {
  for (const bool guard : {false, true}) {
    FILE* p = popen(("env -u UNITYDRV_GUARD UNITYDRV_TRACE=stderr " + k_host + " read" + plc +
                     "Counter" + (guard ? " --guard" : "") + " 2>&1")
                        .c_str(),
                    "r");
    ASSERT_NE(p, nullptr);
    std::string output;
    std::array<char, 4096> buf;
    while (std::fgets(buf.data(), buf.size(), p)) output += buf.data();
    EXPECT_EQ(pclose(p), 0) << output;
    EXPECT_EQ(output.find("guarded mode=on") != std::string::npos, guard) << output;
    EXPECT_NE(output.find("-42"), std::string::npos) << output;
  }
}

// Exporting, building a tag file from the export and checking it must resolve every tag.
TEST_F(PanelhostCli, ExportBuildCheckRoundTrips) {
  for (const std::string& source : {plc, " --offline " + k_plant + " "}) {
    ASSERT_EQ(run("tags export --elements" + source + dir + "/all.txt").status, 0) << source;
    ASSERT_EQ(run("tags build " + dir + "/all.txt " + dir + "/all.tags").status, 0);
    const run_result r = run("tags check " + dir + "/all.tags" + source);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_NE(r.output.find("78 tags: 78 resolve, 0 do not"), std::string::npos) << r.output;
  }
}

// Over a project whose arrays start at 1, every exported tag resolves to the element the
// export meant: the driver's block and byte (plus the host's element index) equal the
// simulator's own layout of the declared name.
TEST_F(PanelhostCli, ExportedElementsOfLowBoundArraysResolveWhereDeclared) {
  const std::string project = std::string(UNITYDRV_SOURCE_DIR) + "/tests/host/commissioning.json";
  ASSERT_EQ(run("tags export --elements --offline " + project + " " + dir + "/low.txt").status, 0);
  ASSERT_EQ(run("tags build " + dir + "/low.txt " + dir + "/low.tags").status, 0);
  const run_result check = run("tags check --json " + dir + "/low.tags --offline " + project);
  ASSERT_EQ(check.status, 0) << check.output;
  // "# Pumps[0] is the element declared as Pumps[1] (...)": driver prefix -> declared one.
  std::map<std::string, std::string> declared_prefix;
  std::ifstream list(dir + "/low.txt");
  for (std::string line; std::getline(list, line);) {
    const auto is = line.find(" is the element declared as ");
    if (line.rfind("# ", 0) != 0 || is == std::string::npos) continue;
    const auto from = is + std::strlen(" is the element declared as ");
    declared_prefix[line.substr(2, is - 2)] = line.substr(from, line.find(" (") - from);
  }
  EXPECT_EQ(declared_prefix["Pumps[2]"], "Pumps[3]");
  EXPECT_EQ(declared_prefix["Line.Spare[0]"], "Line.Spare[1]");
  const plcsim::project p = plcsim::load_project_file(project);
  const std::size_t begin = check.output.find("{\n"), end = check.output.rfind("\n}") + 2;
  const auto doc = nlohmann::json::parse(check.output.substr(begin, end - begin));
  std::size_t checked = 0;
  for (const auto& tag : doc.at("tags")) {
    const std::string exported = tag.at("name").get<std::string>();
    std::string name = exported;
    for (const auto& [driver, declared] : declared_prefix) {
      if (exported.rfind(driver + ".", 0) == 0) name = declared + exported.substr(driver.size());
    }
    uint16_t block = 0, type = 0;
    uint32_t offset = 0;
    ASSERT_TRUE(plcsim::resolve_location(p, name, block, offset, type)) << name;
    const uint64_t element = tag.value("element", 0u);
    EXPECT_EQ(tag.at("block").get<uint16_t>(), block) << name;
    EXPECT_EQ(tag.at("offset").get<uint64_t>() + element * plcsim::type_size(p, type), offset)
        << exported << " meant as " << name;
    ++checked;
  }
  EXPECT_EQ(checked, 45u);
}

// A program download into the simulator (it drops the connections, as a controller does).
bool load_program(plant::sim_server& sim, const std::string& file) {
  const std::string path = std::string(UNITYDRV_SOURCE_DIR) + "/" + file;
#if defined(UNITYDRV_REMOTE_SIM)
  return sim.load_program_file(path);
#else
  sim.load_program(plcsim::load_project_file(path));
  return true;
#endif
}

// Runs watch until `seen` appears, then downloads `changed` into sim; the whole output.
std::string watch_across_download(plant::sim_server& sim, const std::string& tags,
                                  const std::string& seen, int& status) {
  FILE* p = start("watch --plain --rounds 40 --interval 100 --plc " + sim.address() + " " + tags);
  if (p == nullptr) return "";
  std::string output;
  std::array<char, 4096> buf;
  bool loaded = false;
  while (std::fgets(buf.data(), buf.size(), p)) {
    output += buf.data();
    if (!loaded && output.find(seen) != std::string::npos) {
      loaded = load_program(sim, "tests/host/commissioning_changed.json");
    }
  }
  const int raw = pclose(p);
  status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  return loaded ? output : "no program download\n" + output;
}

// watch went on showing a variable that the controller's new program no longer had.
TEST_F(PanelhostCli, WatchFollowsAProgramChange) {
  const auto program = plant::make_server("tests/host/commissioning.json");
  ASSERT_TRUE(program->start_on_free_loopback());
  int status = -1;
  std::string out = watch_across_download(*program, "Level", "Level=42", status);
  EXPECT_EQ(status, 0) << out;
  EXPECT_NE(out.find("controller program changed: Temps removed; Level moved 2:0x0200 -> "
                     "2:0x0300"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("Level=43", out.find("program changed")), std::string::npos) << out;

  ASSERT_TRUE(load_program(*program, "tests/host/commissioning.json"));
  out = watch_across_download(*program, "Level Temps", "Level=42", status);
  EXPECT_EQ(status, 1) << out;
  EXPECT_NE(out.find("in the new program, tag 'Temps': unknown variable 'Temps'"),
            std::string::npos)
      << out;
  EXPECT_NE(out.find("stopping the watch"), std::string::npos) << out;
  EXPECT_LT(std::count(out.begin(), out.end(), '\n'), 40) << out;
}

// watch showed "(read failed)" for ever after the controller restarted.
TEST_F(PanelhostCli, WatchReconnectsAfterTheControllerRestarts) {
  FILE* p = start("watch --plain --rounds 12 --interval 150" + plc + "Counter");
  ASSERT_NE(p, nullptr);
  const std::string address = sim->address();
  std::string output;
  std::array<char, 4096> buf;
  bool stopped = false, restarted = false;
  while (std::fgets(buf.data(), buf.size(), p)) {
    const std::string line = buf.data();
    output += line;
    if (!stopped && line.find("Counter=-42") != std::string::npos) {
      sim->stop();
      stopped = true;
    } else if (stopped && !restarted && line.find("read failed") != std::string::npos) {
      restarted = sim->start(address, 502);
    }
  }
  pclose(p);
  EXPECT_TRUE(restarted) << output;
  EXPECT_NE(
      output.find("read failed; reconnecting (CloseDevice, StartDeviceEx, InitEx, GetInitCmdEx2)"),
      std::string::npos)
      << output;
  const auto reconnected = output.find("reconnected to " + address);
  ASSERT_NE(reconnected, std::string::npos) << output;
  EXPECT_NE(output.find("Counter=-42", reconnected), std::string::npos) << output;
}

}  // namespace
