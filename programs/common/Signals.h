/// Turns the signals that a program is asked by into events.
#ifndef SCA_PROGRAMS_COMMON_SIGNALS_H
#define SCA_PROGRAMS_COMMON_SIGNALS_H

#include <atomic>
#include <thread>

#include "platform/SCA_Sync.h"

/// While it exists, SIGINT and SIGTERM set the cancel event; a second one ends the program at once
/// (what it started ends with it). SIGHUP sets the reload event; where there is none, it is one of
/// the others. Made before any other thread, which so inherits the mask.
class Signals {
 public:
  explicit Signals(SCA_Event* cancel, SCA_Event* reload = nullptr);
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// @return The first signal that came to end the program, or 0.
  int Received() const { return received_.load(); }

 private:
  void Wait();

  SCA_Event* const cancel_;
  SCA_Event* const reload_;
  std::atomic<int> received_{0};
  std::atomic<bool> isEnding_{false};
  std::thread thread_;
};

#endif  // SCA_PROGRAMS_COMMON_SIGNALS_H
