#include "programs/tikasvc/SelfFigures.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

SelfFigures GetSelfFigures() {
  SelfFigures figures;
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:" && status >> figures.memory) figures.memory *= 1024;
    if (word == "Threads:") status >> figures.threads;
  }
  std::error_code error;
  const std::filesystem::directory_iterator files("/proc/self/fd", error);
  // The directory that is being read is one of them.
  const auto count = std::distance(begin(files), end(files));
  figures.descriptors = count > 0 ? static_cast<unsigned long>(count - 1) : 0;
  return figures;
}
