#include "programs/tikasvc/WatchReports.h"

#include <cerrno>

#include "platform/SCA_Error.h"
#include "programs/tikasvc/HostLog.h"

// Only the start of java itself gives the system's codes.
const char* StartErrorText(unsigned long code) {
  return code == ENOENT ? "java is not on the search path of tikasvc; install a Java runtime"
                        : SCA_ErrorText(code);
}

void WatchReports::OnReady(const SCA_TikaServer& server, const char* version) {
  Say(SCA_LevelInfo, "server %lu on port %u answers: %s", server.GetServerId(),
      server.GetPortNumber(), version);
}

void WatchReports::OnDeath(const SCA_TikaServer& server, const SCA_TikaDeath& death,
                           const char* text) {
  if (death.kind == SCA_DeathKind::Stopped) {
    return Say(SCA_LevelInfo, "server %lu on port %u: %s", server.GetServerId(),
               server.GetPortNumber(), text);
  }
  Say(SCA_LevelError, "%sserver %lu on port %u died: %s (%s)",
      death.who == SCA_DeathOf::Worker ? "a worker of " : "", server.GetServerId(),
      server.GetPortNumber(), death.cause.c_str(), text);
}

void WatchReports::OnRevival(const SCA_TikaServer& server, unsigned long code) {
  Say(SCA_LevelWarning, "gave up on server %lu (%s); trying again", server.GetServerId(),
      code != 0 ? StartErrorText(code) : "it had died too often");
}
