/// One server of the service host.
#ifndef SCA_PROGRAMS_TIKASVC_HOSTEDSERVER_H
#define SCA_PROGRAMS_TIKASVC_HOSTEDSERVER_H

#include <memory>

#include "programs/tikasvc/ServerOwners.h"
#include "programs/tikasvc/StatusRecords.h"
#include "supervision/SCA_TikaWatch.h"

/// A server with its watch and its owners. Threads: one at a time.
struct HostedServer {
  SCA_TikaServer* server;  ///< that of the list
  std::unique_ptr<SCA_TikaWatch> watch;
  ServerOwners owners;

  bool IsReady() const;
  /// Gives all fields but the history, and the deaths of servers on its port, of one moment.
  /// @param history  May be null.
  /// @return 1, or 0 without memory.
  int GetStatus(ServerStatus* status, SCA_ConfigObj* history = nullptr) const;
};

#endif  // SCA_PROGRAMS_TIKASVC_HOSTEDSERVER_H
