/// A TCP peer on loopback that plays a script against each connection, on a thread of its own.
#ifndef SCA_TESTS_SUPPORT_SCRIPTEDSERVER_H
#define SCA_TESTS_SUPPORT_SCRIPTEDSERVER_H

#include <atomic>
#include <cstdio>
#include <functional>
#include <string>
#include <thread>

#include "faultlab/ServerConnection.h"

/// Listens on a free port of a loopback address from its construction on. The destructor ends the
/// script's waits, joins its thread and closes everything.
class ScriptedServer {
 public:
  using Script = std::function<void(ServerConnection&)>;

  /// @param script   Run for each connection, one after the other, on the server's thread.
  /// @param backlog  Of the listening socket.
  /// @param port     That of a server that has gone, to come back at; 0 takes a free one.
  explicit ScriptedServer(Script script, int backlog = 16, unsigned short port = 0,
                          const char* address = "127.0.0.1")
      : script_(std::move(script)), listener_(address, port, backlog), thread_([this] { Run(); }) {}
  ~ScriptedServer() {
    stop_.Set();
    thread_.join();
  }
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  unsigned short Port() const { return listener_.Port(); }
  int Connections() const { return connections_.load(); }

 private:
  void Run() {
    for (int fd = -1; (fd = listener_.Accept(stop_)) >= 0;) {
      connections_.fetch_add(1);
      ServerConnection connection(fd, stop_);
      script_(connection);
    }
  }

  Script script_;
  Listener listener_;
  StopSignal stop_;
  std::atomic<int> connections_{0};
  std::thread thread_;
};

/// The answer to `GET /version`, after which a server closes.
constexpr char kVersionReply[] = "HTTP/1.1 200 OK\r\nContent-Length: 17\r\n\r\nApache Tika 3.3.2";

/// A reply with the text in chunks of the given size.
inline std::string ChunkedReply(const std::string& text, std::size_t chunkSize) {
  std::string reply = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (std::size_t begin = 0; begin < text.size(); begin += chunkSize) {
    const std::string chunk = text.substr(begin, chunkSize);
    char size[32];
    std::snprintf(size, sizeof size, "%zX\r\n", chunk.size());
    reply += size + chunk + "\r\n";
  }
  return reply + "0\r\n\r\n";
}

#endif  // SCA_TESTS_SUPPORT_SCRIPTEDSERVER_H
