// faultproxy: relay Modbus TCP between a client and a controller, injecting faults into
// the replies, scripted by reply number or drawn at random from a seed.
#include <CLI/CLI.hpp>
#include <csignal>
#include <iostream>
#include <sstream>
#include <thread>

#include "tools/faultproxy/fault_proxy.h"

namespace {

volatile std::sig_atomic_t stop_requested = 0;
void on_signal(int) {
  stop_requested = 1;
}

// "ADDR[:PORT]" with 502 as the default port.
std::pair<std::string, uint16_t> endpoint(std::string text) {
  uint16_t port = 502;
  const auto colon = text.find(':');
  if (colon != std::string::npos) {
    port = static_cast<uint16_t>(std::stoul(text.substr(colon + 1)));
    text.resize(colon);
  }
  return {text, port};
}

faultproxy::kind kind_named(const std::string& name) {
  faultproxy::kind k{};
  if (!faultproxy::kind_of(name, k)) throw std::runtime_error("unknown fault kind '" + name + "'");
  return k;
}

// "N=KIND[:MS[:AT]]": reply N meets that fault.
std::pair<uint64_t, faultproxy::fault> scripted(const std::string& text) {
  const auto eq = text.find('=');
  if (eq == std::string::npos) throw std::runtime_error("--fault wants N=KIND[:MS[:AT]]");
  std::istringstream rest(text.substr(eq + 1));
  std::string name, ms, at;
  std::getline(rest, name, ':');
  std::getline(rest, ms, ':');
  std::getline(rest, at, ':');
  faultproxy::fault f;
  f.what = kind_named(name);
  f.ms = ms.empty() ? 0 : std::stoi(ms);
  f.at = at.empty() ? 0 : std::stoul(at);
  f.mask = 0xFF;
  return {std::stoull(text.substr(0, eq)), f};
}

int run(const std::string& listen, const std::string& upstream,
        const std::vector<std::string>& script, uint64_t seed, double probability,
        const std::vector<std::string>& kinds) {
  const auto [up_address, up_port] = endpoint(upstream);
  const auto [address, port] = endpoint(listen);
  faultproxy::proxy relay(up_address, up_port);
  std::map<uint64_t, faultproxy::fault> by_reply;
  for (const std::string& s : script) by_reply.insert(scripted(s));
  relay.plan().script(by_reply);
  std::vector<faultproxy::kind> drawn;
  for (const std::string& k : kinds) drawn.push_back(kind_named(k));
  if (probability > 0)
    relay.plan().randomise(seed, probability, drawn.empty() ? faultproxy::all_kinds() : drawn);
  relay.on_event([](const std::string& e) { std::cout << "faultproxy: " << e << std::endl; });
  if (!relay.start(address, port)) {
    std::cerr << "faultproxy: cannot listen on " << address << ':' << port << '\n';
    return 1;
  }
  std::signal(SIGINT, on_signal);
  std::signal(SIGTERM, on_signal);
  std::cout << "faultproxy: " << address << ':' << port << " -> " << up_address << ':' << up_port
            << std::endl;
  while (!stop_requested) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  relay.stop();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Modbus TCP relay that injects faults into the replies"};
  std::string listen, upstream;
  std::vector<std::string> script, kinds;
  uint64_t seed = 1;
  double probability = 0;
  app.add_option("--listen", listen, "ADDR[:PORT] to listen on (port 502 by default)")->required();
  app.add_option("--upstream", upstream, "ADDR[:PORT] of the controller")->required();
  app.add_option("--fault", script, "N=KIND[:MS[:AT]]: reply N meets this fault (repeatable)");
  app.add_option("--probability", probability,
                 "Each reply draws a random fault with this probability");
  app.add_option("--seed", seed, "Seed of the random faults");
  app.add_option("--kinds", kinds, "Kinds drawn at random (default: all)")->delimiter(',');
  app.footer(
      "Kinds: delay_short delay_long split drop reset black_hole stall corrupt duplicate refuse");
  CLI11_PARSE(app, argc, argv);
  try {
    return run(listen, upstream, script, seed, probability, kinds);
  } catch (const std::exception& e) {
    std::cerr << "faultproxy: " << e.what() << '\n';
    return 2;
  }
}
