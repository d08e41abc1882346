#include "programs/tikaextract/Progress.h"

#include <unistd.h>

#include <cstdio>

namespace {

constexpr int kMaxNameBytes = 60;  // keeps the line on one row

}  // namespace

Progress::Progress(std::size_t files, bool textGoesToFiles)
    : files_(files),
      isShown_(::isatty(STDERR_FILENO) != 0 && (textGoesToFiles || ::isatty(STDOUT_FILENO) == 0)) {}

Progress::~Progress() {
  Erase();
}

void Progress::Show(std::size_t number, const std::string& file) {
  if (!isShown_) return;
  Erase();
  std::fprintf(stderr, "[%zu/%zu] %.*s", number, files_, kMaxNameBytes, file.c_str());
  std::fflush(stderr);
}

void Progress::PrintLine(const std::string& line) {
  Erase();
  std::fprintf(stderr, "%s\n", line.c_str());
}

void Progress::Erase() {
  if (isShown_) std::fputs("\r\033[K", stderr);
}
