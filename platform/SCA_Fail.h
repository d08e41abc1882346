/// How an operation ends that could not be done. Internal to the library.
#ifndef SCA_PLATFORM_SCA_FAIL_H
#define SCA_PLATFORM_SCA_FAIL_H

/// Stores why it could not. @return 0, for the operation to return in turn.
inline int SCA_Fail(unsigned long code, unsigned long* error) {
  *error = code;
  return 0;
}

#endif  // SCA_PLATFORM_SCA_FAIL_H
