/// The control client with the library's own classes in place of configuration objects.
#ifndef SCA_CONTROL_SCA_TIKAINTERFACE_H
#define SCA_CONTROL_SCA_TIKAINTERFACE_H

#include "control/SCA_TikaServiceClient.h"

class SCA_TikaLog;
class SCA_TikaServer;
class SCA_TikaServerList;

/// Each of these makes one call and fills an offline copy with what came back. A call that fails is
/// reported; a result of 0 without a report means that what came back was refused.
/// Threads: one at a time.
class SCA_API SCA_TikaInterface : public SCA_TikaServiceClient {
 public:
  SCA_TikaInterface();
  ~SCA_TikaInterface() override;

  using SCA_TikaServiceClient::GetDebugLog;
  using SCA_TikaServiceClient::GetServer;
  using SCA_TikaServiceClient::GetServerList;
  using SCA_TikaServiceClient::GetServerLog;

  /// @param log  Cleared first; keeps the sender's message ids.
  int GetDebugLog(unsigned long lastMessageId, unsigned long count, SCA_TikaLog* log);
  /// @param list  Cleared first: a list of offline copies, not the one whose servers run.
  int GetServerList(SCA_TikaServerList* list);
  /// @param server  An offline copy.
  int GetServer(unsigned long serverId, SCA_TikaServer* server);
  int GetServerLog(unsigned long serverId, unsigned long lastMessageId, unsigned long count,
                   SCA_TikaLog* log);
};

#endif  // SCA_CONTROL_SCA_TIKAINTERFACE_H
