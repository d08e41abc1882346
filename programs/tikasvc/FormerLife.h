/// Makes sure that nothing of an earlier service host is left.
#ifndef SCA_PROGRAMS_TIKASVC_FORMERLIFE_H
#define SCA_PROGRAMS_TIKASVC_FORMERLIFE_H

#include <string>

/// Marks everything that this process will start as belonging to the directory, by the environment
/// that they inherit. Before any other thread is made, since it changes the environment.
void MarkChildren(const std::string& directory);

/// Kills what an earlier service host of this directory has left, whatever happened to it and the
/// guardians of its processes. The caller holds the directory, so that it is nobody else's.
/// @return The processes that were there.
unsigned long KillLeftovers(const std::string& directory);

#endif  // SCA_PROGRAMS_TIKASVC_FORMERLIFE_H
