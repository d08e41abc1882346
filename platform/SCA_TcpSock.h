/// One end of a TCP connection, or of one over a Unix socket.
/// Threads: one thread at a time per socket, except that any thread may set its cancel event and
/// call `Shutdown` while it is connected.
#ifndef SCA_PLATFORM_SCA_TCPSOCK_H
#define SCA_PLATFORM_SCA_TCPSOCK_H

#include "platform/SCA_Object.h"
#include "platform/SCA_Sync.h"

class SCA_File;

/// `SetOption` number: send small packets at once (TCP_NODELAY); the value is 1 or 0.
/// @note Inherited: the number has no meaning of its own.
constexpr int SCA_SockOptionNoDelay = 3;
/// `SetOption` number: another send follows the next one at once, so that both may travel in one
/// packet: what is sent next may be kept back until then. Holds for one send. The value is 1 or 0.
constexpr int SCA_SockOptionMoreFollows = 5;
/// `SetOption` number: a receive is content with what was read ahead (1), or asks the system for
/// more while it has room (0, at first).
constexpr int SCA_SockOptionTakeHeld = 6;

/// Milliseconds without progress after which a receive or a send gives up, until `SetIdleTimeout`
/// or a wait says otherwise.
constexpr unsigned long SCA_SockIdleTimeoutMs = 60000;

/// The operations of a connected stream socket. All give 1 on success, or 0 with the code in
/// `*error`: `ETIMEDOUT` for a time-out, `ECONNRESET` when the peer has closed,
/// `SCA_ErrorCancelled` when the cancel event was set, else the system's error.
class SCA_API SCA_VirtualTcpSock : public SCA_Object {
 public:
  /// Connects to the first address of the host that answers.
  /// @param host       Name or numeric address, 1 to 259 bytes; or the path of a Unix socket, which
  ///                   begins with a slash and fits `SCA_MaxPath`: the port is then not used.
  /// @param timeoutMs  Limit for name resolution and all addresses together; 0 stands for
  ///                   `SCA_SockIdleTimeoutMs`, `SCA_Infinite` for no limit.
  virtual int Connect(const char* host, unsigned short port, unsigned long timeoutMs,
                      unsigned long* error) = 0;

  /// Waits until a receive would not block. An orderly close by the peer ends the wait with
  /// success, and the receive then fails; a broken connection fails the wait.
  /// @param timeoutMs  0 only asks. Also bounds the receives and sends that follow.
  virtual int WaitForData(unsigned long timeoutMs, unsigned long* error) = 0;

  /// Takes what has arrived, waiting for the first byte.
  /// @param length    Capacity of `buffer` in bytes, > 0.
  /// @param received  Receives 1 to `length`; untouched on failure.
  virtual int Receive(char* buffer, unsigned long length, unsigned long* received,
                      unsigned long* error) = 0;

  /// Sends all `length` bytes or fails.
  /// @param sent  Receives the bytes handed to the system, also on failure.
  virtual int Send(const char* buffer, unsigned long length, unsigned long* sent,
                   unsigned long* error) = 0;

  /// Sends the next bytes of a file without copying them through this process, where the system
  /// can do that and it costs less than `Send`.
  /// @param file    Open for reading; the place of its next read moves.
  /// @param length  Bytes to send, > 0.
  /// @param sent    Receives the bytes handed to the system, also on failure. Fewer than `length`
  ///                on success: the file is to be read on and sent by `Send`, which tell why when
  ///                its end was reached or something failed. A file that is cut before the peer has
  ///                read may arrive with zeros where its new end is.
  virtual int SendFile(SCA_File* file, unsigned long length, unsigned long* sent,
                       unsigned long* error);

  virtual int SetOption(int option, int value) = 0;

  /// Lets waits end early: a blocked connect, wait, receive or send checks the event at least every
  /// 100 ms, a wait also at its start. An auto-reset event ends one operation.
  /// @param cancel  Not owned; null for none. Must live until it is replaced.
  virtual void SetCancelEvent(SCA_Event* cancel) = 0;

  /// @param timeoutMs  How long a receive or send may stay without progress; 0 stands for
  ///                   `SCA_SockIdleTimeoutMs`.
  virtual void SetIdleTimeout(unsigned long timeoutMs) = 0;

  /// Ends the connection in both directions; waits in other threads end at once.
  virtual void Shutdown() = 0;
};

/// @param handle  A connected descriptor that the socket takes over, or -1 for a socket that is not
///                connected yet.
/// @return The object, which the caller ends by `Destroy()`; null when it cannot be created (a
///         handle is then closed).
SCA_API SCA_VirtualTcpSock* SCA_CreateTcpSock(int handle);

/// Writes "host:port" as people read it, an IPv6 address in brackets: "[::1]:9998".
/// @param size  Capacity of `text` in bytes, > 0; `SCA_HostPortSize` holds every host of 259 bytes.
/// @return 1, or 0 when the text was cut.
SCA_API int SCA_FormatHostPort(const char* host, unsigned short port, char* text,
                               unsigned long size);
constexpr unsigned long SCA_HostPortSize = 268;

/// Owner of a socket that `SCA_CreateTcpSock(-1)` made; forwards every operation to it. Invalid
/// when none could be made; no operation may then be called.
class SCA_API SCA_TcpSock : public SCA_VirtualTcpSock {
 public:
  SCA_TcpSock();
  SCA_TcpSock(const SCA_TcpSock&) = delete;
  SCA_TcpSock& operator=(const SCA_TcpSock&) = delete;

  int Connect(const char* host, unsigned short port, unsigned long timeoutMs,
              unsigned long* error) override;
  int WaitForData(unsigned long timeoutMs, unsigned long* error) override;
  int Receive(char* buffer, unsigned long length, unsigned long* received,
              unsigned long* error) override;
  int Send(const char* buffer, unsigned long length, unsigned long* sent,
           unsigned long* error) override;
  int SendFile(SCA_File* file, unsigned long length, unsigned long* sent,
               unsigned long* error) override;
  int SetOption(int option, int value) override;
  void SetCancelEvent(SCA_Event* cancel) override;
  void SetIdleTimeout(unsigned long timeoutMs) override;
  void Shutdown() override;

 private:
  SCA_Owned<SCA_VirtualTcpSock> socket_;
};

#endif  // SCA_PLATFORM_SCA_TCPSOCK_H
