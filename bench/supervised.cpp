// A child to be supervised: says when it began, on the steady clock in nanoseconds, and waits.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

int main() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const char* name = std::getenv("SCA_SUPERVISED_LOG");
  const int fd = name != nullptr ? ::open(name, O_WRONLY | O_APPEND | O_CLOEXEC) : -1;
  char line[64];
  const int length =
      std::snprintf(line, sizeof line, "%d %lld%09ld\n", static_cast<int>(::getpid()),
                    static_cast<long long>(now.tv_sec), now.tv_nsec);
  if (::write(fd, line, static_cast<std::size_t>(length)) != length) return 1;
  ::close(fd);
  for (;;) ::pause();
}
