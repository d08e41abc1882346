/// What makes sure that one service host alone uses a data directory, and that nothing of a former
/// one is left.
#ifndef SCA_PROGRAMS_TIKASVC_FORMERLIFE_H
#define SCA_PROGRAMS_TIKASVC_FORMERLIFE_H

#include <string>

/// Holds the data directory while it lives.
class DirectoryLock {
 public:
  DirectoryLock() = default;
  ~DirectoryLock();
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

  /// @param owner  Receives the process that has it, as it says itself, when another one has.
  /// @return 1, or 0 with `EWOULDBLOCK` when another process has it, or the system's code.
  int Take(const std::string& directory, std::string* owner, unsigned long* error);

 private:
  int file_ = -1;
};

/// Marks everything that this process will start as belonging to the directory, by the environment
/// that they inherit. Before any other thread is made, since it changes the environment.
void MarkChildren(const std::string& directory);

/// Kills what a former service host of this directory has left, whatever became of it and of the
/// guardians of its processes. The caller holds the directory, so that it is nobody else's.
/// @return The processes that were there.
unsigned long KillLeftovers(const std::string& directory);

#endif  // SCA_PROGRAMS_TIKASVC_FORMERLIFE_H
