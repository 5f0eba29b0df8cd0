// Waiting on one descriptor with a time-out. Readability and writability are waited for
// with poll(): the same time-out and the same results as select(), for any descriptor
// (select() cannot watch one numbered FD_SETSIZE (1024) or above, which a host with many
// open files hands out), and cheaper, which the read cycle feels. The exception set keeps
// select(), whose meaning poll() does not have exactly, below FD_SETSIZE.
#pragma once

namespace orm {

enum class wait_for { read, write, error };

// Above 0: ready; 0: time-out; -1: error. A negative timeout_ms waits without limit.
int wait_one(int fd, wait_for what, long timeout_ms);

}  // namespace orm
