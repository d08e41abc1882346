#include "platform/SCA_File.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>

#include <atomic>
#include <cstring>
#include <string_view>

#include "platform/SCA_Error.h"
#include "platform/posix/SCA_Posix.h"

namespace {

constexpr mode_t kPrivateFile = 0600;
constexpr char kAsidePrefix[] = ".sca-";
constexpr char kAsideSuffix[] = ".tmp";
constexpr off_t kReadAheadSize = 131072;  // what the system reads ahead unasked

SCA_Result CheckKind(const struct stat& status) {
  if (S_ISREG(status.st_mode)) return SCA_Done;
  return SCA_Result(S_ISDIR(status.st_mode) ? EISDIR : SCA_ErrorNotRegularFile);
}

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Creates a file under a name nobody uses yet, short whatever the target's name: a name that just
// fits its directory must not fail for a suffix.
SCA_Fd CreateAside(const std::string& directory, mode_t mode, std::string* name) {
  static std::atomic<unsigned> counter{0};
  for (;;) {
    *name = directory + "/" + kAsidePrefix + std::to_string(::getpid()) + "-" +
            std::to_string(++counter) + kAsideSuffix;
    SCA_Fd fd(SCA_Retry(
        [&] { return ::open(name->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode); }));
    // A process that was killed may have left the name; the counter finds another.
    if (fd.IsOpen() || errno != EEXIST) return fd;
  }
}

int Sync(int fd, SCA_FileCommit commit) {
  return commit == SCA_FileCommit::Durable ? SCA_Retry([&] { return ::fsync(fd); }) : 0;
}

// Linux has closed the descriptor also when a signal interrupted.
int CloseWritten(int fd) {
  return ::close(fd) != 0 && errno != EINTR ? -1 : 0;
}

}  // namespace

SCA_File::SCA_File() {
  SetValid(1);
}

SCA_File::~SCA_File() {
  Close();
}

int SCA_File::Open(const char* fileName, unsigned long flags, unsigned long* error) {
  Close();
  const bool isForReading = flags == SCA_FileOpenRead;
  if ((!isForReading && flags != SCA_FileAppend) || fileName == nullptr) {
    return SCA_Fail(EINVAL, error);
  }
  const int mode = isForReading ? O_RDONLY : O_WRONLY | O_APPEND | O_CREAT;
  // O_NONBLOCK: opening a named pipe would otherwise wait for its other end.
  SCA_Fd fd(
      SCA_Retry([&] { return ::open(fileName, mode | O_CLOEXEC | O_NONBLOCK, kPrivateFile); }));
  struct stat status {};
  if (!fd.IsOpen() || ::fstat(fd.Get(), &status) != 0) return SCA_SystemError().Store(error);
  if (const SCA_Result kind = CheckKind(status); kind.HasFailed()) return kind.Store(error);
  // A small file is read whole by one read; the advice would cost more than it gives.
  if (isForReading && status.st_size > kReadAheadSize) {
    ::posix_fadvise(fd.Get(), 0, 0, POSIX_FADV_SEQUENTIAL);
  }
  fd_ = fd.Release();
  sizeAtOpen_ = static_cast<unsigned long long>(status.st_size);
  return 1;
}

void SCA_File::Close() {
  SCA_Fd closing(std::exchange(fd_, -1));
}

int SCA_File::GetSize(unsigned long long* size, unsigned long* error) {
  struct stat status {};
  if (::fstat(fd_, &status) != 0) return SCA_SystemError().Store(error);
  *size = static_cast<unsigned long long>(status.st_size);
  return 1;
}

int SCA_File::IsPrivate() const {
  struct stat status {};
  if (::fstat(fd_, &status) != 0) return 0;
  const bool isOurs = status.st_uid == ::geteuid() || status.st_uid == 0;
  return isOurs && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0 ? 1 : 0;
}

int SCA_File::Read(char* buffer, unsigned long count, unsigned long* read, unsigned long* error) {
  unsigned long total = 0;
  for (unsigned long got = 1; got > 0 && total < count; total += got) {
    if (ReadSome(buffer + total, count - total, &got, error) == 0) return 0;
  }
  *read = total;
  return 1;
}

int SCA_File::ReadSome(char* buffer, unsigned long count, unsigned long* read,
                       unsigned long* error) {
  const ssize_t got = SCA_Retry([&] { return ::read(fd_, buffer, count); });
  if (got < 0) return SCA_SystemError().Store(error);
  *read = static_cast<unsigned long>(got);
  return 1;
}

