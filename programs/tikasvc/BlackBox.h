/// The black box: the last deaths of servers, with all that may explain them, over all lives of the
/// service host.
#ifndef SCA_PROGRAMS_TIKASVC_BLACKBOX_H
#define SCA_PROGRAMS_TIKASVC_BLACKBOX_H

#include <atomic>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "foundation/SCA_ConfigObj.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Sync.h"

/// Deaths are objects with the fields of `SCA_DeathFields`. Each is written to the file
/// within a second, on a thread of its own: whoever reports a death does not wait for the disk.
/// Threads: any thread may call any operation.
class BlackBox {
 public:
  /// Reads the file. One that is damaged is kept under another name, and a new one begun.
  explicit BlackBox(std::string fileName);
  /// Writes what is not written yet.
  ~BlackBox();
  BlackBox(const BlackBox&) = delete;
  BlackBox& operator=(const BlackBox&) = delete;

  /// Adds a death, which gets its number; the oldest gives way. @param kind  Of `SCA_DeathKinds`.
  void Add(SCA_Owned<SCA_ConfigObj> death, const char* kind) SCA_EXCLUDES(lock_);

  /// Adds copies of the deaths to an object, oldest first.
  /// @param port  Only those of servers on this port.
  int CopyTo(SCA_ConfigObj* history, std::optional<unsigned short> port) const SCA_EXCLUDES(lock_);

  /// Deaths since this life of the host began, by kind.
  std::map<std::string, unsigned long long> CountByKind() const SCA_EXCLUDES(lock_);
  unsigned long long Count() const SCA_EXCLUDES(lock_);

 private:
  void Load() SCA_EXCLUDES(lock_);
  void KeepAside();
  void SaveUntilEnd();
  void Save() SCA_EXCLUDES(lock_);

  const std::string fileName_;
  mutable SCA_Lock lock_;
  SCA_ConfigObj deaths_ SCA_GUARDED_BY(lock_){"History", nullptr};
  unsigned long long nextNumber_ SCA_GUARDED_BY(lock_) = 1;
  std::map<std::string, unsigned long long> counts_ SCA_GUARDED_BY(lock_);
  std::atomic<bool> isChanged_{false};  // since the last save
  SCA_Event ending_{1, 0};
  SCA_Event changed_{0, 0};
  std::thread saver_;
};

#endif  // SCA_PROGRAMS_TIKASVC_BLACKBOX_H
