/// One connection of a command server, as its handlers and events see it.
/// Threads: any thread.
#ifndef SCA_CONTROL_SCA_NETSERVERAGENT_H
#define SCA_CONTROL_SCA_NETSERVERAGENT_H

#include <cstdint>

#include "control/SCA_NetMessage.h"
#include "platform/SCA_Atomic.h"
#include "platform/SCA_ThreadObj.h"

/// Made by the server for each accepted connection, which a thread of its own serves; handlers and
/// events get it as the key of the connection.
class SCA_API SCA_NetServerAgent : public SCA_ThreadObj {
 public:
  /// The number of the connection, given before the connect event and not reused while the
  /// server exists.
  unsigned long GetId() const { return id_.Get(); }
  /// @return 1.
  int SetId(unsigned long id) {
    id_.Set(static_cast<std::uint32_t>(id));
    return 1;
  }
  /// @return 1 when the peer has passed a login, or is on the Unix socket, where the system
  ///         identifies its account; 0 for TCP in mode 0, which requires none.
  int IsAuthenticated() const { return isAuthenticated_.Get(); }
  /// @return 1 for the transport's own kinds of frames, 2 to 11.
  int IsInternalCommand(unsigned long code) const { return code >= 2 && code <= 11 ? 1 : 0; }

 protected:
  SCA_NetServerAgent();
  ~SCA_NetServerAgent() override;

  void SetAuthenticated(bool isAuthenticated) { isAuthenticated_.Set(isAuthenticated ? 1 : 0); }

 private:
  SCA_AtomicValue<std::uint32_t> id_{0xFFFFFFFF};
  SCA_AtomicValue<int> isAuthenticated_{0};
};

#endif  // SCA_CONTROL_SCA_NETSERVERAGENT_H
