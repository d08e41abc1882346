/// The history of deaths: the last deaths of Tika servers, with everything that may explain them,
/// in a file that outlives the program. Threads: any thread may call any operation.
#ifndef SCA_SUPERVISION_SCA_TIKADEATHHISTORY_H
#define SCA_SUPERVISION_SCA_TIKADEATHHISTORY_H

#include <array>
#include <atomic>
#include <string>
#include <thread>

#include "platform/SCA_Lock.h"
#include "platform/SCA_Sync.h"
#include "supervision/SCA_TikaDeath.h"

/// Deaths that a history keeps.
constexpr unsigned long SCA_MaxDeaths = 100;

/// Each death gets a number and is written to the file within a second, on a thread of the
/// history's own, so reporting a death does not wait for the disk. A failed write is reported and
/// retried until it succeeds.
class SCA_API SCA_TikaDeathHistory : public SCA_Object {
 public:
  /// Reads the file. A damaged one is kept under another name, with a report, and a new one begun.
  /// Without memory or a thread the history is not valid and must not be used.
  explicit SCA_TikaDeathHistory(const char* fileName);
  /// Writes what is not written yet.
  ~SCA_TikaDeathHistory() override;
  SCA_TikaDeathHistory(const SCA_TikaDeathHistory&) = delete;
  SCA_TikaDeathHistory& operator=(const SCA_TikaDeathHistory&) = delete;

  /// Counts and records a death; the oldest is dropped. Does not wait for the disk.
  /// @return 1, or 0 without the memory to record it; it is counted nevertheless.
  int Add(const SCA_TikaDeath& death) SCA_EXCLUDES(lock_);
  /// Counts a death without recording it.
  void Count(SCA_DeathOf who, SCA_DeathKind kind) SCA_EXCLUDES(lock_);

  /// Adds copies of the deaths to an object, oldest first, each named by its number.
  /// @return 1, or 0 without memory.
  int CopyTo(SCA_ConfigObj* history) const SCA_EXCLUDES(lock_);
  /// The same, only of servers on this port.
  int CopyTo(SCA_ConfigObj* history, unsigned short port) const SCA_EXCLUDES(lock_);

  /// @return Deaths since this object was made.
  unsigned long long GetCount(SCA_DeathOf who) const SCA_EXCLUDES(lock_);
  unsigned long long GetCount(SCA_DeathOf who, SCA_DeathKind kind) const SCA_EXCLUDES(lock_);

 private:
  using Counts = std::array<unsigned long long, std::size(SCA_DeathKindTexts)>;

  void Load() SCA_EXCLUDES(lock_);
  void BeginAnew() SCA_REQUIRES(lock_);
  void KeepAside();
  void SaveUntilEnd();
  bool Save(unsigned long long reserved) SCA_EXCLUDES(lock_);
  unsigned long Write(unsigned long long reserved) const SCA_EXCLUDES(lock_);
  int Copy(SCA_ConfigObj* history, const unsigned short* port) const SCA_EXCLUDES(lock_);

  std::string fileName_;  // constant after construction
  mutable SCA_Lock lock_;
  SCA_ConfigObj deaths_ SCA_GUARDED_BY(lock_){"History", nullptr};
  unsigned long long nextNumber_ SCA_GUARDED_BY(lock_) = 1;
  std::array<Counts, 2> counts_ SCA_GUARDED_BY(lock_){};
  std::atomic<bool> isChanged_{
      true};  // since the last save; at first the reservation is to be made
  SCA_Event ending_{1, 0};
  SCA_Event changed_{0, 0};
  bool hasFailed_ = false;  // the last save; only the saver's
  std::thread saver_;
};

#endif  // SCA_SUPERVISION_SCA_TIKADEATHHISTORY_H
