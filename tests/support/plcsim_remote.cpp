// plcsim_remote: a native simulator driven line by line over stdin/stdout, for test
// programs that run under an emulator (the armhf suites) and cannot host the simulator
// in-process. One command per line, one answer line each; end of input stops it.
//   start ADDR PORT | start_free PORT   -> "ok ADDR" or "fail"
//   stop                                -> "ok"
//   faults NINE INTEGERS                -> "ok"   (the fields of plcsim::faults, in order)
//   requests | connections              -> count
//   memory BLOCK OFFSET N               -> N bytes in hex
//   location NAME                       -> "BLOCK OFFSET" or "none"
//   program PROJECT.json                -> "ok" (a program download) or "fail"
#include <cstdio>
#include <iostream>
#include <sstream>
#include <string>

#include "tools/plcsim/plcsim.h"

namespace {

std::string answer(plcsim::server& srv, const std::string& line) {
  std::istringstream in(line);
  std::string cmd;
  in >> cmd;
  if (cmd == "start" || cmd == "start_free") {
    std::string address;
    unsigned port = 502;
    if (cmd == "start") in >> address;
    in >> port;
    const bool ok = cmd == "start" ? srv.start(address, static_cast<uint16_t>(port))
                                   : srv.start_on_free_loopback(static_cast<uint16_t>(port));
    return ok ? "ok " + srv.address() : "fail";
  }
  if (cmd == "stop") {
    srv.stop();
    return "ok";
  }
  if (cmd == "faults") {
    plcsim::faults f;
    in >> f.no_reply_to >> f.delay_reply_to >> f.delay_ms >> f.split_reply_to >> f.split_pause_ms >>
        f.error_function >> f.close_after >> f.truncate_reply_to >> f.truncate_to;
    if (!in) return "fail";
    srv.set_faults(f);
    return "ok";
  }
  if (cmd == "requests") return std::to_string(srv.request_count());
  if (cmd == "connections") return std::to_string(srv.connection_count());
  if (cmd == "memory") {
    unsigned block = 0;
    uint32_t offset = 0;
    std::size_t n = 0;
    in >> block >> offset >> n;
    std::string hex;
    char two[3];
    for (uint8_t b : srv.read_memory(static_cast<uint16_t>(block), offset, n)) {
      std::snprintf(two, sizeof two, "%02x", b);
      hex += two;
    }
    return hex;
  }
  if (cmd == "location") {
    std::string name;
    in >> name;
    uint16_t block = 0;
    uint32_t offset = 0;
    if (!srv.variable_location(name, block, offset)) return "none";
    return std::to_string(block) + " " + std::to_string(offset);
  }
  if (cmd == "program") {
    std::string path;
    in >> path;
    try {
      srv.load_program(plcsim::load_project_file(path));
    } catch (const std::exception&) {
      return "fail";
    }
    return "ok";
  }
  return "fail";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: plcsim_remote PROJECT.json\n";
    return 2;
  }
  try {
    plcsim::server srv(plcsim::load_project_file(argv[1]));
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);)
      std::cout << answer(srv, line) << std::endl;
  } catch (const std::exception& e) {
    std::cerr << "plcsim_remote: " << e.what() << '\n';
    return 1;
  }
  return 0;
}
