/// Why a server's process ended, in words that an operator can act on.
#ifndef SCA_PROGRAMS_TIKASVC_DEATHCAUSE_H
#define SCA_PROGRAMS_TIKASVC_DEATHCAUSE_H

#include <string>
#include <vector>

#include "control/SCA_ServiceStatusNames.h"
#include "host/SCA_TikaServer.h"

struct DeathCause {
  SCA_DeathKind kind;
  std::string text;  ///< a sentence without its full stop, at most 259 bytes
};

/// @param lines        What the process printed last, oldest first.
/// @param verdict      The kind of a restart that was requested for a cause.
/// @param hasAnswered  Whether the server ever answered; one that did not may have said why.
DeathCause FindDeathCause(const SCA_TikaObituary& obituary, const std::vector<std::string>& lines,
                          SCA_DeathKind verdict, bool hasAnswered);

/// @param lines     What the server printed since the worker before this one ended, oldest first.
/// @param obituary  The worker's; receives the exit code where the server tells it.
DeathCause FindWorkerDeathCause(const std::vector<std::string>& lines, SCA_TikaObituary* obituary);

#endif  // SCA_PROGRAMS_TIKASVC_DEATHCAUSE_H
