#include "platform/SCA_Memory.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>

namespace {

constexpr unsigned long long kUnknown = std::numeric_limits<unsigned long long>::max();

// A line of a file that holds a word and a number.
unsigned long long Figure(const std::string& path, const std::string& wanted) {
  std::ifstream file(path);
  std::string word;
  unsigned long long value = 0;
  while (file >> word >> value) {
    if (word == wanted) return value;
    file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return kUnknown;
}

unsigned long long Number(const std::string& path) {
  std::ifstream file(path);
  unsigned long long value = 0;
  return file >> value ? value : kUnknown;  // "max" is no number
}

// What the limits of the group and of those above it leave. Pages of files that were not used
// lately are given back before anything is refused.
unsigned long long LeftByGroups() {
  const std::string root = "/sys/fs/cgroup";
  std::ifstream file("/proc/self/cgroup");
  std::string group;
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("0::", 0) == 0) group = line.substr(3);
  }
  unsigned long long left = kUnknown;
  for (; !group.empty() && group != "/"; group.resize(group.rfind('/'))) {
    const std::string place = root + group;
    const unsigned long long limit = Number(place + "/memory.max");
    const unsigned long long used = Number(place + "/memory.current");
    if (limit == kUnknown || used == kUnknown) continue;
    const unsigned long long files = Figure(place + "/memory.stat", "inactive_file");
    const unsigned long long kept = files < used ? used - files : used;
    left = std::min(left, limit > kept ? limit - kept : 0);
  }
  return left;
}

}  // namespace

unsigned long long SCA_GetAvailableMemory() {
  const unsigned long long kilobytes = Figure("/proc/meminfo", "MemAvailable:");
  return std::min(kilobytes != kUnknown ? kilobytes * 1024 : kUnknown, LeftByGroups());
}
