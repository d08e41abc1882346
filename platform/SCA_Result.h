/// How an internal operation ended, and how that becomes the code and the `int` of the interface.
/// Internal to the library.
///
/// Inside the library whatever can fail gives an `SCA_Result`, which the compiler does not let a
/// caller drop; out-parameters hold something once it is done. An operation of the interface turns
/// it into its `int` and its `*error` in one place, where it returns:
///
///     SCA_Result BlockFile::Open(const char* fileName) {
///       fd_ = SCA_Fd(::open(fileName, O_RDONLY | O_CLOEXEC));
///       if (!fd_.IsOpen()) return SCA_SystemError();
///       if (const SCA_Result read = ReadHeader(); read.HasFailed()) return read;
///       return isEmpty_ ? SCA_Result(SCA_ErrorFileDamaged) : SCA_Done;
///     }
///
///     int SCA_BlockFile::Open(const char* fileName, unsigned long* error) {
///       if (fileName == nullptr) return SCA_Fail(EINVAL, error);
///       return SCA_Guarded([&] { return file_->Open(fileName); }).Store(error);
///     }
#ifndef SCA_PLATFORM_SCA_RESULT_H
#define SCA_PLATFORM_SCA_RESULT_H

#include <cerrno>
#include <new>
#include <system_error>

/// 0 for done, else a code of SCA_Error.h.
class [[nodiscard]] SCA_Result {
 public:
  constexpr SCA_Result() = default;  ///< Done.
  /// @param code  0 counts as done.
  constexpr explicit SCA_Result(unsigned long code) : code_(code) {}

  constexpr bool HasFailed() const { return code_ != 0; }
  constexpr unsigned long Code() const { return code_; }

  /// The way out of the library. @param error  Receives the code of a failure.
  /// @return 1 when it is done, else 0.
  int Store(unsigned long* error) const {
    if (!HasFailed()) return 1;
    *error = code_;
    return 0;
  }

 private:
  unsigned long code_ = 0;
};

constexpr SCA_Result SCA_Done;

/// Ends an operation of the interface with a code. @return 0, for the operation to return in turn.
inline int SCA_Fail(unsigned long code, unsigned long* error) {
  *error = code;
  return 0;
}

/// `errno` as a result, right after the call that has set it; never done.
inline SCA_Result SCA_SystemError() {
  return SCA_Result(static_cast<unsigned long>(errno != 0 ? errno : EIO));
}

/// Runs an operation in which memory or threads may run out: no exception leaves the library.
/// @return Its result; `ENOMEM` or the system's code for an exception.
template <class Operation>
SCA_Result SCA_Guarded(const Operation& operation) noexcept {
  try {
    return operation();
  } catch (const std::bad_alloc&) {
    return SCA_Result(ENOMEM);
  } catch (const std::system_error& failure) {
    return SCA_Result(static_cast<unsigned long>(failure.code().value()));
  }
}

/// Reports the failure of an operation that tells of it by a report, formatted as printf does.
/// @return 0, for the operation to return in turn.
int SCA_Complain(const char* source, int line, unsigned long level, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

#endif  // SCA_PLATFORM_SCA_RESULT_H
