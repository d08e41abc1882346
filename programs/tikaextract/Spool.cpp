#include "programs/tikaextract/Spool.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "programs/common/Advice.h"
#include "programs/common/Escape.h"
#include "programs/common/Input.h"

namespace {

constexpr char kInput[] = "/proc/self/fd/0";

// A regular file of which nothing has been read, and which this account may open itself.
bool IsWholeFile() {
  struct stat status {};
  if (::fstat(STDIN_FILENO, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (::lseek(STDIN_FILENO, 0, SEEK_CUR) != 0) return false;
  const int fd = ::open(kInput, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd >= 0) ::close(fd);
  return fd >= 0;
}

}  // namespace

std::string Spool::Fill(SCA_Event* cancel) {
  path_ = kInput;
  return IsWholeFile() ? std::string() : Copy(cancel);
}

std::string Spool::Copy(SCA_Event* cancel) {
  constexpr std::size_t kBlock = 256UL << 10;
  const auto complain = [](unsigned long error) {
    return "cannot write standard input to a temporary file in " +
           Quoted(OwnFile::TemporaryDirectory()) + ": " + Explain(error);
  };
  unsigned long error = copy_.OpenTemporary();
  if (error != 0) return complain(error);
  path_ = copy_.PathInProcess();
  std::vector<char> block(kBlock);
  for (;;) {
    const long length = ReadUnlessCancelled(STDIN_FILENO, block.data(), block.size(), cancel);
    if (length < 0) {
      return "cannot read standard input: " + Explain(static_cast<unsigned long>(errno));
    }
    if (length == 0) return {};
    error = copy_.Append({block.data(), static_cast<std::size_t>(length)});
    if (error != 0) return complain(error);
  }
}
