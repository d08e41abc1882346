#include "supervision/SCA_TikaDeathHistory.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>
#include <new>
#include <numeric>

#include "foundation/SCA_ConfigFile.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kSource[] = "SCA_TikaDeathHistory";
constexpr unsigned long kFormatVersion = 1;
constexpr unsigned long kPauseMs = 1000;          // between two saves
constexpr unsigned long kLongestPauseMs = 60000;  // while they fail
// The first number that no life of the host has given. While one runs, the file has some more:
// numbers that nobody has had time to write down are not given again after a kill.
constexpr char kNextNumber[] = "Next Number";
constexpr unsigned long long kReserved = SCA_MaxDeaths;

}  // namespace

SCA_TikaDeathHistory::SCA_TikaDeathHistory(const char* fileName) {
  const SCA_Result made = SCA_Guarded([&] {
    if (ending_.IsValid() == 0 || changed_.IsValid() == 0) return SCA_Result(ENOMEM);
    fileName_ = fileName;
    Load();
    Save(kReserved);  // before the first death gets its number
    saver_ = std::thread([this] { SaveUntilEnd(); });
    return SCA_Done;
  });
  SetValid(made.HasFailed() ? 0 : 1);
}

SCA_TikaDeathHistory::~SCA_TikaDeathHistory() {
  ending_.Set();
  changed_.Set();
  if (saver_.joinable()) saver_.join();
}

void SCA_TikaDeathHistory::Load() {
  unsigned long error = 0;
  SCA_ConfigFileInfo info;
  const SCA_LockGuard guard(lock_);
  if (SCA_LoadConfigFile(fileName_.c_str(), &deaths_, &info, &error) == 0) {
    if (error == ENOENT) return;
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelWarning, "cannot read the history of deaths %s: %s; starting a new one",
        fileName_.c_str(), SCA_ErrorText(error));
    const bool isHopeless = error == SCA_ErrorFileForeign || error == SCA_ErrorFileDamaged ||
                            error == SCA_ErrorFileNewer || error == SCA_ErrorDataTooLarge;
    if (isHopeless) KeepAside();
    return BeginAnew();
  }
  if (info.fileType != SCA_FileTypeHistory) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelWarning, "%s is not a history of deaths; starting a new one", fileName_.c_str());
    KeepAside();
    return BeginAnew();
  }
  deaths_.GetField(kNextNumber, &nextNumber_);
  SCA_Field* next = nullptr;
  if (deaths_.GetFieldByName(kNextNumber, &next) != 0) {
    deaths_.RemoveField(kNextNumber);
    next->Destroy();
  }
  for (const SCA_Field* death = deaths_.GetFields().GetHead(); death != nullptr;
       death = death->GetNext()) {
    unsigned long long number = 0;
    const SCA_ConfigObj* object = SCA_ToConfigObj(death);
    if (object != nullptr && object->GetField(SCA_DeathFields::Number, &number) != 0) {
      nextNumber_ = std::max(nextNumber_, number + 1);
    }
  }
}

// What numbers a file had that cannot be read is not known. That many seconds after 1970 no host
// has had so many deaths.
void SCA_TikaDeathHistory::BeginAnew() {
  deaths_.Clear();
  nextNumber_ = static_cast<unsigned long long>(std::time(nullptr));
}

void SCA_TikaDeathHistory::KeepAside() {
  const std::string aside = fileName_ + ".unreadable";
  if (std::rename(fileName_.c_str(), aside.c_str()) == 0) {
    SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelInfo, "the old one is kept as %s",
                                             aside.c_str());
  }
}

void SCA_TikaDeathHistory::Count(SCA_DeathOf who, SCA_DeathKind kind) {
  const SCA_LockGuard guard(lock_);
  ++counts_[static_cast<std::size_t>(who)][static_cast<std::size_t>(kind)];
}

int SCA_TikaDeathHistory::Add(const SCA_TikaDeath& death) {
  Count(death.who, death.kind);
  SCA_Owned<SCA_ConfigObj> object(new (std::nothrow) SCA_ConfigObj("Death", nullptr));
  if (object == nullptr || object->IsValid() == 0 || death.Serialize(object.get()) == 0) return 0;
  {
    const SCA_LockGuard guard(lock_);
    char name[24];
    std::snprintf(name, sizeof name, "%llu", nextNumber_);
    if (object->AddField(SCA_DeathFields::Number, nextNumber_, 0) == 0 ||
        deaths_.AddField(name, static_cast<SCA_Field*>(object.get()), 0) == 0) {
      return 0;
    }
    ++nextNumber_;
    static_cast<void>(object.release());
    while (deaths_.GetFieldCount() > SCA_MaxDeaths) deaths_.DeleteFieldByIndex(0);
  }
  isChanged_.store(true);
  changed_.Set();
  return 1;
}

