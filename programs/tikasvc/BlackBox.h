/// The black box: the last deaths of servers, with all that may explain them, over all lives of the
/// service host.
#ifndef SCA_PROGRAMS_TIKASVC_BLACKBOX_H
#define SCA_PROGRAMS_TIKASVC_BLACKBOX_H

#include <array>
#include <atomic>
#include <optional>
#include <string>
#include <thread>

#include "control/SCA_ServiceStatusNames.h"
#include "foundation/SCA_ConfigObj.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Sync.h"
#include "programs/common/Event.h"

/// Deaths are objects with the fields of `SCA_DeathFields`. Each is written to the file
/// within a second, on a thread of its own: whoever reports a death does not wait for the disk. A
/// write that fails is tried again until one succeeds.
/// Threads: any thread may call any operation.
class BlackBox {
 public:
  /// Who dies.
  enum class Mortal { Server, Worker };
  /// Deaths by kind, in the order of `SCA_DeathKind`.
  using Counts = std::array<unsigned long long, std::size(SCA_DeathKindTexts)>;

  /// Reads the file. One that is damaged is kept under another name, and a new one begun.
  explicit BlackBox(std::string fileName);
  /// Writes what is not written yet.
  ~BlackBox();
  BlackBox(const BlackBox&) = delete;
  BlackBox& operator=(const BlackBox&) = delete;

  /// Adds a death, which gets its number; the oldest gives way.
  /// @param death  Null is counted alone.
  void Add(SCA_Owned<SCA_ConfigObj> death, Mortal mortal, SCA_DeathKind kind) SCA_EXCLUDES(lock_);

  /// Adds copies of the deaths to an object, oldest first.
  /// @param port  Only those of servers on this port.
  int CopyTo(SCA_ConfigObj* history, std::optional<unsigned short> port) const SCA_EXCLUDES(lock_);

  /// Deaths since this life of the host began.
  Counts CountByKind(Mortal mortal) const SCA_EXCLUDES(lock_);
  unsigned long long Count(Mortal mortal) const SCA_EXCLUDES(lock_);

 private:
  void Load() SCA_EXCLUDES(lock_);
  void BeginAnew() SCA_REQUIRES(lock_);
  void KeepAside();
  void SaveUntilEnd();
  bool Save(unsigned long long reserved) SCA_EXCLUDES(lock_);
  unsigned long Write(unsigned long long reserved) const SCA_EXCLUDES(lock_);

  const std::string fileName_;
  mutable SCA_Lock lock_;
  SCA_ConfigObj deaths_ SCA_GUARDED_BY(lock_){"History", nullptr};
  unsigned long long nextNumber_ SCA_GUARDED_BY(lock_) = 1;
  std::array<Counts, 2> counts_ SCA_GUARDED_BY(lock_){};
  std::atomic<bool> isChanged_{
      true};  // since the last save; at first the reservation is to be made
  ProgramEvent ending_{1, 0};
  ProgramEvent changed_{0, 0};
  bool hasFailed_ = false;  // the last save, the saver's alone
  std::thread saver_;
};

#endif  // SCA_PROGRAMS_TIKASVC_BLACKBOX_H
