#include "platform/SCA_PortHolder.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

constexpr char kEstablished[] = "01";
constexpr char kListening[] = "0A";

// How a process's descriptors name the sockets that have a port of their own and are in a state:
// "socket:[INODE]".
std::vector<std::string> SocketsOn(unsigned short port, const char* state) {
  std::vector<std::string> sockets;
  for (const char* table : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
    std::ifstream file(table);
    std::string line;
    std::getline(file, line);  // titles
    while (std::getline(file, line)) {
      std::istringstream words(line);
      // Number, local address, remote address, state, queues, timer, retransmits, user, time-out.
      std::string word[9];
      std::string inode;
      for (std::string& each : word) words >> each;
      words >> inode;
      const std::size_t colon = word[1].rfind(':');
      if (colon == std::string::npos || word[3] != state) continue;
      if (std::strtoul(word[1].c_str() + colon + 1, nullptr, 16) != port) continue;
      sockets.push_back("socket:[" + inode + "]");
    }
  }
  return sockets;
}

std::vector<std::string> ListenersOn(unsigned short port) {
  return SocketsOn(port, kListening);
}

// Whether a process holds one of the sockets; `isTold` becomes false when it cannot be seen.
bool Holds(const fs::path& process, const std::vector<std::string>& sockets, bool* isTold) {
  std::error_code error;
  fs::directory_iterator entry(process / "fd", error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code gone;  // it may be closed meanwhile
    const std::string target = fs::read_symlink(entry->path(), gone);
    if (std::find(sockets.begin(), sockets.end(), target) != sockets.end()) return true;
  }
  if (error && error != std::errc::no_such_file_or_directory) *isTold = false;
  return false;
}

}  // namespace

SCA_PortHolder SCA_FindPortHolder(unsigned short port, unsigned long group) {
  const std::vector<std::string> sockets = ListenersOn(port);
  if (sockets.empty()) return SCA_PortHolder::Unknown;
  bool isTold = true;
  std::error_code error;
  fs::directory_iterator entry("/proc", error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const int pid = std::atoi(entry->path().filename().c_str());
    if (pid == 0 || ::getpgid(pid) != static_cast<pid_t>(group)) continue;
    if (Holds(entry->path(), sockets, &isTold)) return SCA_PortHolder::Ours;
  }
  // A process that held the port may have ended before it was looked at.
  const bool isSame = ListenersOn(port) == sockets;
  return isTold && !error && isSame ? SCA_PortHolder::Stranger : SCA_PortHolder::Unknown;
}

unsigned long SCA_CountConnections(unsigned short port) {
  return SocketsOn(port, kEstablished).size();
}
