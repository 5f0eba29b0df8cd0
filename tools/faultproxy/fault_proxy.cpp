// The proxy's listener: an accept thread that connects each client upstream and hands
// the pair to a relay thread. A refusal closes the listener, so that connects meet an RST
// from the kernel, and opens it again when the time is up.
#include "tools/faultproxy/fault_proxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <list>
#include <mutex>
#include <thread>

#include "tools/faultproxy/relay.h"

namespace faultproxy {

namespace {

constexpr int accept_poll_ms = 20;

sockaddr_in socket_address(const std::string& address, uint16_t port, bool& ok) {
  sockaddr_in sa{};
  sa.sin_family = AF_INET;
  sa.sin_port = htons(port);
  ok = ::inet_pton(AF_INET, address.c_str(), &sa.sin_addr) == 1;
  return sa;
}

// Port 0 takes an ephemeral port, written back into port.
int listen_on(const std::string& address, uint16_t& port) {
  bool ok = false;
  sockaddr_in sa = socket_address(address, port, ok);
  socklen_t len = sizeof sa;
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int one = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (!ok || ::bind(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0 ||
      ::listen(fd, 16) != 0 || ::getsockname(fd, reinterpret_cast<sockaddr*>(&sa), &len) != 0) {
    ::close(fd);
    return -1;
  }
  port = ntohs(sa.sin_port);
  return fd;
}

// Upstream is on loopback: a connect either completes or is refused at once.
int connect_to(const std::string& address, uint16_t port) {
  bool ok = false;
  sockaddr_in sa = socket_address(address, port, ok);
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (!ok || ::connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof sa) != 0) {
    ::close(fd);
    return -1;
  }
  const int one = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  return fd;
}

struct connection {
  std::unique_ptr<relay> r;
  std::thread thread;
};

}  // namespace

struct proxy::impl {
  std::string upstream_address;
  uint16_t upstream_port;
  std::string address;
  uint16_t port = 0;
  fault_plan plan;
  event_sink sink;
  reply_sink replies_sink;
  std::atomic<bool> running{false};
  std::thread acceptor;
  std::mutex mu;  // listener, refusal, connections
  int listener = -1;
  bool listener_shut = false;  // shut down by a refusal, not yet closed
  clock::time_point refused_until{};
  std::list<connection> conns;
  std::atomic<uint64_t> replies{0}, accepted{0}, requests{0};
  std::array<std::atomic<uint64_t>, kind_count> applied{};

  void report(const std::string& event) {
    if (sink) sink(event);
  }

  relay_context context(uint64_t connection) {
    relay_context c;
    c.next_fault = [this, connection](const bytes& frame) {
      ++replies;
      if (replies_sink) replies_sink(connection, frame);
      return plan.next(frame.size());
    };
    c.applied = [this](const fault& f) {
      ++applied[static_cast<std::size_t>(f.what)];
      report(std::string("fault ") + name_of(f.what) + " ms=" + std::to_string(f.ms) +
             " at=" + std::to_string(f.at));
    };
    c.refuse_for = [this](int ms) { refuse_for(ms); };
    c.request_seen = [this] { ++requests; };
    c.running = &running;
    return c;
  }

  // Shut down rather than closed here: the accept thread may be polling the listener, and
  // a closed descriptor would go on listening until that poll returns.
  void refuse_for(int ms) {
    std::lock_guard<std::mutex> lock(mu);
    refused_until = std::max(refused_until, clock::now() + std::chrono::milliseconds(ms));
    if (listener >= 0) ::shutdown(listener, SHUT_RDWR);
    listener_shut = true;
  }

  // The listener, closed while refusing and opened again once that is over; -1 meanwhile.
  int current_listener() {
    std::lock_guard<std::mutex> lock(mu);
    const bool refusing = clock::now() < refused_until;
    if (listener >= 0 && (refusing || listener_shut)) {
      ::close(listener);
      listener = -1;
      listener_shut = false;
    }
    if (listener < 0 && !refusing) {
      listener = listen_on(address, port);
    }
    return listener;
  }

