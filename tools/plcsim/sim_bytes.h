// The simulator's own byte cursors: little-endian inside Unity messages,
// big-endian in the Modbus TCP header. Readers throw std::out_of_range at the end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace plcsim {

using byte_vector = std::vector<uint8_t>;

class msg_reader {
 public:
  explicit msg_reader(const byte_vector& b, std::size_t pos = 0) : b_(b), pos_(pos) {}
  uint8_t u8() {
    if (pos_ >= b_.size()) throw std::out_of_range("plcsim: message too short");
    return b_[pos_++];
  }
  uint16_t le16() {
    uint16_t lo = u8();
    return static_cast<uint16_t>(lo | u8() << 8);
  }
  uint32_t le32() {
    uint32_t lo = le16();
    return lo | static_cast<uint32_t>(le16()) << 16;
  }
  uint64_t le64() {
    uint64_t lo = le32();
    return lo | static_cast<uint64_t>(le32()) << 32;
  }
  uint16_t be16() {
    uint16_t hi = u8();
    return static_cast<uint16_t>(hi << 8 | u8());
  }
  std::size_t pos() const { return pos_; }
  std::size_t remaining() const { return pos_ < b_.size() ? b_.size() - pos_ : 0; }

 private:
  const byte_vector& b_;
  std::size_t pos_;
};

class msg_writer {
 public:
  msg_writer& u8(uint8_t v) {
    b_.push_back(v);
    return *this;
  }
  msg_writer& le16(uint16_t v) { return u8(v & 0xFF).u8(static_cast<uint8_t>(v >> 8)); }
  msg_writer& le32(uint32_t v) { return le16(v & 0xFFFF).le16(static_cast<uint16_t>(v >> 16)); }
  msg_writer& le64(uint64_t v) { return le32(v & 0xFFFFFFFF).le32(static_cast<uint32_t>(v >> 32)); }
  msg_writer& be16(uint16_t v) { return u8(static_cast<uint8_t>(v >> 8)).u8(v & 0xFF); }
  msg_writer& be32(uint32_t v) { return be16(static_cast<uint16_t>(v >> 16)).be16(v & 0xFFFF); }
  msg_writer& zeros(std::size_t n) {
    b_.insert(b_.end(), n, 0);
    return *this;
  }
  msg_writer& raw(const byte_vector& v) {
    b_.insert(b_.end(), v.begin(), v.end());
    return *this;
  }
  // Name followed by its terminating NUL.
  msg_writer& cstr(const std::string& s) {
    b_.insert(b_.end(), s.begin(), s.end());
    return u8(0);
  }
  std::size_t size() const { return b_.size(); }
  byte_vector& bytes() { return b_; }

 private:
  byte_vector b_;
};

}  // namespace plcsim
