/// A file that one process at a time holds. Internal to the library.
#ifndef SCA_PLATFORM_SCA_FILELOCK_H
#define SCA_PLATFORM_SCA_FILELOCK_H

#include "platform/SCA_Result.h"

/// The lock ends with the object or with the process, however that ends; the file stays.
/// Threads: one at a time.
class SCA_FileLock {
 public:
  SCA_FileLock() = default;
  ~SCA_FileLock();
  SCA_FileLock(const SCA_FileLock&) = delete;
  SCA_FileLock& operator=(const SCA_FileLock&) = delete;

  /// Takes the lock without waiting, making the file if it is missing. Once per object.
  /// @return `EWOULDBLOCK` when another process, or another object of this one, holds it; else the
  ///         system's code.
  SCA_Result Take(const char* fileName);

 private:
  int fd_ = -1;
};

#endif  // SCA_PLATFORM_SCA_FILELOCK_H