int SCA_File::SetPosition(unsigned long long position, unsigned long* error) {
  const off_t moved = ::lseek(fd_, static_cast<off_t>(position), SEEK_SET);
  return moved >= 0 ? 1 : SCA_SystemError().Store(error);
}

int SCA_File::WriteString(const char* text, unsigned long* error) {
  char lineEnd = '\n';
  const std::size_t length = std::strlen(text);
  iovec parts[2] = {{const_cast<char*>(text), length}, {&lineEnd, 1}};
  const ssize_t written = SCA_Retry([&] { return ::writev(fd_, parts, 2); });
  if (written < 0) return SCA_SystemError().Store(error);
  // A regular file takes less only when there is no room for more.
  return static_cast<std::size_t>(written) == length + 1 ? 1 : SCA_Fail(ENOSPC, error);
}

SCA_ReplacementFile::SCA_ReplacementFile() {
  SetValid(1);
}

SCA_ReplacementFile::~SCA_ReplacementFile() {
  Discard();
}

int SCA_ReplacementFile::Open(const char* targetName, SCA_FileAccess access, unsigned long* error,
                              unsigned long mode) {
  Discard();
  const mode_t given =
      access == SCA_FileAccess::Private ? kPrivateFile : static_cast<mode_t>(mode & 0666);
  const auto open = [&] {
    targetName_ = targetName;
    directory_ = DirectoryOf(targetName_);
    std::string asideName;  // a file's own only once it is there
    SCA_Fd fd = CreateAside(directory_, given, &asideName);
    if (!fd.IsOpen()) return SCA_SystemError();
    asideName_ = std::move(asideName);
    fd_ = fd.Release();
    return SCA_Done;
  };
  return SCA_Guarded(open).Store(error);
}

int SCA_ReplacementFile::Write(const char* data, unsigned long length, unsigned long* error) {
  while (length > 0) {
    const ssize_t written = SCA_Retry([&] { return ::write(fd_, data, length); });
    if (written < 0) return SCA_SystemError().Store(error);
    data += written;
    length -= static_cast<unsigned long>(written);
  }
  return 1;
}

int SCA_ReplacementFile::Commit(SCA_FileCommit commit, unsigned long* error) {
  return Finish(commit, true).Store(error);
}

int SCA_ReplacementFile::CommitNew(SCA_FileCommit commit, unsigned long* error) {
  return Finish(commit, false).Store(error);
}

int SCA_ReplacementFile::IsAsideName(const char* name) {
  const std::string_view whole = name;
  const std::string_view prefix = kAsidePrefix;
  const std::string_view suffix = kAsideSuffix;
  if (whole.size() <= prefix.size() + suffix.size() || whole.substr(0, prefix.size()) != prefix ||
      whole.substr(whole.size() - suffix.size()) != suffix) {
    return 0;
  }
  const std::string_view numbers =
      whole.substr(prefix.size(), whole.size() - prefix.size() - suffix.size());
  return numbers.find_first_not_of("0123456789-") == std::string_view::npos ? 1 : 0;
}

SCA_Result SCA_ReplacementFile::Finish(SCA_FileCommit commit, bool replaces) {
  // A second name never replaces a file; the temporary name is then removed.
  int (*move)(const char*, const char*) = replaces ? ::rename : ::link;
  // A network file system may tell only at the close that a write has failed.
  if (Sync(fd_, commit) != 0 || CloseWritten(std::exchange(fd_, -1)) != 0 ||
      move(asideName_.c_str(), targetName_.c_str()) != 0) {
    const SCA_Result failure = SCA_SystemError();
    Discard();
    return failure;
  }
  if (replaces) asideName_.clear();
  Discard();
  // A failure here leaves a whole new file whose name a power cut may still take back; there is
  // nothing the caller could do about it.
  const SCA_Fd directory(::open(directory_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.IsOpen()) Sync(directory.Get(), commit);
  return SCA_Done;
}

void SCA_ReplacementFile::Discard() {
  SCA_Fd closing(std::exchange(fd_, -1));
  if (!asideName_.empty()) ::unlink(asideName_.c_str());
  asideName_.clear();
}

int SCA_MoveWhole(const char* from, const char* to, unsigned long* error) {
  const SCA_Fd file(SCA_Retry([&] { return ::open(from, O_RDONLY | O_NOFOLLOW | O_CLOEXEC); }));
  const bool isMoved =
      file.IsOpen() && Sync(file.Get(), SCA_FileCommit::Durable) == 0 && ::rename(from, to) == 0;
  return isMoved ? 1 : SCA_SystemError().Store(error);
}
