/// Who a server belongs to.
#ifndef SCA_PROGRAMS_TIKASVC_SERVEROWNERS_H
#define SCA_PROGRAMS_TIKASVC_SERVEROWNERS_H

#include <deque>
#include <string>

/// A server belongs to the connection that made it, known by its agent's id, or to the host.
/// Connections that have asked for it since stand in line.
/// Threads: one at a time.
class ServerOwners {
 public:
  /// For `agent` of what the host itself asks for.
  static constexpr unsigned long kHost = 0xFFFFFFFF;

  explicit ServerOwners(unsigned long agent) : owner_(agent) {}

  /// A connection or the host asks for the server. What the host asks for belongs to it, even if a
  /// connection was quicker.
  void Claim(unsigned long agent);
  /// A connection signs off from its servers, which pass to the next in line.
  /// @return True when it was the owner and there is none.
  bool Leave(unsigned long agent);
  /// A connection broke: its servers stay and belong to the host.
  void Forget(unsigned long agent);

  /// @return True while a connection owns the server or has asked for it: it counts on its port.
  bool HasConnection() const { return owner_ != kHost || !claims_.empty(); }

  /// @return "host", or "connection 12".
  static std::string TextOf(unsigned long agent);
  std::string Text() const { return TextOf(owner_); }

 private:
  void Withdraw(unsigned long agent);

  unsigned long owner_;
  std::deque<unsigned long> claims_;  // of other connections, the oldest first; where the host
                                      // is the owner it stays so
};

#endif  // SCA_PROGRAMS_TIKASVC_SERVEROWNERS_H
