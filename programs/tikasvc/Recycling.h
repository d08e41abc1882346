/// Replaces servers that have served for long, as the command line asks for it.
#ifndef SCA_PROGRAMS_TIKASVC_RECYCLING_H
#define SCA_PROGRAMS_TIKASVC_RECYCLING_H

#include "programs/tikasvc/HostedServers.h"
#include "supervision/SCA_TikaRecycler.h"

/// Has the host's servers replaced, one at a time, and says so in the host's log.
/// Threads: made and destroyed by one thread; the recycler has its own.
class Recycling : private SCA_TikaRecyclerOwner {
 public:
  /// @param servers  Not owned; outlive this.
  Recycling(const SCA_TikaRecycleRules& rules, HostedServers* servers)
      : servers_(*servers), recycler_(rules, this) {}
  Recycling(const Recycling&) = delete;
  Recycling& operator=(const Recycling&) = delete;

  bool IsValid() const { return recycler_.IsValid() != 0; }

 private:
  int GetTenures(std::vector<SCA_TikaTenure>* tenures) override;
  int StartSuccessor(unsigned long serverId, const char* why, unsigned long* successorId,
                     unsigned long* error) override;
  int Withdraw(unsigned long serverId, unsigned long successorId) override;
  void StopWithdrawn(unsigned long serverId, unsigned long connections) override;
  void AbandonSuccession(unsigned long serverId, unsigned long successorId, const char* why,
                         unsigned long nextTryMs) override;

  HostedServers& servers_;
  SCA_TikaRecycler recycler_;  // last: its thread uses this object
};

#endif  // SCA_PROGRAMS_TIKASVC_RECYCLING_H
