#include "programs/common/OwnFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "platform/SCA_Error.h"

namespace {

// Repeats a call that a signal interrupted.
template <class Call>
auto Retry(Call call) {
  decltype(call()) result;
  do {
    result = call();
  } while (result < 0 && errno == EINTR);
  return result;
}

unsigned long CodeOf(long result) {
  return result < 0 ? static_cast<unsigned long>(errno) : 0;
}

}  // namespace

unsigned long OwnFile::Open(const std::string& name, unsigned mode) {
  Close();
  // O_NONBLOCK: opening a named pipe would wait for its other end.
  constexpr int kFlags = O_RDWR | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  fd_ = Retry([&] { return ::open(name.c_str(), kFlags, mode); });
  struct stat status {};
  if (fd_ < 0 || ::fstat(fd_, &status) != 0) return CodeOf(-1);
  if (S_ISREG(status.st_mode)) return 0;
  Close();
  return SCA_ErrorNotRegularFile;
}

std::string OwnFile::TemporaryDirectory() {
  const char* const given = std::getenv("TMPDIR");
  return given != nullptr && *given != '\0' ? given : "/tmp";
}

unsigned long OwnFile::OpenTemporary() {
  Close();
  const std::string directory = TemporaryDirectory();
  fd_ = Retry([&] { return ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600); });
  // Not every file system knows files without a name.
  if (fd_ < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL)) {
    std::string name = directory + "/tikaextract-XXXXXX";
    fd_ = ::mkostemp(name.data(), O_CLOEXEC);
    if (fd_ >= 0) ::unlink(name.c_str());
  }
  return CodeOf(fd_);
}

void OwnFile::Close() {
  const int fd = std::exchange(fd_, -1);
  if (fd >= 0) ::close(fd);
}

unsigned long OwnFile::Lock() {
  return CodeOf(Retry([&] { return ::flock(fd_, LOCK_EX | LOCK_NB); }));
}

unsigned long OwnFile::Append(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = Retry([&] { return ::write(fd_, bytes.data(), bytes.size()); });
    if (written < 0) return CodeOf(written);
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return 0;
}

unsigned long OwnFile::ReadAt(unsigned long long place, char* buffer, std::size_t count,
                              std::size_t* read) const {
  *read = 0;
  while (*read < count) {
    const ssize_t got = Retry([&] {
      return ::pread(fd_, buffer + *read, count - *read, static_cast<off_t>(place + *read));
    });
    if (got < 0) return CodeOf(got);
    if (got == 0) break;
    *read += static_cast<std::size_t>(got);
  }
  return 0;
}

unsigned long OwnFile::GetSize(unsigned long long* size) const {
  struct stat status {};
  const unsigned long code = CodeOf(::fstat(fd_, &status));
  *size = static_cast<unsigned long long>(status.st_size);
  return code;
}

unsigned long OwnFile::Truncate(unsigned long long size) {
  return CodeOf(Retry([&] { return ::ftruncate(fd_, static_cast<off_t>(size)); }));
}

unsigned long OwnFile::Touch(timespec* present) {
  struct stat status {};
  if (::futimens(fd_, nullptr) != 0 || ::fstat(fd_, &status) != 0) return CodeOf(-1);
  *present = status.st_mtim;
  return 0;
}

unsigned long OwnFile::Sync() {
  return CodeOf(Retry([&] { return ::fdatasync(fd_); }));
}

unsigned long LockFile::Take(const std::string& name, std::string* owner) {
  constexpr std::size_t kLongest = 20;  // longer than a process id with its line end
  const unsigned long error = file_.Open(name, 0600);
  if (error != 0) return error;
  const unsigned long isHeld = file_.Lock();
  char text[kLongest + 1] = "";
  std::size_t length = 0;
  const unsigned long readError = file_.ReadAt(0, text, kLongest, &length);
  if (isHeld != 0) {
    const unsigned long process = std::strtoul(text, nullptr, 10);
    *owner = process != 0 ? "process " + std::to_string(process) : "another process";
    return isHeld;
  }
  if (readError != 0) return readError;
  const bool isNumber =
      std::string_view(text).find_first_not_of("0123456789\n") == std::string_view::npos;
  if (!isNumber || length == kLongest) return EEXIST;
  // On a full disk the lock still holds, but other processes cannot name its holder.
  if (file_.Truncate(0) == 0) static_cast<void>(file_.Append(std::to_string(::getpid()) + "\n"));
  return 0;
}
