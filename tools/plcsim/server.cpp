// The TCP side of the simulator: an accept thread and one thread per
// connection, each waking every few milliseconds so that stop() is prompt.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <list>
#include <mutex>
#include <random>
#include <thread>

#include "tools/plcsim/pcap_writer.h"
#include "tools/plcsim/plcsim.h"
#include "tools/plcsim/project_layout.h"
#include "tools/plcsim/unity_replies.h"

namespace plcsim {

namespace {

constexpr int poll_ms = 20;
constexpr uint8_t unity_function = 0x5A;
constexpr std::size_t mbap_size = 7;

// Address and port of one end of a connected socket (getpeername or getsockname).
tcp_end end_of(int fd, int (*name)(int, sockaddr*, socklen_t*)) {
  sockaddr_in sa{};
  socklen_t len = sizeof sa;
  if (name(fd, reinterpret_cast<sockaddr*>(&sa), &len) != 0) return {};
  return {ntohl(sa.sin_addr.s_addr), ntohs(sa.sin_port)};
}

struct connection {
  std::thread thread;
  std::atomic<bool> done{false};
};

}  // namespace

struct server::impl {
  mutable std::mutex proj_mu;  // a program download replaces proj and memory
  project proj;
  std::unique_ptr<sim_memory> memory = std::make_unique<sim_memory>();
  std::atomic<uint64_t> program{0};  // counts program downloads; connections of an older one close
  mutable std::mutex fault_mu;
  faults fault;
  std::atomic<uint64_t> requests{0};
  std::atomic<std::size_t> connections{0};
  std::atomic<bool> running{false};
  int listen_fd = -1;
  std::string address;
  uint16_t port = 0;
  std::thread acceptor;
  std::mutex conn_mu;
  std::list<connection> conns;
  std::unique_ptr<pcap_writer> capture;  // null unless traffic is recorded

  explicit impl(project p) : proj(std::move(p)) { lay_out_memory(); }

  sim_memory::observer observer;  // kept across program downloads

  // Identification reads the dictionary handle from block 0x0030, bytes 5..12.
  void lay_out_memory() {
    memory = std::make_unique<sim_memory>();
    memory->write(0x0030, 5, msg_writer().le64(proj.dictionary_handle).bytes());
    for (const auto& [block, runs] : proj.initial)
      for (const auto& [offset, bytes] : runs) memory->write(block, offset, bytes);
    if (observer) {
      memory->set_observer(observer);
      memory->notify_all_changed();
    }
  }

  faults current_faults() const {
    std::lock_guard<std::mutex> lock(fault_mu);
    return fault;
  }

  void pause(int ms) const {
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (running && std::chrono::steady_clock::now() < until)
      std::this_thread::sleep_for(std::chrono::milliseconds(std::min(ms, 5)));
  }

  byte_vector reply_adu(const byte_vector& frame, const faults& f) {
    byte_vector request(frame.begin() + 8, frame.end());
    byte_vector reply;
    if (auto refused = refused_header(frame)) {
      if (refused->empty()) return {};  // not Modbus: dropped unanswered
      reply = *refused;
    } else if (frame[7] != unity_function) {
      reply = {static_cast<uint8_t>(frame[7] | 0x80), 0x01};  // Modbus exception: illegal function
    } else if (f.error_function >= 0 && request.size() > 1 && request[1] == f.error_function) {
      reply = error_reply(request, 7);
      reply.insert(reply.begin(), unity_function);
    } else {
      std::lock_guard<std::mutex> lock(proj_mu);
      // A connection that a restart or a download has ended is answered no more, even
      // before its thread notices.
      if (program != connection_program) return {};
      reply = answer_unity(proj, *memory, request);
      reply.insert(reply.begin(), unity_function);
    }
    msg_writer w;
    w.u8(frame[0]).u8(frame[1]).be16(0).be16(static_cast<uint16_t>(reply.size() + 1)).u8(frame[6]);
    w.raw(reply);
    return w.bytes();
  }

