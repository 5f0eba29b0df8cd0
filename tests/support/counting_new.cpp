#include "tests/support/counting_new.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::size_t allocations = 0;
}  // namespace

std::size_t counting_new::thread_allocations() {
  return allocations;
}

// The default operator new[] and delete[] call these. Out of line, all three: an optimised
// build that inlines the malloc of this new warns of a mismatch with the sized delete of the
// standard containers, or pairs an inlined new with free.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept {
  std::free(p);
}
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
