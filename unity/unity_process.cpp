#include "unity/unity_process.h"

#include <sys/socket.h>

#include "net/descriptor_wait.h"

namespace {
constexpr std::size_t receive_buffer_size = 2048;
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

// One wait and one recv: the bytes of that single read are taken as the whole reply.
std::vector<unsigned char> unity_process::client_recv() {
  std::vector<unsigned char> buffer(receive_buffer_size, 0);
  const int fd = socket.descriptor();
  constexpr long reply_wait_ms = 1000;
  if (orm::wait_one(fd, orm::wait_for::read, reply_wait_ms) < 1) {
    return {};
  }
  const ssize_t n = ::recv(fd, buffer.data(), buffer.size(), 0);
  if (n <= 0) {
    return {};
  }
  buffer.resize(static_cast<std::size_t>(n));
  return buffer;
}

long unity_process::send_frame(const modbus_tcp_frame& frame) {
  const std::vector<unsigned char> raw = frame.to_raw_data();
  // MSG_NOSIGNAL: a connection dropped by the controller must not raise SIGPIPE in the host.
  return ::send(socket.descriptor(), raw.data(), raw.size(), MSG_NOSIGNAL);
}

bool unity_process::is_bme_p58() const {
  return plc_type.find("BME P58") != std::string::npos;
}
