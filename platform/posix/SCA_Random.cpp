#include <sys/random.h>

#include "platform/SCA_Sha256.h"
#include "platform/posix/SCA_Posix.h"

int SCA_RandomBytes(void* buffer, std::size_t length) {
  auto* at = static_cast<unsigned char*>(buffer);
  while (length > 0) {
    const ssize_t count = SCA_Retry([&] { return ::getrandom(at, length, 0); });
    if (count <= 0) return 0;
    at += count;
    length -= static_cast<std::size_t>(count);
  }
  return 1;
}
