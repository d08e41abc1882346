#include "programs/tikasvc/HostLog.h"

#include <poll.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>

#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Time.h"
#include "programs/common/Escape.h"

namespace {

constexpr unsigned long kMessagesKept = 1000;

thread_local bool isWriting = false;

// The journal says which descriptor it is: standard error may have been redirected.
bool IsJournal(int fd) {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat status {};
  if (stream == nullptr || ::fstat(fd, &status) != 0) return false;
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

std::string Priority(unsigned long level) {
  switch (level) {
    case SCA_LevelError:
      return SD_ERR;
    case SCA_LevelWarning:
      return SD_WARNING;
    case SCA_LevelDebug:
      return SD_DEBUG;
    default:
      return SD_INFO;
  }
}

// The library's reports end in codes, as "(ERR:2)"; a reader wants to know what they mean.
std::string Explained(std::string text) {
  constexpr char kMark[] = "(ERR:";
  const std::size_t mark = text.find(kMark);
  if (mark == std::string::npos) return text;
  const char* digits = text.c_str() + mark + sizeof kMark - 1;
  char* end = nullptr;
  const unsigned long code = std::strtoul(digits, &end, 10);
  if (end == digits || *end != ')') return text;
  return text.insert(static_cast<std::size_t>(end - text.c_str()),
                     std::string(", ") + SCA_ErrorText(code));
}

std::string TimedLine(unsigned long level, const char* text) {
  char now[32];
  SCA_FormatAbsTime(SCA_GetAbsTime(), now, sizeof now);
  return std::string(now) + " " + SCA_LevelText(level) + ": " + text;
}

}  // namespace

HostLog::HostLog(bool withDebug)
    : withDebug_(withDebug), isJournal_(IsJournal(STDERR_FILENO)), log_(nullptr, kMessagesKept, 0) {
  SCA_SetReportSink(&Receive, this);
}

HostLog::~HostLog() {
  SCA_SetReportSink(nullptr, nullptr);
}

void HostLog::Receive(void* context, unsigned long level, const char* /*source*/, int /*line*/,
                      const char* text) {
  auto* const self = static_cast<HostLog*>(context);
  // What the writing of a report reports in turn would never end.
  if (isWriting || (level <= SCA_LevelDebug && !self->withDebug_)) return;
  isWriting = true;
  try {
    self->Write(level, Explained(text));
  } catch (const std::exception&) {
    self->log_.AddMessage(level, "%s", text);  // which takes no memory once the log is full
  }
  isWriting = false;
}

void HostLog::Write(unsigned long level, const std::string& text) {
  log_.AddMessage(level, "%s", text.c_str());
  const SCA_LockGuard guard(lock_);
  if (lost_ > 0 && Print(SCA_LevelWarning, std::to_string(lost_) + " lines could not be written " +
                                               "here; the debug log may have them")) {
    lost_ = 0;
  }
  if (!Print(level, text)) ++lost_;
}

// A reader that has stalled must not stop the host. A pipe that takes anything takes so many bytes
// at once.
bool HostLog::Print(unsigned long level, const std::string& text) {
  const std::string shown = Printable(text);
  std::string line = isJournal_ ? Priority(level) + shown : TimedLine(level, shown.c_str());
  if (line.size() >= PIPE_BUF) line.resize(PIPE_BUF - 1);
  line += '\n';
  pollfd entry{STDERR_FILENO, POLLOUT, 0};
  if (::poll(&entry, 1, 0) < 1 || (entry.revents & POLLOUT) == 0) return false;
  return ::write(STDERR_FILENO, line.data(), line.size()) >= 0;
}

void Say(unsigned long level, const char* format, ...) {
  char text[2048];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  SCA_GetReportFunction("tikasvc", __LINE__)(level, "%s", text);
}
