#include "programs/tikasvc/BlackBox.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>
#include <new>
#include <numeric>

#include "foundation/SCA_ConfigFile.h"
#include "platform/SCA_Error.h"
#include "programs/tikasvc/HostLog.h"

namespace {

constexpr unsigned long kFormatVersion = 1;
constexpr unsigned long kPauseMs = 1000;          // between two saves
constexpr unsigned long kLongestPauseMs = 60000;  // while they fail
// The first number that no life of the host has given. While one runs, the file has some more:
// numbers that nobody has had time to write down are not given again after a kill.
constexpr char kNextNumber[] = "Next Number";
constexpr unsigned long long kReserved = SCA_MaxDeaths;

}  // namespace

BlackBox::BlackBox(std::string fileName) : fileName_(std::move(fileName)) {
  Load();
  Save(kReserved);  // before the first death gets its number
  saver_ = std::thread([this] { SaveUntilEnd(); });
}

BlackBox::~BlackBox() {
  ending_.Set();
  changed_.Set();
  saver_.join();
}

void BlackBox::Load() {
  unsigned long error = 0;
  SCA_ConfigFileInfo info;
  const SCA_LockGuard guard(lock_);
  if (SCA_LoadConfigFile(fileName_.c_str(), &deaths_, &info, &error) == 0) {
    if (error == ENOENT) return;
    Say(SCA_LevelWarning, "cannot read the history of deaths %s: %s; starting a new one",
        fileName_.c_str(), SCA_ErrorText(error));
    const bool isHopeless = error == SCA_ErrorFileForeign || error == SCA_ErrorFileDamaged ||
                            error == SCA_ErrorFileNewer || error == SCA_ErrorDataTooLarge;
    if (isHopeless) KeepAside();
    return BeginAnew();
  }
  if (info.fileType != SCA_FileTypeHistory) {
    Say(SCA_LevelWarning, "%s is not a history of deaths; starting a new one", fileName_.c_str());
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
void BlackBox::BeginAnew() {
  deaths_.Clear();
  nextNumber_ = static_cast<unsigned long long>(std::time(nullptr));
}

void BlackBox::KeepAside() {
  const std::string aside = fileName_ + ".unreadable";
  if (std::rename(fileName_.c_str(), aside.c_str()) == 0) {
    Say(SCA_LevelInfo, "the old one is kept as %s", aside.c_str());
  }
}

void BlackBox::Add(SCA_Owned<SCA_ConfigObj> death, Mortal mortal, SCA_DeathKind kind) {
  {
    const SCA_LockGuard guard(lock_);
    ++counts_[static_cast<std::size_t>(mortal)][static_cast<std::size_t>(kind)];
    if (death == nullptr) return;
    char name[24];
    std::snprintf(name, sizeof name, "%llu", nextNumber_);
    if (death->AddField(SCA_DeathFields::Number, nextNumber_, 0) == 0 ||
        deaths_.AddField(name, static_cast<SCA_Field*>(death.get()), 0) == 0) {
      Say(SCA_LevelError, "not enough memory to record a death");
      return;
    }
    ++nextNumber_;
    static_cast<void>(death.release());
    while (deaths_.GetFieldCount() > SCA_MaxDeaths) deaths_.DeleteFieldByIndex(0);
  }
  isChanged_.store(true);
  changed_.Set();
}

int BlackBox::CopyTo(SCA_ConfigObj* history, std::optional<unsigned short> port) const {
  const SCA_LockGuard guard(lock_);
  for (const SCA_Field* field = deaths_.GetFields().GetHead(); field != nullptr;
       field = field->GetNext()) {
    const SCA_ConfigObj* death = SCA_ToConfigObj(field);
    unsigned short itsPort = 0;
    if (death == nullptr) continue;
    if (port && (death->GetField(SCA_DeathFields::Port, &itsPort) == 0 || itsPort != *port)) {
      continue;
    }
    SCA_Owned<SCA_ConfigObj> copy(new (std::nothrow) SCA_ConfigObj(*death));
    if (copy == nullptr || copy->IsValid() == 0 || history->AddField(copy.get()) == 0) return 0;
    static_cast<void>(copy.release());
  }
  return 1;
}

BlackBox::Counts BlackBox::CountByKind(Mortal mortal) const {
  const SCA_LockGuard guard(lock_);
  return counts_[static_cast<std::size_t>(mortal)];
}

unsigned long long BlackBox::Count(Mortal mortal) const {
  const Counts counts = CountByKind(mortal);
  return std::accumulate(counts.begin(), counts.end(), 0ULL);
}

void BlackBox::SaveUntilEnd() {
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
    Say(SCA_LevelError,
        "the history of deaths %s was not saved; the file keeps its last saved state",
        fileName_.c_str());
    return;
  }
}

// True when nothing is left to be saved.
bool BlackBox::Save(unsigned long long reserved) {
  if (!isChanged_.exchange(false)) return true;
  const unsigned long error = Write(reserved);
  if (error == 0) {
    if (hasFailed_) Say(SCA_LevelInfo, "saved the history of deaths %s", fileName_.c_str());
    hasFailed_ = false;
    return true;
  }
  isChanged_.store(true);
  if (!hasFailed_) {
    Say(SCA_LevelWarning, "cannot save the history of deaths %s: %s; retrying", fileName_.c_str(),
        SCA_ErrorText(error));
  }
  hasFailed_ = true;
  return false;
}

// Gives 0 or the error code.
unsigned long BlackBox::Write(unsigned long long reserved) const try {
  SCA_ConfigObj copy("History", nullptr);
  unsigned long long next = reserved;
  {
    const SCA_LockGuard guard(lock_);
    next += nextNumber_;
  }
  unsigned long error = ENOMEM;
  if (copy.AddField(kNextNumber, next, 0) == 0 || CopyTo(&copy, std::nullopt) == 0) return error;
  return SCA_SaveConfigFile(copy, fileName_.c_str(), SCA_FileTypeHistory, kFormatVersion, &error) !=
                 0
             ? 0
             : error;
} catch (const std::exception&) {
  return ENOMEM;
}
