#include "programs/tikasvc/SelfFigures.h"

#include <filesystem>
#include <fstream>
#include <string>

SelfFigures GetSelfFigures() {
  SelfFigures figures;
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmRSS:" && status >> figures.memory) figures.memory *= 1024;
    if (word == "Threads:") status >> figures.threads;
  }
  std::error_code error;
  std::filesystem::directory_iterator file("/proc/self/fd", error);
  for (; !error && file != std::filesystem::directory_iterator(); file.increment(error)) {
    ++figures.descriptors;
  }
  // The directory that is being read is one of them.
  if (figures.descriptors > 0) --figures.descriptors;
  return figures;
}