  void send_all(int fd, int stream, const uint8_t* data, std::size_t n) const {
    if (capture) capture->sent(stream, pcap_writer::direction::from_server, data, n);
    while (n > 0) {
      ssize_t sent = ::send(fd, data, n, MSG_NOSIGNAL);
      if (sent <= 0) return;
      data += sent;
      n -= static_cast<std::size_t>(sent);
    }
  }

  // Answers one complete request frame; false when the connection must close.
  bool serve_frame(int fd, int stream, const byte_vector& frame) {
    if (capture)
      capture->sent(stream, pcap_writer::direction::from_client, frame.data(), frame.size());
    uint64_t n = ++requests;
    faults f = current_faults();
    auto is = [n](int k) { return k > 0 && static_cast<uint64_t>(k) == n; };
    if (f.close_after > 0 && n > static_cast<uint64_t>(f.close_after)) return false;
    byte_vector adu;
    if (!is(f.no_reply_to)) adu = reply_adu(frame, f);
    // A connection that a restart or a download has ended closes unanswered; a frame that
    // is not Modbus gets no answer on a connection that stays.
    if (adu.empty() && program != connection_program) return false;
    if (!adu.empty()) {
      if (is(f.delay_reply_to)) pause(f.delay_ms);
      if (is(f.truncate_reply_to) && f.truncate_to < adu.size()) adu.resize(f.truncate_to);
      if (is(f.split_reply_to) && adu.size() > 1) {
        std::size_t half = adu.size() / 2;
        send_all(fd, stream, adu.data(), half);
        pause(f.split_pause_ms);
        send_all(fd, stream, adu.data() + half, adu.size() - half);
      } else {
        send_all(fd, stream, adu.data(), adu.size());
      }
    }
    return !(f.close_after > 0 && n >= static_cast<uint64_t>(f.close_after));
  }

  // Takes every complete Modbus TCP frame off the front of the buffer.
  bool serve_buffer(int fd, int stream, byte_vector& buf) {
    while (buf.size() >= mbap_size) {
      std::size_t len = static_cast<std::size_t>(buf[4]) << 8 | buf[5];
      // A length that cannot hold the unit id and function code leaves no way to find
      // the next frame: the connection is dropped unanswered, as a Modbus TCP server does.
      if (len < 2) return false;
      if (buf.size() < 6 + len) return true;
      byte_vector frame(buf.begin(), buf.begin() + static_cast<std::ptrdiff_t>(6 + len));
      buf.erase(buf.begin(), buf.begin() + static_cast<std::ptrdiff_t>(6 + len));
      if (!serve_frame(fd, stream, frame)) return false;
    }
    return true;
  }

  static thread_local uint64_t connection_program;  // program a connection was accepted in

  void serve_connection(int fd, connection* self, uint64_t my_program) {
    connection_program = my_program;
    int stream =
        capture ? capture->open_stream(end_of(fd, ::getpeername), end_of(fd, ::getsockname)) : 0;
    byte_vector buf;
    uint8_t chunk[4096];
    while (running && program == my_program) {
      pollfd pfd{fd, POLLIN, 0};
      int r = ::poll(&pfd, 1, poll_ms);
      if (r < 0) break;
      if (r == 0) continue;
      ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
      if (got <= 0) break;
      buf.insert(buf.end(), chunk, chunk + got);
      if (!serve_buffer(fd, stream, buf)) break;
    }
    ::shutdown(fd, SHUT_RDWR);
    ::close(fd);
    if (capture) capture->close_stream(stream);
    self->done = true;
  }

  void reap_finished() {
    std::lock_guard<std::mutex> lock(conn_mu);
    for (auto it = conns.begin(); it != conns.end();) {
      if (it->done) {
        it->thread.join();
        it = conns.erase(it);
      } else {
        ++it;
      }
    }
  }

