#include "programs/tikasvc/FormerLife.h"

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "platform/SCA_Report.h"
#include "programs/tikasvc/HostLog.h"

namespace {

namespace fs = std::filesystem;

constexpr char kMark[] = "TIKASVC_DATA_DIRECTORY";
constexpr int kDeathMs = 5000;  // a killed process that waits for a disk may take that long

// What others own cannot be read, and is not ours.
bool IsMarked(const fs::path& process, const std::string& mark) {
  std::ifstream file(process / "environ", std::ios::binary);
  for (std::string variable; std::getline(file, variable, '\0');) {
    if (variable == mark) return true;
  }
  return false;
}

// By a descriptor, so that the number cannot pass to another process between look and kill.
bool Kill(int pid, const fs::path& process, const std::string& mark) {
  const int fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  if (fd < 0) return false;
  const bool isOurs = IsMarked(process, mark);
  if (isOurs && ::syscall(SYS_pidfd_send_signal, fd, SIGKILL, nullptr, 0) == 0) {
    pollfd death{fd, POLLIN, 0};
    ::poll(&death, 1, kDeathMs);
  }
  ::close(fd);
  return isOurs;
}

}  // namespace

void MarkChildren(const std::string& directory) {
  ::setenv(kMark, directory.c_str(), 1);
}

unsigned long KillLeftovers(const std::string& directory) {
  const std::string mark = std::string(kMark) + "=" + directory;
  unsigned long count = 0;
  std::error_code error;
  fs::directory_iterator entry("/proc", error);
  if (error) {
    Say(SCA_LevelWarning, "cannot look for processes of an earlier service host: /proc: %s",
        error.message().c_str());
  }
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    const int pid = std::atoi(name.c_str());
    if (pid != ::getpid() && Kill(pid, entry->path(), mark)) ++count;
  }
  return count;
}
