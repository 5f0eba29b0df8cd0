// chaossoak: the chaos soak of the loaded driver. Four devices on two simulated
// controllers behind fault-injecting proxies, under a random fault schedule drawn from the
// seed; every value delivered is checked against the controller's value history. The mode
// is the library's: UNITYDRV_GUARD=1 in the environment makes the run a guarded one.
#include <csignal>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "tools/chaos/chaos_run.h"

namespace {

const char* const usage =
    "usage: chaossoak [--minutes M] [--seed S] [--lib PATH] [--source DIR] [--fault-seconds N]\n"
    "                 [--quiet-seconds N] [--probability P] [--corpus DIR]\n"
    "                 [--timing-slack-ms MS]\n";

bool parse(int argc, char** argv, chaos::run_options& o) {
  const std::map<std::string, std::function<void(const std::string&)>> options = {
      {"--minutes", [&](const std::string& v) { o.minutes = std::stod(v); }},
      {"--seed", [&](const std::string& v) { o.seed = std::stoull(v); }},
      {"--lib", [&](const std::string& v) { o.library = v; }},
      {"--source", [&](const std::string& v) { o.source_dir = v; }},
      {"--fault-seconds", [&](const std::string& v) { o.fault_seconds = std::stoi(v); }},
      {"--quiet-seconds", [&](const std::string& v) { o.quiet_seconds = std::stoi(v); }},
      {"--probability", [&](const std::string& v) { o.reply_fault_probability = std::stod(v); }},
      {"--corpus", [&](const std::string& v) { o.corpus_dir = v; }},
      {"--timing-slack-ms", [&](const std::string& v) { o.timing_slack_ms = std::stod(v); }},
  };
  for (int i = 1; i + 1 < argc; i += 2) {
    const auto option = options.find(argv[i]);
    if (option == options.end()) return false;
    option->second(argv[i + 1]);
  }
  return argc % 2 == 1;
}

}  // namespace

int main(int argc, char** argv) {
  chaos::run_options o;
  o.library = UNITYDRV_LIBRARY_PATH;
  o.source_dir = UNITYDRV_SOURCE_DIR;
  try {
    if (!parse(argc, argv, o)) {
      std::cerr << usage;
      return 2;
    }
    std::signal(SIGPIPE, SIG_IGN);
    const chaos::tally t = chaos::run(o);
    return chaos::report(t, o, std::cout) ? 0 : 1;
  } catch (const std::exception& e) {
    std::cerr << "chaossoak: " << e.what() << '\n';
    return 2;
  }
}
