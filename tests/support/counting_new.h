// A global operator new that counts the allocations of each thread, for the programs that
// link counting_new.cpp: a warm read cycle must make none, and the driver loaded with
// dlopen binds to this operator new as well.
#pragma once

#include <cstddef>

namespace counting_new {

// Allocations made so far by the calling thread.
std::size_t thread_allocations();

}  // namespace counting_new
