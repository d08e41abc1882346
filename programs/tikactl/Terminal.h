/// The terminal as a screen that is drawn again and again.
#ifndef SCA_PROGRAMS_TIKACTL_TERMINAL_H
#define SCA_PROGRAMS_TIKACTL_TERMINAL_H

#include <termios.h>

#include <cstddef>
#include <string>
#include <vector>

/// While it lives, standard output shows a second screen without a cursor, and keys come at once
/// and are not shown. The destructor restores everything.
class Terminal {
 public:
  /// @return True when standard input and output are one that can be drawn on.
  static bool IsUsable();

  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// @return The columns of standard output; plenty when it is no terminal.
  static std::size_t Width();
  /// Shows the lines in place of what was there; those beyond the last row are left out.
  void Draw(const std::vector<std::string>& lines);
  /// Waits for a key.
  /// @return It, or 0 when none came.
  char WaitForKey(int timeoutMs);

 private:
  termios former_{};
};

#endif  // SCA_PROGRAMS_TIKACTL_TERMINAL_H