int SCA_TikaDeathHistory::CopyTo(SCA_ConfigObj* history) const {
  return Copy(history, nullptr);
}

int SCA_TikaDeathHistory::CopyTo(SCA_ConfigObj* history, unsigned short port) const {
  return Copy(history, &port);
}

int SCA_TikaDeathHistory::Copy(SCA_ConfigObj* history, const unsigned short* port) const {
  const SCA_LockGuard guard(lock_);
  for (const SCA_Field* field = deaths_.GetFields().GetHead(); field != nullptr;
       field = field->GetNext()) {
    const SCA_ConfigObj* death = SCA_ToConfigObj(field);
    unsigned short itsPort = 0;
    if (death == nullptr) continue;
    if (port != nullptr &&
        (death->GetField(SCA_DeathFields::Port, &itsPort) == 0 || itsPort != *port)) {
      continue;
    }
    SCA_Owned<SCA_ConfigObj> copy(new (std::nothrow) SCA_ConfigObj(*death));
    if (copy == nullptr || copy->IsValid() == 0 || history->AddField(copy.get()) == 0) return 0;
    static_cast<void>(copy.release());
  }
  return 1;
}

unsigned long long SCA_TikaDeathHistory::GetCount(SCA_DeathOf who) const {
  const SCA_LockGuard guard(lock_);
  const Counts& counts = counts_[static_cast<std::size_t>(who)];
  return std::accumulate(counts.begin(), counts.end(), 0ULL);
}

unsigned long long SCA_TikaDeathHistory::GetCount(SCA_DeathOf who, SCA_DeathKind kind) const {
  const SCA_LockGuard guard(lock_);
  return counts_[static_cast<std::size_t>(who)][static_cast<std::size_t>(kind)];
}

void SCA_TikaDeathHistory::SaveUntilEnd() {
  unsigned long pauseMs = kPauseMs;
  while (ending_.Wait(0) == 0) {
    if (!isChanged_.load() && changed_.Wait(SCA_Infinite) == 0) continue;
    pauseMs = Save(kReserved) ? kPauseMs : std::min(2 * pauseMs, kLongestPauseMs);
    // Where many die at once, their deaths share a file.
    ending_.Wait(pauseMs);
  }
  isChanged_.store(true);      // what was reserved and not used is given back
  while (isChanged_.load()) {  // a death may come while the file is written
    if (Save(0)) continue;
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError,
        "the history of deaths %s was not saved; the file keeps its last saved state",
        fileName_.c_str());
    return;
  }
}

// True when nothing is left to be saved.
bool SCA_TikaDeathHistory::Save(unsigned long long reserved) {
  if (!isChanged_.exchange(false)) return true;
  const unsigned long error = Write(reserved);
  if (error == 0) {
    if (hasFailed_)
      SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelInfo, "saved the history of deaths %s",
                                               fileName_.c_str());
    hasFailed_ = false;
    return true;
  }
  isChanged_.store(true);
  if (!hasFailed_) {
    SCA_GetReportFunction(kSource, __LINE__)(SCA_LevelWarning,
                                             "cannot save the history of deaths %s: %s; retrying",
                                             fileName_.c_str(), SCA_ErrorText(error));
  }
  hasFailed_ = true;
  return false;
}

// Gives 0 or the error code.
unsigned long SCA_TikaDeathHistory::Write(unsigned long long reserved) const try {
  SCA_ConfigObj copy("History", nullptr);
  unsigned long long next = reserved;
  {
    const SCA_LockGuard guard(lock_);
    next += nextNumber_;
  }
  unsigned long error = ENOMEM;
  if (copy.AddField(kNextNumber, next, 0) == 0 || CopyTo(&copy) == 0) return error;
  return SCA_SaveConfigFile(copy, fileName_.c_str(), SCA_FileTypeHistory, kFormatVersion, &error) !=
                 0
             ? 0
             : error;
} catch (const std::exception&) {
  return ENOMEM;
}
