#include "programs/common/Input.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace {

constexpr int kLookMs = 50;  // between two looks at the cancel event

// Until there is something to read, the end and an error included.
bool WaitForBytes(int fd, SCA_Event* cancel) {
  pollfd entry{fd, POLLIN, 0};
  while (cancel->Wait(0) == 0) {
    if (::poll(&entry, 1, kLookMs) > 0) return true;
  }
  return false;
}

}  // namespace

long ReadUnlessCancelled(int fd, char* buffer, std::size_t size, SCA_Event* cancel) {
  for (;;) {
    if (!WaitForBytes(fd, cancel)) return 0;
    const ssize_t length = ::read(fd, buffer, size);
    if (length >= 0 || (errno != EINTR && errno != EAGAIN)) return length;
  }
}
