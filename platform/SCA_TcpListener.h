/// A listening TCP port. Internal to the library.
/// Threads: one thread accepts; any thread may wake it.
#ifndef SCA_PLATFORM_SCA_TCPLISTENER_H
#define SCA_PLATFORM_SCA_TCPLISTENER_H

#include "platform/SCA_Object.h"

/// Where a listener takes connections from.
enum class SCA_ListenScope { Loopback, AllInterfaces };

class SCA_TcpListener : public SCA_Object {
 public:
  SCA_TcpListener();
  ~SCA_TcpListener() override;  ///< Closes the port.
  SCA_TcpListener(const SCA_TcpListener&) = delete;
  SCA_TcpListener& operator=(const SCA_TcpListener&) = delete;

  /// Binds the port, 0 for a free one, and listens: on 127.0.0.1, or on every address of both
  /// families.
  int Open(SCA_ListenScope scope, unsigned short port, unsigned long* error);
  /// Stops listening; connections that were not accepted are reset.
  void Close();
  /// @return The bound port; 0 before `Open`.
  unsigned short GetPort() const { return port_; }

  /// Waits for a connection, set up for small packets and for noticing a peer that is gone.
  /// @param handle  Receives its descriptor, which the caller owns.
  /// @param error   `EINTR` after `Wake`, else the system's error.
  int Accept(int* handle, unsigned long* error);
  /// Ends one `Accept`, the present or the next one.
  void Wake();

 private:
  int fd_ = -1;
  int wakeFd_ = -1;
  unsigned short port_ = 0;
};

#endif  // SCA_PLATFORM_SCA_TCPLISTENER_H
