/// The figures of a process group, out of /proc. Internal to the platform layer.
/// Threads: one thread at a time per object.
#ifndef SCA_PLATFORM_POSIX_SCA_PROCESSGROUP_H
#define SCA_PLATFORM_POSIX_SCA_PROCESSGROUP_H

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <vector>

#include "platform/SCA_Process.h"
#include "platform/posix/SCA_Posix.h"

/// Sums what the members of one group use. Keeps two descriptors open for each of them: reading
/// again through an open one costs a fraction of opening it, and never meets another process that
/// has the id of one that has exited.
class SCA_ProcessGroup {
 public:
  explicit SCA_ProcessGroup(pid_t group) : group_(group) {}

  /// As in `SCA_Process`.
  int GetFigures(SCA_ProcessFigures* figures);
  int TakeEndedWorker(SCA_ProcessWorker* worker);

 private:
  using Clock = std::chrono::steady_clock;

  struct Member {
    pid_t pid;
    SCA_Fd memory;
    SCA_Fd transfers;
    SCA_ProcessFigures figures;
    bool isWorker;
    bool isWorkerForSure;  // it has been looked at twice
    Clock::time_point addedAt;
  };
  struct Ended {
    SCA_ProcessWorker worker;
    unsigned long scan;  // the newest one when the end was seen
  };

  void UpdateMembers();
  void Add(pid_t pid);
  void NoteEnd(const Member& member);
  bool IsWorker(pid_t pid) const;
  static bool Read(Member* member);

  const pid_t group_;
  unsigned long seenScan_ = 0;
  std::vector<Member> members_;
  std::deque<Ended> ended_;
  SCA_ProcessFigures gone_;  // counts of members that have ended
};

#endif  // SCA_PLATFORM_POSIX_SCA_PROCESSGROUP_H
