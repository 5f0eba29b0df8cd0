#include "unity/unity_process.h"

#include <sys/socket.h>

#include <cerrno>

#include "net/descriptor_wait.h"
#include "trace/trace.h"
#include "unity/exchange_trace.h"

namespace {
constexpr std::size_t dictionary_handle_size = 8;
}  // namespace

unity_process::unity_process() : impl(new PRIVATE()) {
  dictionary_handle.resize(dictionary_handle_size, 0);
}

unity_process::~unity_process() {
  socket.close();
}

int unity_process::setup_device(const char* address, unsigned short port, int timeout) {
  state = state_connecting;
  if (address != nullptr) {
    socket.address = address;
  }
  return socket.connectToServer(address, port, timeout) ? 1 : 0;
}

void unity_process::stop() {
  transaction_counter = 1;
  ::shutdown(socket.descriptor(), SHUT_RDWR);
  socket.close();
}

std::vector<unsigned char> unity_process::client_recv() {
  receive_reply();
  return std::vector<unsigned char>(reply_buffer_.begin(), reply_buffer_.end());
}

// One wait and one recv: the bytes of that single read are taken as the whole reply.
void unity_process::receive_reply() {
  // Sized up without clearing: only the bytes recv writes are kept.
  reply_buffer_.resize(receive_buffer_size);
  const int fd = socket.descriptor();
  ssize_t n = 0;
  const int ready = orm::wait_one(fd, orm::wait_for::read, reply_wait_ms);
  if (ready > 0) {
    n = ::recv(fd, reply_buffer_.data(), reply_buffer_.size(), 0);
  }
  if (trace::on) exchange_trace::received(reply_buffer_.data(), ready, n, errno);
  reply_buffer_.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
}

long unity_process::send_frame(const modbus_tcp_frame& frame) {
  const std::vector<unsigned char> raw = frame.to_raw_data();
  return send_bytes(raw.data(), raw.size());
}

long unity_process::send_bytes(const unsigned char* bytes, std::size_t size) {
  // MSG_NOSIGNAL: a connection dropped by the controller must not raise SIGPIPE in the host.
  const long sent = ::send(socket.descriptor(), bytes, size, MSG_NOSIGNAL);
  if (trace::on) exchange_trace::sent(bytes, size, sent, errno);
  return sent;
}

bool unity_process::is_bme_p58() const {
  return plc_type.find("BME P58") != std::string::npos;
}
