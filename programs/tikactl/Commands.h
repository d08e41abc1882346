/// The subcommands.
#ifndef SCA_PROGRAMS_TIKACTL_COMMANDS_H
#define SCA_PROGRAMS_TIKACTL_COMMANDS_H

#include <vector>

#include "programs/tikactl/Session.h"

namespace CLI {
class App;
}

struct Command {
  const char* name;
  Status (*run)(Session& session);
  const char* help;
  void (*define)(CLI::App* app, Options* options);  ///< adds its own options
};

/// @return All of them, in the order of the help.
const std::vector<Command>& Commands();

/// @name What they do with one host; a failure is thrown
/// @{
void ShowStatus(Call& call);
void ShowServers(Call& call);
void ShowHistory(Call& call);
void ShowVersion(Call& call);
void ShowServerLog(Call& call);
void ShowDebugLog(Call& call);
void AddServer(Call& call);
void StartServers(Call& call);
void DeleteServers(Call& call);
void ClearLog(Call& call);
void SaveLog(Call& call);
void Suspend(Call& call);
void Shutdown(Call& call);
void Ping(Call& call);
/// @}

/// Shows all hosts together, again and again.
Status Top(Session& session);

#endif  // SCA_PROGRAMS_TIKACTL_COMMANDS_H
