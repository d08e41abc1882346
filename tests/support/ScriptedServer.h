/// A TCP peer on loopback that plays a script against each connection, on a thread of its own.
#ifndef SCA_TESTS_SUPPORT_SCRIPTEDSERVER_H
#define SCA_TESTS_SUPPORT_SCRIPTEDSERVER_H

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

/// One accepted connection, used by the script's thread.
class ServerConnection {
 public:
  ServerConnection(int fd, const std::atomic<bool>& stopped) : fd_(fd), stopped_(stopped) {}

  /// Sends all bytes; false when the peer is gone or the server stops.
  bool Send(const std::string& bytes);
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
  /// Waits until the server is stopped or the peer closes.
  void WaitForEnd();
  int Fd() const { return fd_; }

 private:
  bool WaitFor(short events);

  const int fd_;
  const std::atomic<bool>& stopped_;
};

/// Listens on a free port of a loopback address from its construction on. The destructor ends the
/// script's waits, joins its thread and closes everything.
class ScriptedServer {
 public:
  using Script = std::function<void(ServerConnection&)>;

  /// @param script   Run for each connection, one after the other, on the server's thread.
  /// @param backlog  Of the listening socket.
  /// @param port     That of a server that has gone, to come back at; 0 takes a free one.
  explicit ScriptedServer(Script script, int backlog = 16, unsigned short port = 0,
                          const char* address = "127.0.0.1");
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  unsigned short Port() const { return port_; }
  int Connections() const { return connections_.load(); }

 private:
  void Run();

  Script script_;
  int listener_ = -1;
  unsigned short port_ = 0;
  std::atomic<bool> stopped_{false};
  std::atomic<int> connections_{0};
  std::thread thread_;
};

/// A reply with the text in chunks of the given size.
std::string ChunkedReply(const std::string& text, std::size_t chunkSize);

#endif  // SCA_TESTS_SUPPORT_SCRIPTEDSERVER_H
