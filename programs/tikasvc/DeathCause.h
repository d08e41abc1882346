/// Why a server's process ended, in words that an operator can act on.
#ifndef SCA_PROGRAMS_TIKASVC_DEATHCAUSE_H
#define SCA_PROGRAMS_TIKASVC_DEATHCAUSE_H

#include <string>
#include <vector>

#include "host/SCA_TikaServer.h"

struct DeathCause {
  const char* kind;  ///< one of `SCA_DeathKinds`
  std::string text;  ///< a sentence without its full stop, at most 259 bytes
};

/// @param lines  What the process printed last, oldest first.
DeathCause FindDeathCause(const SCA_TikaObituary& obituary, const std::vector<std::string>& lines);

#endif  // SCA_PROGRAMS_TIKASVC_DEATHCAUSE_H
