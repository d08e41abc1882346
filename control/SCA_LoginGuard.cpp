#include "control/SCA_LoginGuard.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"

namespace {

constexpr std::chrono::milliseconds kPrice{SCA_WrongLoginEveryMs};

}  // namespace

bool SCA_LoginGuard::Admits(const SCA_PeerNetwork& network) const {
  const Clock::time_point limit = Clock::now() + (SCA_WrongLoginBurst - 1) * kPrice;
  const SCA_LockGuard guard(lock_);
  return std::none_of(debtors_.begin(), debtors_.end(), [&](const Debtor& debtor) {
    return debtor.until > limit && debtor.network == network;
  });
}

void SCA_LoginGuard::Charge(const SCA_PeerNetwork& network, Clock::time_point now) {
  auto debtor = std::find_if(debtors_.begin(), debtors_.end(),
                             [&](const Debtor& other) { return other.network == network; });
  if (debtor == debtors_.end()) {
    debtor = std::min_element(
        debtors_.begin(), debtors_.end(),
        [](const Debtor& one, const Debtor& other) { return one.until < other.until; });
    *debtor = {network, now};
  }
  // Logins that were under way when the limit was reached do not add up to a long exclusion.
  debtor->until =
      std::min(std::max(debtor->until, now) + kPrice, now + SCA_WrongLoginBurst * kPrice);
}

void SCA_LoginGuard::NoteRefusal(const SCA_AcceptedPeer& peer, unsigned long code) {
  const Clock::time_point now = Clock::now();
  const bool isLogin = code == SCA_ErrorLoginRefused || code == SCA_ErrorTooManyLogins ||
                       code == SCA_ErrorPeerAccount;
  unsigned long long others = 0;
  {
    const SCA_LockGuard guard(lock_);
    if (isLogin) ++refusedLogins_;
    if (code == SCA_ErrorLoginRefused) Charge(peer.network, now);
    Unreported& kind = isLogin ? logins_ : others_;
    if (now < kind.next) {
      ++kind.count;
      return;
    }
    kind.next = now + std::chrono::milliseconds(SCA_RefusalReportMs);
    others = std::exchange(kind.count, 0);
  }
  char more[64] = "";
  if (others > 0) std::snprintf(more, sizeof more, "; %llu others since the last message", others);
  // Peers that only try the port are no news.
  SCA_GetReportFunction("SCA_NetServerAgent", __LINE__)(
      isLogin ? SCA_LevelWarning : SCA_LevelDebug,
      "SCA_NetServerAgent: a control connection from %s was not accepted: %s (ERR:%lu)%s",
      peer.name, SCA_ErrorText(code), code, more);
}

unsigned long long SCA_LoginGuard::RefusedLogins() const {
  const SCA_LockGuard guard(lock_);
  return refusedLogins_;
}
