/// Ends an operation of the interface with a code. Internal to the library; SCA_Result.h is the
/// form in which failures travel inside it.
#ifndef SCA_PLATFORM_SCA_FAIL_H
#define SCA_PLATFORM_SCA_FAIL_H

#include "platform/SCA_Result.h"

/// Stores why it could not. @return 0, for the operation to return in turn.
inline int SCA_Fail(unsigned long code, unsigned long* error) {
  *error = code;
  return 0;
}

#endif  // SCA_PLATFORM_SCA_FAIL_H
