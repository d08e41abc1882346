#include "programs/tikasvc/BlackBox.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "control/SCA_ServiceStatusNames.h"
#include "foundation/SCA_ConfigFile.h"
#include "platform/SCA_Error.h"
#include "programs/tikasvc/HostLog.h"

namespace {

constexpr unsigned long kFormatVersion = 1;
constexpr unsigned long kPauseMs = 1000;  // between two saves

}  // namespace

BlackBox::BlackBox(std::string fileName) : fileName_(std::move(fileName)) {
  Load();
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
    Say(SCA_LevelWarning, "cannot read the history of deaths %s: %s; a new one is begun",
        fileName_.c_str(), SCA_ErrorText(error));
    const bool isHopeless = error == SCA_ErrorFileForeign || error == SCA_ErrorFileDamaged ||
                            error == SCA_ErrorFileNewer || error == SCA_ErrorDataTooLarge;
    if (isHopeless) KeepAside();
    return;
  }
  if (info.fileType != SCA_FileTypeHistory) {
    Say(SCA_LevelWarning, "%s is no history of deaths; a new one is begun", fileName_.c_str());
    deaths_.Clear();
    KeepAside();
    return;
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

void BlackBox::KeepAside() {
  const std::string aside = fileName_ + ".unreadable";
  if (std::rename(fileName_.c_str(), aside.c_str()) == 0) {
    Say(SCA_LevelInfo, "the former one is kept as %s", aside.c_str());
  }
}

void BlackBox::Add(SCA_Owned<SCA_ConfigObj> death, const char* kind) {
  {
    const SCA_LockGuard guard(lock_);
    ++counts_[kind];
    const std::string name = std::to_string(nextNumber_);
    if (death->AddField(SCA_DeathFields::Number, nextNumber_, 0) == 0 ||
        deaths_.AddField(name.c_str(), static_cast<SCA_Field*>(death.get()), 0) == 0) {
      Say(SCA_LevelError, "no memory to remember a death");
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
    SCA_Owned<SCA_ConfigObj> copy(new SCA_ConfigObj(*death));
    if (copy->IsValid() == 0 || history->AddField(copy.get()) == 0) return 0;
    static_cast<void>(copy.release());
  }
  return 1;
}

std::map<std::string, unsigned long long> BlackBox::CountByKind() const {
  const SCA_LockGuard guard(lock_);
  return counts_;
}

unsigned long long BlackBox::Count() const {
  unsigned long long count = 0;
  for (const auto& [kind, deaths] : CountByKind()) count += deaths;
  return count;
}

void BlackBox::SaveUntilEnd() {
  while (ending_.Wait(0) == 0) {
    if (changed_.Wait(SCA_Infinite) == 0) continue;
    if (isChanged_.exchange(false)) Save();
    // Where many die at once, their deaths share a file.
    ending_.Wait(kPauseMs);
  }
  if (isChanged_.exchange(false)) Save();
}

void BlackBox::Save() {
  SCA_ConfigObj copy("History", nullptr);
  unsigned long error = 0;
  if (CopyTo(&copy, std::nullopt) == 0) error = ENOMEM;
  if (error == 0 && SCA_SaveConfigFile(copy, fileName_.c_str(), SCA_FileTypeHistory, kFormatVersion,
                                       &error) != 0) {
    return;
  }
  isChanged_.store(true);  // for the next time
  Say(SCA_LevelWarning, "cannot save the history of deaths %s: %s", fileName_.c_str(),
      SCA_ErrorText(error));
}
