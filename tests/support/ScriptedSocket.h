/// A socket whose peer is a script: it delivers exact pieces, fails at chosen moments, and records
/// what is sent. Stands in for real sockets while a `ScriptedSockets` lives.
#ifndef SCA_TESTS_SUPPORT_SCRIPTEDSOCKET_H
#define SCA_TESTS_SUPPORT_SCRIPTEDSOCKET_H

#include <functional>
#include <string>
#include <vector>

#include "platform/SCA_TcpSock.h"

/// What the peer does. A receive never joins two pieces; one that is larger than the caller's room
/// is delivered in parts.
struct SocketScript {
  static constexpr int kNever = -1;

  std::vector<std::string> pieces;  ///< the input; after it the peer closes
  std::size_t arrived = 0;          ///< so many of them are there before anything is waited for
  int failReceive = kNever;         ///< the receive of this number, from 0, fails ...
  int failWait = kNever;            ///< ... and this wait
  int failSend = kNever;            ///< ... and this send, taking `sendTakes` bytes
  unsigned long failCode = 5;       ///< the code they fail with
  unsigned long sendTakes = 0;
  bool failConnect = false;
  bool ignoresCancel = false;  ///< its waits do not look at the cancel event
  /// Called before the wait, receive or send of a number.
  std::function<void(int)> onWait;
  std::function<void(int)> onReceive;
  std::function<void(int)> onSend;

  // What the client did.
  std::string sent;
  std::vector<unsigned long> sendSizes;
  std::vector<unsigned long> receiveSizes;  ///< room offered to each receive
  std::vector<unsigned long> waitTimeouts;
  std::vector<std::pair<int, int>> options;
  int connects = 0;
};

/// Replaces the socket factory; every socket made meanwhile follows the one script.
class ScriptedSockets {
 public:
  explicit ScriptedSockets(SocketScript* script);
  ~ScriptedSockets();
  ScriptedSockets(const ScriptedSockets&) = delete;
  ScriptedSockets& operator=(const ScriptedSockets&) = delete;
};

/// Cuts a text into pieces of a size, the last one being what is left.
std::vector<std::string> InPieces(const std::string& text, std::size_t size);
/// Cuts a text at positions, which ascend.
std::vector<std::string> CutAt(const std::string& text, const std::vector<std::size_t>& positions);

#endif  // SCA_TESTS_SUPPORT_SCRIPTEDSOCKET_H
