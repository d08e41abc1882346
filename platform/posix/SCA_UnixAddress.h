/// The address of a Unix socket, for paths that do not fit into one.
#ifndef SCA_PLATFORM_POSIX_SCA_UNIXADDRESS_H
#define SCA_PLATFORM_POSIX_SCA_UNIXADDRESS_H

#include <sys/socket.h>
#include <sys/un.h>

#include "platform/posix/SCA_Posix.h"

/// Valid for calls while it lives: a path longer than the 107 bytes that an address holds goes by a
/// descriptor of its directory.
class SCA_UnixAddress {
 public:
  /// @param path  Absolute.
  /// @return `SCA_ErrorSocketPath` when it is not, or is too long; else the system's code for its
  ///         directory.
  SCA_Result Set(const char* path);

  const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&address_); }
  static constexpr socklen_t Length() { return sizeof(sockaddr_un); }

 private:
  SCA_Fd directory_;
  sockaddr_un address_{};
};

#endif  // SCA_PLATFORM_POSIX_SCA_UNIXADDRESS_H
