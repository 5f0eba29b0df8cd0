// Byte cursors over byte vectors: one type per byte order and direction.
// The Modbus TCP header is big-endian; everything inside a Unity message and the
// tag file is little-endian. Every access goes through vector::at, so running past
// the end raises std::out_of_range and nothing is ever read outside the buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wire {

using bytes = std::vector<unsigned char>;

template <typename Buffer>
class basic_be_reader {
 public:
  explicit basic_be_reader(const Buffer& buf, std::size_t pos = 0) : buf_(buf), pos_(pos) {}
  uint8_t u8() { return buf_.at(pos_++); }
  uint16_t u16() {
    uint16_t hi = u8();
    return static_cast<uint16_t>(hi << 8 | u8());
  }
  std::size_t pos() const { return pos_; }

 private:
  const Buffer& buf_;
  std::size_t pos_;
};

using be_reader = basic_be_reader<bytes>;

template <typename Buffer>
class basic_le_reader {
 public:
  explicit basic_le_reader(const Buffer& buf, std::size_t pos = 0) : buf_(buf), pos_(pos) {}
  uint8_t u8() { return buf_.at(pos_++); }
  uint16_t u16() {
    uint16_t lo = u8();
    return static_cast<uint16_t>(lo | u8() << 8);
  }
  uint32_t u32() {
    uint32_t lo = u16();
    return lo | static_cast<uint32_t>(u16()) << 16;
  }
  uint64_t u64() {
    uint64_t lo = u32();
    return lo | static_cast<uint64_t>(u32()) << 32;
  }
  void skip(std::size_t n) { pos_ += n; }
  std::size_t pos() const { return pos_; }
  bool at_end() const { return pos_ >= buf_.size(); }

 private:
  const Buffer& buf_;
  std::size_t pos_;
};

// Over a byte vector, the common case; basic_le_reader also reads fixed std::array fields
// in place, where copying them into a vector first would cost an allocation.
using le_reader = basic_le_reader<bytes>;

// Writes into a vector that is already sized (the frame encoder's pattern).
class be_writer {
 public:
  explicit be_writer(bytes& buf, std::size_t pos = 0) : buf_(buf), pos_(pos) {}
  void u8(uint8_t v) { buf_.at(pos_++) = v; }
  void u16(uint16_t v) {
    u8(static_cast<uint8_t>(v >> 8));
    u8(static_cast<uint8_t>(v));
  }
  std::size_t pos() const { return pos_; }

 private:
  bytes& buf_;
  std::size_t pos_;
};

// Appends little-endian values (the request builders' pattern).
class le_writer {
 public:
  explicit le_writer(bytes& buf) : buf_(buf) {}
  le_writer& u8(uint8_t v) {
    buf_.push_back(v);
    return *this;
  }
  le_writer& u16(uint16_t v) {
    return u8(static_cast<uint8_t>(v)).u8(static_cast<uint8_t>(v >> 8));
  }
  le_writer& u32(uint32_t v) {
    return u16(static_cast<uint16_t>(v)).u16(static_cast<uint16_t>(v >> 16));
  }
  template <typename It>
  le_writer& append(It first, It last) {
    buf_.insert(buf_.end(), first, last);
    return *this;
  }

 private:
  bytes& buf_;
};

// Writes little-endian values where the caller has already made room: no capacity check
// per byte, for builders that size their buffer once for the longest message.
class le_span_writer {
 public:
  explicit le_span_writer(unsigned char* at) : at_(at) {}
  le_span_writer& u8(uint8_t v) {
    *at_++ = v;
    return *this;
  }
  le_span_writer& u16(uint16_t v) {
    return u8(static_cast<uint8_t>(v)).u8(static_cast<uint8_t>(v >> 8));
  }
  le_span_writer& u32(uint32_t v) {
    return u16(static_cast<uint16_t>(v)).u16(static_cast<uint16_t>(v >> 16));
  }
  unsigned char* pos() const { return at_; }

 private:
  unsigned char* at_;
};

// Writes little-endian 16-bit units into a fixed area, dropping what does not fit: result
// areas hold every value as units, and a value longer than its area is cut, never spilled.
class bounded_le_writer {
 public:
  bounded_le_writer(unsigned char* area, std::size_t size) : area_(area), size_(size) {}
  void unit(uint16_t v) {
    if (pos_ + 2 > size_) return;
    area_[pos_] = static_cast<unsigned char>(v);
    area_[pos_ + 1] = static_cast<unsigned char>(v >> 8);
    pos_ += 2;
  }
  // The unit's high byte is left as it was.
  void low_byte(uint8_t v) {
    if (pos_ + 2 > size_) return;
    area_[pos_] = v;
    pos_ += 2;
  }
  // count units of v, low unit first.
  void units(uint64_t v, unsigned count) {
    for (unsigned i = 0; i < count; ++i) unit(static_cast<uint16_t>(v >> (16 * i)));
  }
  // Bytes from the area's start that were written or stepped over.
  std::size_t pos() const { return pos_; }

 private:
  unsigned char* area_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

}  // namespace wire
