/// How an operation ends that could not be done. Internal to the library.
#ifndef SCA_PLATFORM_SCA_FAIL_H
#define SCA_PLATFORM_SCA_FAIL_H

#include <cerrno>
#include <new>
#include <system_error>

/// Stores why it could not. @return 0, for the operation to return in turn.
inline int SCA_Fail(unsigned long code, unsigned long* error) {
  *error = code;
  return 0;
}

/// Runs an operation in which memory or threads may run out: no exception leaves the library.
/// @param operation  Stores its own failures in `*error`.
/// @return Its result; or 0 with `ENOMEM`, or the system's code, in `*error`.
template <class Operation>
int SCA_Guarded(unsigned long* error, const Operation& operation) noexcept {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return SCA_Fail(ENOMEM, error);
  } catch (const std::system_error& failure) {
    return SCA_Fail(static_cast<unsigned long>(failure.code().value()), error);
  }
}

#endif  // SCA_PLATFORM_SCA_FAIL_H
