#include "bench/Machine.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

constexpr char kDefaultFile[] = "/proc/sys/net/ipv4/tcp_congestion_control";

std::string Processor() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("model name", 0) == 0) return line.substr(line.find(':') + 2);
  }
  return "unknown processor";
}

// Processor time of this process and all below it, those that have ended included, in ticks.
double TreeTicks() {
  struct Process {
    int parent = 0;
    double ticks = 0;
  };
  std::map<int, Process> processes;
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const int pid = std::atoi(entry.path().filename().c_str());
    std::ifstream file(entry.path() / "stat");
    std::string line;
    if (pid == 0 || !std::getline(file, line)) continue;
    // The name before it may hold anything.
    std::istringstream fields(line.substr(line.rfind(')') + 1));
    std::string skipped;
    Process process;
    fields >> skipped >> process.parent;
    for (int i = 0; i < 9; ++i) fields >> skipped;
    for (int i = 0; i < 4; ++i) {
      double ticks = 0;
      fields >> ticks;
      process.ticks += ticks;
    }
    processes[pid] = process;
  }
  const auto isOurs = [&processes](int pid) {
    for (std::size_t steps = 0; pid > 1 && steps < processes.size(); ++steps) {
      if (pid == ::getpid()) return true;
      const auto found = processes.find(pid);
      pid = found != processes.end() ? found->second.parent : 0;
    }
    return false;
  };
  double sum = 0;
  for (const auto& [pid, process] : processes) sum += isOurs(pid) ? process.ticks : 0;
  return sum;
}

std::string chosenControl;  // changed between measurements, on the thread that measures

}  // namespace

// Stands before the C library's: the peers make their sockets where nothing else reaches them.
extern "C" int socket(int domain, int type, int protocol) noexcept {
  const int fd = static_cast<int>(::syscall(SYS_socket, domain, type, protocol));
  if (fd >= 0 && domain == AF_INET && !chosenControl.empty()) {
    ::setsockopt(fd, IPPROTO_TCP, TCP_CONGESTION, chosenControl.data(),
                 static_cast<socklen_t>(chosenControl.size()));
  }
  return fd;
}

void PrintMachine() {
  utsname system{};
  ::uname(&system);
  std::printf("sca_tika %s, %s, %u cores, %s %s, compiler %s\n", SCA_VERSION, Processor().c_str(),
              std::thread::hardware_concurrency(), system.sysname, system.release, __VERSION__);
}

void WarnOfLoad() {
  constexpr double kMost = 0.5;
  double load = 0;
  if (::getloadavg(&load, 1) != 1 || load <= kMost) return;
  std::fprintf(stderr,
               "warning: the load of this machine is %.2f, above %.1f: something else runs or has "
               "just run;\n         times are upper bounds, compare ratios with care\n",
               load, kMost);
}

Others::Others() : since_(Now()) {}

Others::Ticks Others::Now() {
  Ticks now;
  now.passed =
      std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count() *
      static_cast<double>(::sysconf(_SC_CLK_TCK)) * std::thread::hardware_concurrency();
  std::ifstream file("/proc/stat");
  std::string name;
  double idle = 0;
  double waiting = 0;  // for a disk, with nothing else to do
  file >> name >> idle >> idle >> idle >> idle >> waiting;
  now.unused = idle + waiting;
  now.ours = TreeTicks();
  return now;
}

std::optional<double> Others::Take() {
  constexpr double kLeast = 80;  // ticks, of which one or two may be wrong
  const Ticks now = Now();
  const double passed = now.passed - since_.passed;
  if (passed < kLeast) return std::nullopt;
  const double taken = passed - (now.unused - since_.unused) - (now.ours - since_.ours);
  since_ = now;
  return std::max(0.0, taken / passed);
}

std::string DefaultCongestionControl() {
  std::string name;
  std::ifstream(kDefaultFile) >> name;
  return name;
}

std::vector<std::string> CongestionControls() {
  const std::string usual = DefaultCongestionControl();
  return usual == "cubic" ? std::vector<std::string>{usual}
                          : std::vector<std::string>{usual, "cubic"};
}

bool MayChoose(const std::string& congestionControl) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool may = ::setsockopt(fd, IPPROTO_TCP, TCP_CONGESTION, congestionControl.data(),
                                static_cast<socklen_t>(congestionControl.size())) == 0;
  ::close(fd);
  return may;
}

void ChooseCongestionControl(const std::string& name) {
  chosenControl = name;
}

std::string CongestionControlInUse() {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const int fd = std::atoi(entry.path().filename().c_str());
    sockaddr_storage peer{};
    socklen_t peerLength = sizeof peer;
    char name[16] = "";
    socklen_t length = sizeof name - 1;
    if (::getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &peerLength) == 0 &&
        ::getsockopt(fd, IPPROTO_TCP, TCP_CONGESTION, name, &length) == 0) {
      names.insert(name);
    }
  }
  std::string all;
  for (const std::string& name : names) all += (all.empty() ? "" : " ") + name;
  return all;
}

ScratchDir::ScratchDir()
    : path_((std::filesystem::temp_directory_path() / "sca-bench-XXXXXX").string()) {
  if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("cannot create " + path_);
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ScratchDir::MakeFile(const std::string& name, unsigned long long size) const {
  const std::string path = (std::filesystem::path(path_) / name).string();
  std::ofstream file(path, std::ios::binary);
  const std::string block(1 << 16, 'x');
  for (unsigned long long left = size; left > 0;) {
    const auto count = std::min<unsigned long long>(left, block.size());
    file.write(block.data(), static_cast<std::streamsize>(count));
    left -= count;
  }
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
  return path;
}
