// Runs the panelhost program against a simulator of the example plant and checks what a
// commissioning engineer sees: the message and the exit status. A cross build starts
// panelhost through the emulator and serves the plant from the native simulator helper.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <thread>

#include "support/plant_device.h"
#include "unitydrv/version.h"

namespace {

const std::string k_lib = UNITYDRV_LIBRARY_PATH;
const std::string k_plant = std::string(UNITYDRV_SOURCE_DIR) + "/examples/plant.json";
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
  const char* args;  // $D: the test's directory, $P: --plc and the simulator's address
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
    {"read --plc plc1.local Counter", 1, "'plc1.local' is not an IPv4 address"},
    {"read --plc 10.0.0.1.5 Counter", 1, "'10.0.0.1.5' is not an IPv4 address"},
    {"read --plc 127.0.0.42:5020 Counter", 1, "the port is fixed at 502"},
    {"read $P --tags $D/list.txt", 1, "list.txt is not a tag file"},
    {"tags list $D/list.txt", 1, "(it is text: pass a tag list with --list)"},
    {"read $P --list $D/list.tags", 1, "is not a text tag list: it holds binary data"},
    {"tags list $D/garbage.bin", 1, "is not a tag file"},
    {"tags list $D/missing.tags", 1, "cannot read tag file $D/missing.tags: No such file"},
    {"read --offline --list $D/list.txt Levels", 1, "a tag file carries no types"},
    {"read --offline $D/../nothing.json Counter", 1, "cannot open"},
    {"read --offline Counter:INT", 0, "Counter  INT   0"},
    {"read --offline " UNITYDRV_SOURCE_DIR "/examples/plant.json --list $D/list.txt", 0,
     "Levels   INT[10]  [0, 0, 0, 0, 0, 0, 0, 0, 0, 0]"},
    {"tags check $D/list.tags $P", 0, "2 tags: 2 resolve, 0 do not"},
    {"tags check $D/mistakes.tags $P", 1, "8 tags: 1 resolve, 7 do not"},
    {"tags check $D/mistakes.tags $P --json", 1, "\"reason\": \"malformed subscript\""},
    {"tags check $D/wide.tags $P", 1, "looks for \"C\": build the tag file without --wide"},
    {"read $P --tags $D/wide.tags Counter", 1, "looks for \"C\""},
    {"browse $P --json", 0, "\"name\": \"ARRAY[0..9] OF INT\""},
    {"read $P --json Motor1", 1, "\"reason\": \"structure: name a member\""},
    // A field engineer could not tell which driver release panelhost loaded.
    {"--version", 0,
     "panelhost " UNITYDRV_VERSION "\nlibunitydrv " UNITYDRV_VERSION " (" UNITYDRV_LIBRARY_PATH
     ")"},
};

TEST_F(PanelhostCli, MistakesGetTheirMessageAndStatus) {
  for (const cli_case& c : k_cases) {
    const run_result r = run(with_dir(c.args));
    EXPECT_EQ(r.status, c.status) << c.args << '\n' << r.output;
    EXPECT_NE(r.output.find(with_dir(c.output_part)), std::string::npos) << c.args << '\n'
                                                                         << r.output;
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
  EXPECT_NE(output.find("read failed; reconnecting (Timeout, GetInitCmdEx2)"), std::string::npos)
      << output;
  const auto reconnected = output.find("reconnected to " + address);
  ASSERT_NE(reconnected, std::string::npos) << output;
  EXPECT_NE(output.find("Counter=-42", reconnected), std::string::npos) << output;
}

}  // namespace
