#include "programs/tikaextract/Progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "platform/SCA_Text.h"
#include "programs/common/Escape.h"

namespace {

constexpr std::chrono::milliseconds kBetweenDraws{100};
constexpr std::size_t kUsualWidth = 80;

std::string Size(double bytes) {
  char text[32];
  SCA_FormatSize(static_cast<unsigned long long>(bytes), text, sizeof text);
  return text;
}

// What does not fit would wrap, and could not be erased. Asked each time: windows change. The last
// column stays free, since some terminals wrap when it is written.
std::size_t TerminalWidth() {
  winsize size{};
  const bool isKnown = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return isKnown ? size.ws_col - 1U : kUsualWidth - 1U;
}

}  // namespace

Progress::Progress(bool textGoesToFiles)
    : isShown_(::isatty(STDERR_FILENO) != 0 && (textGoesToFiles || ::isatty(STDOUT_FILENO) == 0)) {}

Progress::~Progress() {
  Erase();
}

void Progress::SetTotal(unsigned long long files, unsigned long long bytes) {
  totalFiles_ = files;
  totalBytes_ = bytes;
}

void Progress::AddExtracted(unsigned long long bytes) {
  ++extracted_;
  bytes_ += bytes;
}

void Progress::AddFailed(unsigned long long bytes) {
  ++failed_;
  bytes_ += bytes;
}

void Progress::AddSkipped(unsigned long long bytes) {
  ++skipped_;
  skippedBytes_ += bytes;
}

double Progress::Seconds() const {
  return std::max(std::chrono::duration<double>(Clock::now() - begin_).count(), 0.001);
}

// By bytes, since large documents take longer than small ones.
std::string Progress::TimeLeft() const {
  const unsigned long long done = bytes_ + skippedBytes_;
  if (bytes_ == 0 || totalBytes_ <= done) return {};
  const auto seconds = static_cast<unsigned long long>(static_cast<double>(totalBytes_ - done) *
                                                       Seconds() / static_cast<double>(bytes_));
  char text[48];
  std::snprintf(text, sizeof text, ", %llu:%02llu left", seconds / 60, seconds % 60);
  return text;
}

void Progress::Show() {
  if (!isShown_ || Clock::now() - shownAt_ < kBetweenDraws) return;
  shownAt_ = Clock::now();
  const std::string total = totalFiles_ > 0 ? "/" + std::to_string(totalFiles_) : "";
  const std::string line =
      "[" + std::to_string(Files()) + total + "] " + Size(static_cast<double>(bytes_)) + ", " +
      Size(static_cast<double>(bytes_) / Seconds()) + "/s, " + std::to_string(failed_) + " failed" +
      TimeLeft() + (remark_.empty() ? "" : "; ") + Printable(remark_);
  Erase();
  std::fputs(ClipToWidth(line, TerminalWidth()).c_str(), stderr);
  std::fflush(stderr);
}

void Progress::PrintLine(const std::string& line) {
  Erase();
  PrintErrorLine(line);
}

std::string Progress::Summary() const {
  char text[200];
  std::snprintf(
      text, sizeof text, "%llu files: %llu extracted, %llu failed, %llu skipped; %s in %.1f s",
      Files(), extracted_, failed_, skipped_, Size(static_cast<double>(bytes_)).c_str(), Seconds());
  return text + (truncated_ == 0 ? std::string()
                                 : "; " + std::to_string(truncated_) + " texts may not be whole");
}

void Progress::Erase() {
  if (isShown_) std::fputs("\r\033[K", stderr);
}
