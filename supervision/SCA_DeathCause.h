/// Why a server's process ended, in words that an operator can act on. Internal to the library.
/// Threads: free functions without shared state.
#ifndef SCA_SUPERVISION_SCA_DEATHCAUSE_H
#define SCA_SUPERVISION_SCA_DEATHCAUSE_H

#include "host/SCA_TikaServer.h"
#include "supervision/SCA_TikaDeath.h"

/// Sets kind and cause of a server's death from its exit and its last lines.
/// @param verdict      The kind of a restart that was requested for a cause.
/// @param hasAnswered  Whether the server ever answered; one that did not may have said why.
void SCA_FindDeathCause(const SCA_TikaObituary& obituary, SCA_DeathKind verdict, bool hasAnswered,
                        SCA_TikaDeath* death);

/// Sets kind and cause of a worker's death, and its exit code where the server tells it in a line.
void SCA_FindWorkerDeathCause(SCA_TikaDeath* death);

#endif  // SCA_SUPERVISION_SCA_DEATHCAUSE_H
