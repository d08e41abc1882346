/// Turns the signals that ask a program to end into a cancel event.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SIGNALS_H
#define SCA_PROGRAMS_TIKAEXTRACT_SIGNALS_H

#include <atomic>
#include <thread>

#include "platform/SCA_Sync.h"

/// While it lives, SIGINT, SIGTERM and SIGHUP set the event; a second one ends the program at once
/// (what it started ends with it). Made before any other thread, which so inherits the mask.
class Signals {
 public:
  explicit Signals(SCA_Event* cancel);
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// @return The first signal that came, or 0.
  int Received() const { return received_.load(); }

 private:
  void Wait();

  SCA_Event* const cancel_;
  std::atomic<int> received_{0};
  std::thread thread_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SIGNALS_H
