#include "programs/tikactl/Terminal.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr char kEnter[] = "\x1b[?1049h\x1b[?25l";
constexpr char kLeave[] = "\x1b[?25h\x1b[?1049l";
constexpr char kHome[] = "\x1b[H";
constexpr char kClearLine[] = "\x1b[K";
constexpr char kClearBelow[] = "\x1b[J";

void Send(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

winsize WindowSize() {
  winsize size{};
  ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size);
  if (size.ws_col == 0) size.ws_col = 80;
  if (size.ws_row == 0) size.ws_row = 24;
  return size;
}

}  // namespace

bool Terminal::IsUsable() {
  const char* type = std::getenv("TERM");
  return ::isatty(STDIN_FILENO) != 0 && ::isatty(STDOUT_FILENO) != 0 && type != nullptr &&
         std::string_view(type) != "dumb";
}

Terminal::Terminal() {
  ::tcgetattr(STDIN_FILENO, &former_);
  termios mode = former_;
  mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
  // Stopped or dumped, the program could not restore the screen.
  mode.c_cc[VSUSP] = _POSIX_VDISABLE;
  mode.c_cc[VQUIT] = _POSIX_VDISABLE;
  ::tcsetattr(STDIN_FILENO, TCSANOW, &mode);
  Send(kEnter);
}

Terminal::~Terminal() {
  Send(kLeave);
  ::tcsetattr(STDIN_FILENO, TCSANOW, &former_);
}

std::size_t Terminal::Width() {
  constexpr std::size_t kPlenty = 10000;
  return ::isatty(STDOUT_FILENO) != 0 ? WindowSize().ws_col : kPlenty;
}

void Terminal::Draw(const std::vector<std::string>& lines) {
  const std::size_t rows = std::min<std::size_t>(lines.size(), WindowSize().ws_row);
  std::string screen = kHome;
  for (std::size_t i = 0; i < rows; ++i) {
    screen += (i > 0 ? "\n" : "") + lines[i] + kClearLine;
  }
  Send(screen + kClearBelow);
}

char Terminal::WaitForKey(int timeoutMs) {
  pollfd entry{STDIN_FILENO, POLLIN, 0};
  if (::poll(&entry, 1, timeoutMs) <= 0) return 0;
  char key = 0;
  // A closed terminal reads as an end, again and again.
  return ::read(STDIN_FILENO, &key, 1) == 1 ? key : 'q';
}
