// Runs the plcsim program with a new user's mistakes and checks the message and the exit
// status: 2 for a usage error, as panelhost gives.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

struct cli_row {
  const char* args;
  int status;
  const char* output_part;
};

// Each row was a message that said nothing useful, or a mistake plcsim let through.
const cli_row k_rows[] = {
    {"--project $PLANT --listen 127.0.0.045:502", 2,
     "--listen '127.0.0.045:502': leading zeros are refused"},
    {"--project $PLANT --listen :abc", 2,
     "--listen ':abc': the port 'abc' is not a number from 0 to 65535"},
    {"--project $PLANT --listen 127.0.0.1:99999", 2,
     "the port '99999' is not a number from 0 to 65535"},
    {"--project $PLANT --listen 127.0.0.1.7", 2, "'127.0.0.1.7' is not a dotted IPv4 address"},
    {"--project $PLANT --listen :502", 2, "--listen ':502': an IPv4 address is needed"},
    {"--project $PLANT --bogus", 2, "--bogus"},
    {"--listen 127.0.0.1:502", 2, "--project FILE is required"},
    {"--generate 5 2", 2, "--generate needs --out FILE"},
    {"--project $BROKEN --listen 127.0.0.1:0", 1,
     "broken.json: plcsim project: not valid JSON at line 2, column 16: unexpected \"type\""},
    {"--project $CUT --listen 127.0.0.1:0", 1, "not valid JSON at line 2, column 1: the text ends"},
};

// Texts of the C++ library and of the JSON parser.
const char* const k_raw_texts[] = {"stoul", "json.exception", "parse_error", "Success", "what()"};

std::string replaced(std::string text, const std::string& key, const std::string& value) {
  for (auto at = text.find(key); at != std::string::npos; at = text.find(key)) {
    text.replace(at, key.size(), value);
  }
  return text;
}

TEST(PlcsimCli, MistakesGetTheirMessageAndStatus) {
  char pattern[] = "/tmp/plcsim-cli-XXXXXX";
  const std::string dir = mkdtemp(pattern);
  std::ofstream(dir + "/broken.json") << "{\"variables\": [\n  {\"name\": \"A\" \"type\": 4}]}\n";
  std::ofstream(dir + "/cut.json") << "{\"variables\": [\n";
  for (const cli_row& row : k_rows) {
    std::string args = replaced(row.args, "$PLANT", UNITYDRV_SOURCE_DIR "/examples/plant.json");
    args = replaced(replaced(args, "$BROKEN", dir + "/broken.json"), "$CUT", dir + "/cut.json");
    // Bounded: a row that listened by mistake ends here instead of hanging the test.
    FILE* p = popen(("timeout 10 " PLCSIM_PROGRAM " " + args + " 2>&1").c_str(), "r");
    ASSERT_NE(p, nullptr);
    std::string output;
    std::array<char, 512> buf;
    while (std::fgets(buf.data(), buf.size(), p)) output += buf.data();
    const int status = pclose(p);
    EXPECT_EQ(WIFEXITED(status) ? WEXITSTATUS(status) : -1, row.status) << args << '\n' << output;
    EXPECT_NE(output.find(row.output_part), std::string::npos) << args << '\n' << output;
    for (const char* raw : k_raw_texts) {
      EXPECT_EQ(output.find(raw), std::string::npos) << args << '\n' << output;
    }
  }
  std::system(("rm -rf " + dir).c_str());
}

}  // namespace
