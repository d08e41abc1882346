#include "supervision/SCA_TikaDeath.h"

#include <cstdio>
#include <cstring>
#include <exception>

namespace {

int AddLines(SCA_ConfigObj* object, const std::vector<std::string>& lines) {
  if (object == nullptr) return 0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (object->AddField(std::to_string(i).c_str(), lines[i].c_str(), 0) == 0) return 0;
  }
  return 1;
}

int AddCurve(SCA_ConfigObj* object, const std::vector<SCA_TikaDeath::Memory>& curve) {
  if (object == nullptr) return 0;
  for (const SCA_TikaDeath::Memory& sample : curve) {
    const std::string age = std::to_string(sample.msBefore);
    if (object->AddField(age.c_str(), sample.bytes, 0) == 0) return 0;
  }
  return 1;
}

}  // namespace

void SCA_TikaDeath::DescribeExit(char* text, unsigned long size) const {
  if (isExitKnown == 0) {
    std::snprintf(text, size, "with an unknown exit status");
  } else if (signal == 0) {
    std::snprintf(text, size, "with exit status %d", exitCode);
  } else {
    const char* name = ::sigdescr_np(signal);
    std::snprintf(text, size, "by signal %d (%s)", signal, name != nullptr ? name : "unknown");
  }
}

int SCA_TikaDeath::Serialize(SCA_ConfigObj* object) const try {
  namespace Fields = SCA_DeathFields;
  const bool isEndWritten =
      isExitKnown == 0 || (object->AddField(Fields::ExitCode, exitCode, 0) != 0 &&
                           object->AddField(Fields::Signal, signal, 0) != 0);
  return object->AddField(Fields::Time, time, 0) != 0 &&
                 object->AddField(Fields::ServerId, serverId, 0) != 0 &&
                 object->AddField(Fields::Port, port, 0) != 0 &&
                 object->AddField(Fields::FileName, fileName.c_str(), 0) != 0 &&
                 object->AddField(Fields::ProcessId, processId, 0) != 0 &&
                 object->AddField(Fields::Kind, SCA_DeathKindText(kind), 0) != 0 &&
                 object->AddField(Fields::Cause, cause.c_str(), 0) != 0 &&
                 object->AddField(Fields::Worker, who == SCA_DeathOf::Worker ? 1U : 0U, 0) != 0 &&
                 isEndWritten && object->AddField(Fields::RunTime, runTimeMs, 0) != 0 &&
                 object->AddField(Fields::Restart, restart, 0) != 0 &&
                 object->AddField(Fields::MemoryUsage, memoryUsage, 0) != 0 &&
                 AddLines(object->AddConfigObj(Fields::Lines), lines) != 0 &&
                 AddCurve(object->AddConfigObj(Fields::Memory), memory) != 0
             ? 1
             : 0;
} catch (const std::exception&) {
  return 0;
}
