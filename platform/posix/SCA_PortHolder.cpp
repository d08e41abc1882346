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

using Sockets = std::vector<std::string>;

constexpr char kEstablished[] = "01";
constexpr char kCloseWait[] = "08";  // the peer has ended its side alone
constexpr char kListening[] = "0A";

// How a process's descriptors name the sockets that have a port of their own and are in one of the
// states: "socket:[INODE]". Nothing when a table cannot be read.
std::optional<Sockets> SocketsOn(unsigned short port, const std::vector<std::string>& states) {
  Sockets sockets;
  for (const char* table : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
    std::error_code error;
    const bool isAbsent = !fs::exists(table, error) && !error;
    if (isAbsent && table == std::string("/proc/self/net/tcp6")) continue;  // there is no IPv6
    std::ifstream file(table);
    std::string line;
    if (!std::getline(file, line)) return std::nullopt;  // titles
    while (std::getline(file, line)) {
      std::istringstream words(line);
      // Number, local address, remote address, state, queues, timer, retransmits, user, time-out.
      std::string word[9];
      std::string inode;
      for (std::string& each : word) words >> each;
      words >> inode;
      const std::size_t colon = word[1].rfind(':');
      if (colon == std::string::npos) continue;
      if (std::find(states.begin(), states.end(), word[3]) == states.end()) continue;
      if (std::strtoul(word[1].c_str() + colon + 1, nullptr, 16) != port) continue;
      sockets.push_back("socket:[" + inode + "]");
    }
    if (file.bad()) return std::nullopt;
  }
  return sockets;
}

std::optional<Sockets> ListenersOn(unsigned short port) {
  return SocketsOn(port, {kListening});
}

// Whether a process holds one of the sockets; `isTold` becomes false when it cannot be seen.
bool Holds(const fs::path& process, const Sockets& sockets, bool* isTold) {
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
  const std::optional<Sockets> sockets = ListenersOn(port);
  if (!sockets || sockets->empty()) return SCA_PortHolder::Unknown;
  bool isTold = true;
  std::error_code error;
  fs::directory_iterator entry("/proc", error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    const int pid = std::atoi(entry->path().filename().c_str());
    if (pid == 0 || ::getpgid(pid) != static_cast<pid_t>(group)) continue;
    if (Holds(entry->path(), *sockets, &isTold)) return SCA_PortHolder::Ours;
  }
  // A process that held the port may have ended before it was looked at.
  const bool isSame = ListenersOn(port) == sockets;
  return isTold && !error && isSame ? SCA_PortHolder::Stranger : SCA_PortHolder::Unknown;
}

std::optional<unsigned long> SCA_CountConnections(unsigned short port) {
  const std::optional<Sockets> sockets = SocketsOn(port, {kEstablished, kCloseWait});
  if (!sockets) return std::nullopt;
  return sockets->size();
}
