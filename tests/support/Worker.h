/// For test programs that are their own children, and for whoever looks after such children.
#ifndef SCA_TESTS_SUPPORT_WORKER_H
#define SCA_TESTS_SUPPORT_WORKER_H

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/posix/SCA_Posix.h"
#include "tests/support/Timing.h"

inline void WriteAll(int fd, const std::string& text) {
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = ::write(fd, text.data() + done, text.size() - done);
    if (count > 0) done += static_cast<std::size_t>(count);
  }
}

[[noreturn]] inline void WaitForEver() {
  for (;;) ::pause();
}

/// Waits for the end of a process, which need be no child of this one.
inline bool Ends(pid_t pid, int timeoutMs = kDeadlineMs) {
  const SCA_Fd fd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  pollfd entry{fd.Get(), POLLIN, 0};
  return !fd.IsOpen() || ::poll(&entry, 1, timeoutMs) == 1;
}

inline std::ptrdiff_t EntriesIn(const std::string& directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

#endif  // SCA_TESTS_SUPPORT_WORKER_H
