// A byte vector whose growth leaves the new bytes as they are: a receive buffer sized up
// before every recv costs no clearing, and reads through at() stay checked against the
// bytes actually received.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <utility>
#include <vector>

template <typename T>
struct uninitialised_allocator : std::allocator<T> {
  template <typename U>
  struct rebind {
    using other = uninitialised_allocator<U>;
  };
  uninitialised_allocator() = default;
  template <typename U>
  uninitialised_allocator(const uninitialised_allocator<U>&) noexcept {}

  template <typename U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;
  }
  template <typename U, typename... Args>
  void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }
};

using receive_buffer = std::vector<unsigned char, uninitialised_allocator<unsigned char>>;

// What one receive takes at most, and how long it waits for a reply.
constexpr std::size_t receive_buffer_size = 2048;
constexpr long reply_wait_ms = 1000;
