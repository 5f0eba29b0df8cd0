// chaossoak: the chaos soak of the loaded driver. Four devices on two simulated
// controllers behind fault-injecting proxies, under a random fault schedule drawn from the
// seed; every value delivered is checked against the controller's value history. The mode
// is the library's: UNITYDRV_GUARD=1 in the environment makes the run a guarded one.
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>

#include "tools/chaos/chaos_run.h"

namespace {

const char* const usage =
    "usage: chaossoak [--minutes M] [--seed S] [--lib PATH] [--source DIR] [--fault-seconds N]\n"
    "                 [--quiet-seconds N] [--probability P]\n";

bool parse(int argc, char** argv, chaos::run_options& o) {
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string flag = argv[i], value = argv[i + 1];
    if (flag == "--minutes")
      o.minutes = std::stod(value);
    else if (flag == "--seed")
      o.seed = std::stoull(value);
    else if (flag == "--lib")
      o.library = value;
    else if (flag == "--source")
      o.source_dir = value;
    else if (flag == "--fault-seconds")
      o.fault_seconds = std::stoi(value);
    else if (flag == "--quiet-seconds")
      o.quiet_seconds = std::stoi(value);
    else if (flag == "--probability")
      o.reply_fault_probability = std::stod(value);
    else
      return false;
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
