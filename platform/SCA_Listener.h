/// Where a server takes connections: a TCP port, a Unix socket, or both. Internal to the library.
/// Threads: one thread accepts; any thread may open, and wake the accepting one.
#ifndef SCA_PLATFORM_SCA_LISTENER_H
#define SCA_PLATFORM_SCA_LISTENER_H

#include <array>
#include <memory>

#include "platform/SCA_Lock.h"
#include "platform/SCA_Object.h"
#include "platform/SCA_Result.h"

/// Where a TCP port takes connections from.
enum class SCA_ListenScope { Loopback, AllInterfaces };

/// The network that a peer is in: an IPv4 address, mapped; or the upper half of an IPv6 address, of
/// whose lower half a machine has as many as it likes.
using SCA_PeerNetwork = std::array<unsigned char, 16>;

/// A connection as it was accepted.
struct SCA_AcceptedPeer {
  int handle = -1;            ///< its descriptor, which the receiver owns
  bool isLocal = false;       ///< it came over the Unix socket
  bool isWelcome = true;      ///< false for an account that may not use the Unix socket
  SCA_PeerNetwork network{};  ///< of a TCP connection
  char name[64] = "";         ///< for people: "10.0.0.7", "account 1000, process 77"
};

class SCA_Listener : public SCA_Object {
 public:
  SCA_Listener();
  ~SCA_Listener() override;  ///< Closes.
  SCA_Listener(const SCA_Listener&) = delete;
  SCA_Listener& operator=(const SCA_Listener&) = delete;

  /// Binds the TCP port, 0 for a free one, and listens: on 127.0.0.1, or on every address of both
  /// families.
  /// @param address  Numeric, one that the scope allows, to listen on it alone; null or empty for
  ///                 none.
  /// @return `EINVAL` for an address that is none or that the scope does not allow;
  ///         `EADDRNOTAVAIL` for one of another machine, `EADDRINUSE`, `EACCES`; else the system's.
  SCA_Result Open(SCA_ListenScope scope, unsigned short port, const char* address = nullptr)
      SCA_EXCLUDES(lock_);
  /// @return The bound port; 0 before `Open`.
  unsigned short GetPort() const { return port_; }

  /// Makes a Unix socket and listens on it too. Only root, this account and the members of the
  /// group are welcome, and only their accounts can open the file. A socket of this account on
  /// which nothing listens any more is replaced.
  /// @param path   Absolute, of any length up to `SCA_MaxPath`; its last name up to 80 bytes.
  /// @param group  Name or number; null or empty for none.
  /// @return `SCA_ErrorSocketPath`, `SCA_ErrorSocketTaken`, `SCA_ErrorNoGroup`; `EADDRINUSE` while
  ///         another process listens there; `EALREADY`; else the system's.
  SCA_Result OpenLocal(const char* path, const char* group) SCA_EXCLUDES(lock_);

  /// Stops listening and removes the Unix socket; connections that were not accepted are reset.
  void Close() SCA_EXCLUDES(lock_);

  /// Waits for a connection, set up for small packets and for noticing a peer that is gone.
  /// @return `EINTR` after `Wake`, else the system's error.
  SCA_Result Accept(SCA_AcceptedPeer* peer);
  /// Ends one `Accept`, the present or the next one.
  void Wake();

 private:
  class LocalSocket;
  struct Places {
    int tcp;
    int local;
  };

  Places GetPlaces() const SCA_EXCLUDES(lock_);
  SCA_Result AcceptOn(int place, bool isLocal, SCA_AcceptedPeer* peer);

  int wakeFd_ = -1;
  unsigned short port_ = 0;
  mutable SCA_Lock lock_;  // the descriptors are closed by the accepting thread, or after it
  int tcp_ SCA_GUARDED_BY(lock_) = -1;
  std::unique_ptr<LocalSocket> local_ SCA_GUARDED_BY(lock_);
};

#endif  // SCA_PLATFORM_SCA_LISTENER_H
