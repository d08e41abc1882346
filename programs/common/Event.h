/// An event that a program can rely on.
#ifndef SCA_PROGRAMS_COMMON_EVENT_H
#define SCA_PROGRAMS_COMMON_EVENT_H

#include <new>

#include "platform/SCA_Sync.h"

/// Is there once it is made: where memory lacks, its maker throws. A program whose stop event is
/// not there would run on for ever.
class ProgramEvent : public SCA_Event {
 public:
  ProgramEvent(int manualReset, int initialState) : SCA_Event(manualReset, initialState) {
    if (IsValid() == 0) throw std::bad_alloc();
  }
};

#endif  // SCA_PROGRAMS_COMMON_EVENT_H
