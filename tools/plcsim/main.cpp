// plcsim: serve a project as a controller, or write a generated project file.
#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iostream>
#include <thread>

#include "tools/plcsim/plcsim.h"
#include "unitydrv/version.h"

namespace {

volatile std::sig_atomic_t stop_requested = 0;
volatile std::sig_atomic_t reload_requested = 0;
void on_signal(int) {
  stop_requested = 1;
}
void on_hangup(int) {
  reload_requested = 1;
}

// SIGHUP reads the project file again, as a program download to the controller would change it.
void reload(plcsim::server& srv, const std::string& project_file) {
  reload_requested = 0;
  try {
    srv.load_program(plcsim::load_project_file(project_file));
    std::cout << "plcsim: program reloaded from " << project_file << std::endl;
  } catch (const std::exception& e) {
    std::cerr << "plcsim: program not reloaded: " << e.what() << std::endl;
  }
}

int write_generated(std::size_t vars, std::size_t types, bool m580, const std::string& out) {
  std::ofstream f(out);
  f << plcsim::project_to_json(plcsim::generate_project(vars, types, m580)) << '\n';
  if (!f) {
    std::cerr << "plcsim: cannot write " << out << '\n';
    return 1;
  }
  return 0;
}

// A mistake on the command line: exit status 2, as panelhost's.
struct usage_error : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One octet of a dotted IPv4 address: 0..255 in decimal, without leading zeros (the C
// library would read 045 as octal).
bool decimal_octet(const std::string& text) {
  if (text.empty() || text.size() > 3 || (text.size() > 1 && text[0] == '0')) return false;
  if (text.find_first_not_of("0123456789") != std::string::npos) return false;
  return std::stoi(text) <= 255;
}

void check_listen_address(const std::string& address, const std::string& listen) {
  std::vector<std::string> octets(1);
  for (char c : address) {
    if (c == '.') {
      octets.emplace_back();
    } else {
      octets.back().push_back(c);
    }
  }
  bool ok = octets.size() == 4;
  bool leading_zero = false;
  for (const std::string& o : octets) {
    ok = ok && decimal_octet(o);
    leading_zero = leading_zero || (o.size() > 1 && o[0] == '0' &&
                                    o.find_first_not_of("0123456789") == std::string::npos);
  }
  if (ok) return;
  if (octets.size() == 4 && leading_zero) {
    throw usage_error("--listen '" + listen +
                      "': leading zeros are refused (the C library reads them as octal)");
  }
  throw usage_error("--listen '" + listen + "': '" + address +
                    "' is not a dotted IPv4 address (a.b.c.d)");
}

// --listen ADDR[:PORT]: the port, 502 when not given.
uint16_t split_listen(std::string& address, const std::string& listen) {
  const auto colon = listen.rfind(':');
  address = listen.substr(0, colon);
  uint16_t port = 502;
  if (colon != std::string::npos) {
    const std::string text = listen.substr(colon + 1);
    if (text.empty() || text.size() > 5 ||
        text.find_first_not_of("0123456789") != std::string::npos || std::stoul(text) > 65535) {
      throw usage_error("--listen '" + listen + "': the port '" + text +
                        "' is not a number from 0 to 65535 (0 picks a free one)");
    }
    port = static_cast<uint16_t>(std::stoul(text));
  }
  if (address.empty()) throw usage_error("--listen '" + listen + "': an IPv4 address is needed");
  check_listen_address(address, listen);
  return port;
}

int serve(const std::string& project_file, const std::string& listen, const std::string& pcap) {
  std::string address;
  const uint16_t port = split_listen(address, listen);
  plcsim::server srv(plcsim::load_project_file(project_file));
  if (!pcap.empty() && !srv.record_to(pcap)) {
    std::cerr << "plcsim: cannot write " << pcap << '\n';
    return 1;
  }
  if (!srv.start(address, port)) {
    std::cerr << "plcsim: cannot listen on " << address << ':' << port << ": "
              << (errno != 0 ? std::strerror(errno) : "the address is not this machine's") << '\n';
    return 1;
  }
  std::signal(SIGINT, on_signal);
  std::signal(SIGTERM, on_signal);
  std::signal(SIGHUP, on_hangup);
  std::cout << "plcsim: listening on " << srv.address() << ':' << srv.port() << " ("
            << srv.loaded_project().plc_type << ")" << std::endl;
  while (!stop_requested) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (reload_requested) reload(srv, project_file);
  }
  srv.stop();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Simulated controller answering Unity messages over Modbus TCP"};
  std::string project_file, listen = "127.0.0.1:502", out, pcap;
  app.set_version_flag("--version", "plcsim " UNITYDRV_VERSION);
  std::vector<std::size_t> generate;
  bool m580 = false;
  app.add_option("--project", project_file, "Project JSON file to serve");
  app.add_option("--listen", listen, "ADDR[:PORT] to listen on");
  app.add_option("--generate", generate, "N_VARS N_TYPES: write a generated project")->expected(2);
  app.add_flag("--m580", m580, "Generated project is an M580");
  app.add_option("--out", out, "Output file for --generate");
  app.add_option("--pcap", pcap, "Record every request and reply into this pcap file");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    // --help and --version exit 0; every other parse error is a usage error.
    return app.exit(e) == 0 ? 0 : 2;
  }
  try {
    if (!generate.empty()) {
      if (out.empty()) throw usage_error("--generate needs --out FILE");
      return write_generated(generate[0], generate[1], m580, out);
    }
    if (project_file.empty()) throw usage_error("--project FILE is required");
    return serve(project_file, listen, pcap);
  } catch (const usage_error& e) {
    std::cerr << "plcsim: " << e.what() << '\n';
    return 2;
  } catch (const std::exception& e) {
    std::cerr << "plcsim: " << e.what() << '\n';
    return 1;
  }
}
