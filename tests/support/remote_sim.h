// The simulator as a separate native process (plcsim_remote), for test programs that
// run under an emulator: the same operations as plcsim::server, carried over a pipe.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/unity_reply.h"
#include "tools/plcsim/plcsim.h"

namespace remote_sim {

class server {
 public:
  server(const std::string& helper, const std::string& project_file) {
    ::signal(SIGPIPE, SIG_IGN);
    int to_child[2], from_child[2];
    if (::pipe2(to_child, O_CLOEXEC) != 0 || ::pipe2(from_child, O_CLOEXEC) != 0)
      throw std::runtime_error("pipe");
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(to_child[0], 0);
      ::dup2(from_child[1], 1);
      ::execl(helper.c_str(), helper.c_str(), project_file.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(to_child[0]);
    ::close(from_child[1]);
    to_ = to_child[1];
    from_ = from_child[0];
    if (pid_ < 0 || line() != "ready") {
      throw std::runtime_error("simulator " + helper + " did not start");
    }
  }
  ~server() {
    ::close(to_);  // end of input: the helper stops its server and exits
    ::close(from_);
    int status = 0;
    if (pid_ > 0) ::waitpid(pid_, &status, 0);
  }
  server(const server&) = delete;
  server& operator=(const server&) = delete;

  bool start(const std::string& address, uint16_t port) {
    return started(ask("start " + address + " " + std::to_string(port)));
  }
  bool start_on_free_loopback(uint16_t port = 502) {
    return started(ask("start_free " + std::to_string(port)));
  }
  void stop() { ask("stop"); }
  // A program download: the project file replaces the running one.
  bool load_program_file(const std::string& path) { return ask("program " + path) == "ok"; }
  std::string address() const { return address_; }
  uint16_t port() const { return 502; }
  void set_faults(const plcsim::faults& f) {
    std::ostringstream cmd;
    cmd << "faults " << f.no_reply_to << ' ' << f.delay_reply_to << ' ' << f.delay_ms << ' '
        << f.split_reply_to << ' ' << f.split_pause_ms << ' ' << f.error_function << ' '
        << f.close_after << ' ' << f.truncate_reply_to << ' ' << f.truncate_to;
    if (ask(cmd.str()) != "ok") throw std::runtime_error("faults refused");
  }
  uint64_t request_count() { return std::stoull(ask("requests")); }
  std::size_t connection_count() { return std::stoul(ask("connections")); }
  std::vector<uint8_t> read_memory(uint16_t block, uint32_t offset, std::size_t n) {
    return harness::hex(ask("memory " + std::to_string(block) + " " + std::to_string(offset) + " " +
                            std::to_string(n)));
  }
  bool variable_location(const std::string& name, uint16_t& block, uint32_t& offset) {
    std::istringstream in(ask("location " + name));
    unsigned b = 0;
    if (!(in >> b >> offset)) return false;
    block = static_cast<uint16_t>(b);
    return true;
  }

 private:
  bool started(const std::string& reply) {
    if (reply.rfind("ok ", 0) != 0) return false;
    address_ = reply.substr(3);
    return true;
  }

  std::string ask(const std::string& command) {
    const std::string out = command + "\n";
    if (::write(to_, out.data(), out.size()) != static_cast<ssize_t>(out.size()))
      throw std::runtime_error("simulator gone");
    return line();
  }

  // One answer line; an answer later than 30 s means the helper hangs.
  std::string line() {
    std::string text;
    for (char c = 0;;) {
      pollfd p{from_, POLLIN, 0};
      if (::poll(&p, 1, 30000) != 1 || ::read(from_, &c, 1) != 1)
        throw std::runtime_error("no answer from the simulator");
      if (c == '\n') return text;
      text += c;
    }
  }

  pid_t pid_ = -1;
  int to_ = -1;
  int from_ = -1;
  std::string address_;
};

}  // namespace remote_sim
