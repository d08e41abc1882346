/// Whether all is well with a service host, in a line.
#ifndef SCA_PROGRAMS_TIKACTL_HEALTH_H
#define SCA_PROGRAMS_TIKACTL_HEALTH_H

#include <string>

#include "programs/tikactl/Fields.h"
#include "programs/tikactl/Host.h"
#include "programs/tikactl/Table.h"

enum class ServerState { GivenUp, Stopped, NotStarted, Waiting, Ready, Unknown };

ServerState StateOf(const Fields& server);
/// @return The state in the host's own words.
Cell StateCell(const Fields& server);
/// @return Why a server is not what it should be, as far as the host tells; may be empty.
std::string TroubleOf(const Fields& server);

/// @return ", after 7 restarts: the cause of the last", or nothing.
std::string RestartsOf(const Fields& server);

struct Health {
  bool isWell = false;
  std::string text;  ///< with the command that tells more, unless nothing is to be told
};
Health Judge(const Host& host, const Fields& service, const SCA_ConfigObj& servers);

#endif  // SCA_PROGRAMS_TIKACTL_HEALTH_H