  void reap() {
    for (auto it = conns.begin(); it != conns.end();) {
      if (it->r->done()) {
        it->thread.join();
        it = conns.erase(it);
      } else {
        ++it;
      }
    }
  }

  void serve(int client) {
    const int upstream = connect_to(upstream_address, upstream_port);
    if (upstream < 0) {
      reset_socket(client);  // the controller is away: so is the relay
      report("upstream refused");
      return;
    }
    const uint64_t number = ++accepted;
    report("connection accepted");
    std::lock_guard<std::mutex> lock(mu);
    reap();
    conns.emplace_back();
    connection& c = conns.back();
    c.r = std::make_unique<relay>(client, upstream, context(number));
    c.thread = std::thread([r = c.r.get()] { r->run(); });
  }

  void accept_loop() {
    while (running) {
      const int fd = current_listener();
      if (fd < 0) {
        std::this_thread::sleep_for(std::chrono::milliseconds(accept_poll_ms));
        continue;
      }
      pollfd p{fd, POLLIN, 0};
      if (::poll(&p, 1, accept_poll_ms) <= 0) continue;
      const int client = ::accept4(fd, nullptr, nullptr, SOCK_CLOEXEC);
      if (client < 0) continue;
      const int one = 1;
      ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
      serve(client);
    }
  }
};

proxy::proxy(std::string upstream_address, uint16_t upstream_port)
    : impl_(std::make_unique<impl>()) {
  impl_->upstream_address = std::move(upstream_address);
  impl_->upstream_port = upstream_port;
}

proxy::~proxy() {
  stop();
}

bool proxy::start(const std::string& address, uint16_t port) {
  if (impl_->running) return false;
  const int fd = listen_on(address, port);  // port: the one bound
  if (fd < 0) return false;
  impl_->listener = fd;
  impl_->address = address;
  impl_->port = port;
  impl_->running = true;
  impl_->acceptor = std::thread([this] { impl_->accept_loop(); });
  return true;
}

bool proxy::start_on_free_loopback(uint16_t port) {
  std::random_device rd;
  const unsigned first = 2 + rd() % 249;
  for (unsigned i = 0; i < 249; ++i) {
    if (start("127.0.0." + std::to_string(2 + (first - 2 + i) % 249), port)) return true;
  }
  return false;
}

void proxy::stop() {
  if (!impl_->running.exchange(false)) return;
  impl_->acceptor.join();
  std::lock_guard<std::mutex> lock(impl_->mu);
  for (auto& c : impl_->conns) c.thread.join();
  impl_->conns.clear();
  if (impl_->listener >= 0) ::close(impl_->listener);
  impl_->listener = -1;
}

std::string proxy::address() const {
  return impl_->address;
}
uint16_t proxy::port() const {
  return impl_->port;
}
fault_plan& proxy::plan() {
  return impl_->plan;
}
void proxy::on_reply(reply_sink sink) {
  impl_->replies_sink = std::move(sink);
}

void proxy::on_event(event_sink sink) {
  impl_->sink = std::move(sink);
}
void proxy::refuse_for(int ms) {
  ++impl_->applied[static_cast<std::size_t>(kind::refuse)];
  impl_->report("refusing connections ms=" + std::to_string(ms));
  impl_->refuse_for(ms);
}

void proxy::drop_all() {
  std::lock_guard<std::mutex> lock(impl_->mu);
  for (auto& c : impl_->conns) c.r->close_soon();
}

uint64_t proxy::replies() const {
  return impl_->replies;
}
void proxy::calm() {
  impl_->plan.clear();
  {
    std::lock_guard<std::mutex> lock(impl_->mu);
    impl_->refused_until = clock::now();
  }
  drop_all();
}

uint64_t proxy::requests() const {
  return impl_->requests;
}
uint64_t proxy::connections() const {
  return impl_->accepted;
}
uint64_t proxy::faults(kind k) const {
  return impl_->applied[static_cast<std::size_t>(k)];
}

}  // namespace faultproxy
