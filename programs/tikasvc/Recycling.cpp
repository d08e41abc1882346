#include "programs/tikasvc/Recycling.h"

#include <exception>

#include "control/SCA_ServiceStatusNames.h"
#include "programs/tikasvc/HostLog.h"

int Recycling::GetTenures(std::vector<SCA_TikaTenure>* tenures) try {
  *tenures = servers_.GetTenures();
  return 1;
} catch (const std::exception&) {
  return 0;
}

int Recycling::StartSuccessor(unsigned long serverId, const char* why, unsigned long* successorId,
                              unsigned long* error) {
  unsigned short port = 0;
  if (servers_.StartSuccessor(serverId, successorId, &port, error) == 0) return 0;
  Say(SCA_LevelInfo, "server %lu is to be replaced, because %s: server %lu starts on port %u",
      serverId, why, *successorId, port);
  return 1;
}

int Recycling::Withdraw(unsigned long serverId, unsigned long successorId) {
  if (servers_.Withdraw(serverId, successorId) == 0) return 0;
  Say(SCA_LevelInfo, "server %lu has taken the place of server %lu, which finishes its documents",
      successorId, serverId);
  return 1;
}

void Recycling::StopWithdrawn(unsigned long serverId, unsigned long connections) {
  if (connections != 0) {
    Say(SCA_LevelWarning,
        "server %lu is stopped although it still has %lu connections: its time to finish is over",
        serverId, connections);
  }
  servers_.DeleteWithdrawn(serverId);
}

void Recycling::AbandonSuccession(unsigned long serverId, unsigned long successorId,
                                  const char* why, unsigned long nextTryMs) {
  if (nextTryMs == 0) {
    Say(SCA_LevelInfo, "server %lu is not replaced: %s", serverId, why);
  } else {
    Say(SCA_LevelWarning,
        "server %lu runs on, because its successor failed: %s; the next attempt follows in %lu s",
        serverId, why, nextTryMs / 1000);
  }
  if (successorId != SCA_NoServerId) servers_.DeleteUnclaimed(successorId);
}
