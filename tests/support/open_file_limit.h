// The soft limit on open files, raised for a test that needs descriptors numbered past
// select()'s FD_SETSIZE (CI machines start at 1024) and put back when the test ends.
#pragma once

#include <sys/resource.h>

class open_file_limit {
 public:
  explicit open_file_limit(rlim_t needed) : needed_(needed) {
    read_ = ::getrlimit(RLIMIT_NOFILE, &before_) == 0;
  }
  ~open_file_limit() {
    if (raised_) ::setrlimit(RLIMIT_NOFILE, &before_);
  }
  open_file_limit(const open_file_limit&) = delete;
  open_file_limit& operator=(const open_file_limit&) = delete;

  // False when the hard limit is below what is needed: the test cannot run here.
  bool allowed() const { return !read_ || before_.rlim_max >= needed_; }
  // Raises the soft limit to what is needed where it is lower; false on failure.
  bool raise() {
    if (!read_) return false;
    if (before_.rlim_cur >= needed_) return true;
    rlimit raised = before_;
    raised.rlim_cur = needed_;
    raised_ = ::setrlimit(RLIMIT_NOFILE, &raised) == 0;
    return raised_;
  }

 private:
  rlim_t needed_;
  rlimit before_{};
  bool read_ = false;
  bool raised_ = false;
};
