#include "platform/SCA_FileLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include "platform/posix/SCA_Posix.h"

SCA_FileLock::~SCA_FileLock() {
  if (fd_ >= 0) ::close(fd_);
}

SCA_Result SCA_FileLock::Take(const char* fileName) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
  SCA_Fd file(SCA_Retry([&] { return ::open(fileName, kFlags, 0600); }));
  if (!file.IsOpen()) return SCA_SystemError();
  if (SCA_Retry([&] { return ::flock(file.Get(), LOCK_EX | LOCK_NB); }) != 0) {
    return SCA_SystemError();
  }
  fd_ = file.Release();
  return SCA_Done;
}
