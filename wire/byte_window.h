// Checks and copies over a received message, for the places where a decoder looks at
// bytes without reading them through a cursor.
#pragma once

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <vector>

namespace wire {

// Throws std::out_of_range unless buf holds n bytes from pos (by default: pos is inside).
template <typename Buffer>
void require(const Buffer& buf, std::size_t pos, std::size_t n = 1) {
  if (pos > buf.size() || buf.size() - pos < n) {
    throw std::out_of_range("message shorter than the field it must hold");
  }
}

// n bytes of buf from pos. A reply lands in a zero-filled receive buffer, so bytes past
// its end read as zero.
template <typename Buffer>
std::vector<unsigned char> zero_padded(const Buffer& buf, std::size_t pos, std::size_t n) {
  std::vector<unsigned char> out(n, 0);
  if (pos < buf.size()) {
    std::copy_n(buf.begin() + static_cast<std::ptrdiff_t>(pos), std::min(n, buf.size() - pos),
                out.begin());
  }
  return out;
}

}  // namespace wire
