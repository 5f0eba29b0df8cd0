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

int serve(const std::string& project_file, std::string listen, const std::string& pcap) {
  uint16_t port = 502;
  auto colon = listen.find(':');
  if (colon != std::string::npos) {
    port = static_cast<uint16_t>(std::stoul(listen.substr(colon + 1)));
    listen.resize(colon);
  }
  plcsim::server srv(plcsim::load_project_file(project_file));
  if (!pcap.empty() && !srv.record_to(pcap)) {
    std::cerr << "plcsim: cannot write " << pcap << '\n';
    return 1;
  }
  if (!srv.start(listen, port)) {
    std::cerr << "plcsim: cannot listen on " << listen << ':' << port << ": "
              << std::strerror(errno) << '\n';
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
  CLI11_PARSE(app, argc, argv);
  try {
    if (!generate.empty()) {
      if (out.empty()) throw std::runtime_error("--generate needs --out FILE");
      return write_generated(generate[0], generate[1], m580, out);
    }
    if (project_file.empty()) throw std::runtime_error("--project FILE is required");
    return serve(project_file, listen, pcap);
  } catch (const std::exception& e) {
    std::cerr << "plcsim: " << e.what() << '\n';
    return 1;
  }
}
