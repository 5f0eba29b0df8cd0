// Waiting on one descriptor with a time-out. select() cannot watch a descriptor numbered
// FD_SETSIZE (1024) or above, which a host with many open files hands out; such a
// descriptor is waited on with poll(), with the same time-out and the same results.
#pragma once

namespace orm {

enum class wait_for { read, write, error };

// Above 0: ready; 0: time-out; -1: error. A negative timeout_ms waits without limit.
int wait_one(int fd, wait_for what, long timeout_ms);

}  // namespace orm