  void accept_loop() {
    while (running) {
      pollfd pfd{listen_fd, POLLIN, 0};
      if (::poll(&pfd, 1, poll_ms) <= 0) continue;
      int fd = ::accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      const uint64_t accepted_in = program.load();  // a restart from now on closes it
      int one = 1;
      ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
      ++connections;
      reap_finished();
      std::lock_guard<std::mutex> lock(conn_mu);
      conns.emplace_back();
      connection* c = &conns.back();
      c->thread = std::thread([this, fd, c, p = accepted_in] { serve_connection(fd, c, p); });
    }
  }
};

thread_local uint64_t server::impl::connection_program = 0;

server::server(project p) : impl_(std::make_unique<impl>(std::move(p))) {}

void server::load_program(project p) {
  {
    std::lock_guard<std::mutex> lock(impl_->proj_mu);
    impl_->proj = std::move(p);
    impl_->lay_out_memory();
    ++impl_->program;
  }
}

void server::restart() {
  std::lock_guard<std::mutex> lock(impl_->proj_mu);
  ++impl_->program;
}

void server::observe_memory(sim_memory::observer o) {
  std::lock_guard<std::mutex> lock(impl_->proj_mu);
  impl_->observer = o;
  impl_->memory->set_observer(std::move(o));
  impl_->memory->notify_all_changed();
}

server::~server() {
  stop();
}

bool server::start(const std::string& address, uint16_t port) {
  if (impl_->running) return false;
  // Close-on-exec: a program started by the simulator's process must not keep its port.
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  int one = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  socklen_t len = sizeof sa;
  if (::inet_pton(AF_INET, address.c_str(), &sa.sin_addr) != 1 ||
      ::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0 || ::listen(fd, 16) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&sa), &len) != 0) {
    const int reason = errno;  // for the caller's message
    ::close(fd);
    errno = reason;
    return false;
  }
  impl_->listen_fd = fd;
  impl_->address = address;
  impl_->port = ntohs(sa.sin_port);
  impl_->running = true;
  impl_->acceptor = std::thread([this] { impl_->accept_loop(); });
  return true;
}

bool server::record_to(const std::string& pcap_path) {
  if (impl_->running) return false;
  auto writer = std::make_unique<pcap_writer>();
  if (!writer->open(pcap_path)) return false;
  impl_->capture = std::move(writer);
  return true;
}

bool server::start_on_free_loopback(uint16_t port) {
  std::random_device rd;
  unsigned first = 2 + rd() % 249;
  for (unsigned i = 0; i < 249; ++i) {
    unsigned x = 2 + (first - 2 + i) % 249;
    if (start("127.0.0." + std::to_string(x), port)) return true;
  }
  return false;
}

void server::stop() {
  if (!impl_->running.exchange(false)) return;
  impl_->acceptor.join();
  ::close(impl_->listen_fd);
  impl_->listen_fd = -1;
  std::lock_guard<std::mutex> lock(impl_->conn_mu);
  for (auto& c : impl_->conns) c.thread.join();
  impl_->conns.clear();
}

std::string server::address() const {
  return impl_->address;
}
uint16_t server::port() const {
  return impl_->port;
}

void server::set_faults(const faults& f) {
  std::lock_guard<std::mutex> lock(impl_->fault_mu);
  impl_->fault = f;
}

uint64_t server::request_count() const {
  return impl_->requests;
}
std::size_t server::connection_count() const {
  return impl_->connections;
}

std::vector<uint8_t> server::read_memory(uint16_t block, uint32_t offset, std::size_t n) const {
  std::lock_guard<std::mutex> lock(impl_->proj_mu);
  return impl_->memory->read(block, offset, n);
}

void server::write_memory(uint16_t block, uint32_t offset, const std::vector<uint8_t>& bytes) {
  std::lock_guard<std::mutex> lock(impl_->proj_mu);
  impl_->memory->write(block, offset, bytes);
}

bool server::variable_location(const std::string& name, uint16_t& block, uint32_t& offset) const {
  uint16_t type = 0;
  std::lock_guard<std::mutex> lock(impl_->proj_mu);
  return resolve_location(impl_->proj, name, block, offset, type);
}

const project& server::loaded_project() const {
  return impl_->proj;
}
uint32_t server::table_address() const {
  return impl_->proj.table_address;
}
uint64_t server::dictionary_handle() const {
  return impl_->proj.dictionary_handle;
}

}  // namespace plcsim
