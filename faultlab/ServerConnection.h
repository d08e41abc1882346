/// The server's side of TCP connections, for peers that misbehave on purpose.
#ifndef SCA_FAULTLAB_SERVERCONNECTION_H
#define SCA_FAULTLAB_SERVERCONNECTION_H

#include <atomic>
#include <string>
#include <string_view>

/// Ends all waits of connections and listeners at once. Threads: any.
class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  void Set();
  bool IsSet() const { return isSet_.load(); }
  int Fd() const { return fd_; }  ///< Readable from `Set` on.

 private:
  const int fd_;
  std::atomic<bool> isSet_{false};
};

/// One accepted connection; owns its descriptor. Used by one thread.
class ServerConnection {
 public:
  ServerConnection(int fd, const StopSignal& stop) : fd_(fd), stop_(stop) {}
  ~ServerConnection();
  ServerConnection(const ServerConnection&) = delete;
  ServerConnection& operator=(const ServerConnection&) = delete;

  /// Sends all bytes; false when the peer is gone or the server stops.
  bool Send(std::string_view bytes);
  /// Receives up to `limit` bytes; empty when the peer has closed or the server stops.
  std::string Receive(std::size_t limit = 65536);
  /// Receives without looking at the bytes; gives their number, 0 at the end.
  std::size_t Discard();
  /// Receives until the text ends a message's header; gives all bytes received.
  std::string ReceiveHeader();
  /// Receives a whole request with its Content-Length body; gives all bytes received.
  std::string ReceiveRequest();
  /// Ends sending, so that the peer sees an orderly close.
  void CloseWrite();
  /// Makes the close that follows a reset.
  void ResetOnClose();
  /// Waits until the server is stopped, the peer closes, or the time is over (-1: for ever).
  /// @return True when the time was over first.
  bool WaitForEnd(int timeoutMs = -1);
  int Fd() const { return fd_; }

 private:
  bool WaitFor(short events, int timeoutMs = -1);

  const int fd_;
  const StopSignal& stop_;
};

/// A listening socket of IPv4.
class Listener {
 public:
  /// @param port     0 takes a free one.
  /// @param backlog  Of connections that nobody has accepted; negative only binds the port, which
  ///                 keeps it for a listener in this or another process.
  /// Throws std::system_error.
  Listener(const std::string& address, unsigned short port, int backlog);
  ~Listener() { Close(); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  unsigned short Port() const { return port_; }
  int Fd() const { return fd_; }  ///< For options, which connections inherit.
  /// @return The next connection's descriptor, which the caller owns; -1 once the server stops.
  int Accept(const StopSignal& stop) const;
  /// Refuses connections from now on.
  void Close();

 private:
  int fd_ = -1;
  unsigned short port_ = 0;
};

#endif  // SCA_FAULTLAB_SERVERCONNECTION_H
