/// What strangers on a control port can cost: their wrong logins are counted, limited for each
/// address, and reported in a few lines however many they are. Internal to the library.
/// Threads: any.
#ifndef SCA_CONTROL_SCA_LOGINGUARD_H
#define SCA_CONTROL_SCA_LOGINGUARD_H

#include <array>
#include <chrono>

#include "platform/SCA_Listener.h"
#include "platform/SCA_Lock.h"

/// Wrong logins that a network may make at once, and milliseconds until it may make another one.
constexpr int SCA_WrongLoginBurst = 20;
constexpr unsigned long SCA_WrongLoginEveryMs = 1000;
/// Milliseconds between two reports.
constexpr unsigned long SCA_RefusalReportMs = 10000;

class SCA_LoginGuard {
 public:
  /// @return False for a network that has made too many wrong logins: it is to be turned away.
  bool Admits(const SCA_PeerNetwork& network) const SCA_EXCLUDES(lock_);

  /// Notes a connection that was not accepted, and reports it unless another was reported lately.
  /// @param code  Why. `SCA_ErrorLoginRefused` counts against the network.
  void NoteRefusal(const SCA_AcceptedPeer& peer, unsigned long code) SCA_EXCLUDES(lock_);

  /// @return Wrong logins, connections that were turned away because of them, and those of accounts
  ///         that may not use the Unix socket.
  unsigned long long RefusedLogins() const SCA_EXCLUDES(lock_);

 private:
  using Clock = std::chrono::steady_clock;

  // A network and the time until which it works off its wrong logins.
  struct Debtor {
    SCA_PeerNetwork network{};
    Clock::time_point until;
  };
  // What has happened since the last report of its kind.
  struct Unreported {
    Clock::time_point next;
    unsigned long long count = 0;
  };

  void Charge(const SCA_PeerNetwork& network, Clock::time_point now) SCA_REQUIRES(lock_);

  mutable SCA_Lock lock_;
  // Of more networks than these, those that owe least are forgotten.
  std::array<Debtor, 256> debtors_ SCA_GUARDED_BY(lock_);
  Unreported logins_ SCA_GUARDED_BY(lock_);
  Unreported others_ SCA_GUARDED_BY(lock_);
  unsigned long long refusedLogins_ SCA_GUARDED_BY(lock_) = 0;
};

#endif  // SCA_CONTROL_SCA_LOGINGUARD_H
