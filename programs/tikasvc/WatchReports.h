/// What happens to the servers, in the words of the host's log.
#ifndef SCA_PROGRAMS_TIKASVC_WATCHREPORTS_H
#define SCA_PROGRAMS_TIKASVC_WATCHREPORTS_H

#include "supervision/SCA_TikaWatch.h"

/// One for the watches of all servers.
class WatchReports : public SCA_TikaWatchObserver {
 public:
  void OnReady(const SCA_TikaServer& server, const char* version) override;
  void OnDeath(const SCA_TikaServer& server, const SCA_TikaDeath& death, const char* text) override;
  void OnRevival(const SCA_TikaServer& server, unsigned long code) override;
};

/// @return Why a server could not be started.
const char* StartErrorText(unsigned long code);

#endif  // SCA_PROGRAMS_TIKASVC_WATCHREPORTS_H
