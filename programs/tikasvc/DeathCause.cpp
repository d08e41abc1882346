#include "programs/tikasvc/DeathCause.h"

#include <csignal>
#include <cstring>

#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Text.h"

namespace {

// What java and Tika print before they end, and what it means.
struct Sign {
  const char* words;
  const char* kind;
  const char* meaning;
};

constexpr Sign kSigns[] = {
    {"java.lang.OutOfMemoryError", SCA_DeathKinds::HeapExhausted,
     "it ran out of Java memory; a larger heap may help"},
    {"Address already in use", SCA_DeathKinds::PortTaken, "another program has its port"},
    {"Unable to access jarfile", SCA_DeathKinds::JarRefused, "java cannot read the jar"},
    {"Invalid or corrupt jarfile", SCA_DeathKinds::JarRefused, "the jar is damaged"},
    {"no main manifest attribute", SCA_DeathKinds::JarRefused, "the jar is not a runnable one"},
    {"UnsupportedClassVersionError", SCA_DeathKinds::JarRefused,
     "the jar needs a newer Java than the one installed"},
    {"Unrecognized option", SCA_DeathKinds::OptionsRefused,
     "java does not know one of its options"},
    {"Unrecognized VM option", SCA_DeathKinds::OptionsRefused,
     "java does not know one of its options"},
    {"Invalid maximum heap size", SCA_DeathKinds::OptionsRefused, "java refused the heap limit"},
    {"Could not reserve enough space", SCA_DeathKinds::OptionsRefused,
     "the machine has not as much memory as the heap limit asks for"},
    {"Could not create the Java Virtual Machine", SCA_DeathKinds::OptionsRefused,
     "java refused its options"},
    {"insufficient memory for the Java Runtime", SCA_DeathKinds::HeapExhausted,
     "the machine ran out of memory"},
};

const Sign* FindSign(const std::vector<std::string>& lines, const std::string** line) {
  for (const Sign& sign : kSigns) {
    for (const std::string& candidate : lines) {
      if (candidate.find(sign.words) == std::string::npos) continue;
      *line = &candidate;
      return &sign;
    }
  }
  return nullptr;
}

DeathCause Killed(int signal) {
  std::string text = "signal " + std::to_string(signal) + " (" + ::strsignal(signal) + ") ended it";
  if (signal == SIGKILL) {
    text += "; when nobody sent it, the machine ran out of memory: see the kernel's log";
  }
  return {SCA_DeathKinds::Killed, text};
}

DeathCause Find(const SCA_TikaObituary& obituary, const std::vector<std::string>& lines) {
  if (obituary.isRequested != 0) return {SCA_DeathKinds::Stopped, "it was stopped on request"};
  if (*obituary.cause != '\0') return {SCA_DeathKinds::Silent, obituary.cause};
  const std::string* line = nullptr;
  // A signal from elsewhere says more than lines, which may be about a mended fault; java's own
  // SIGABRT comes with lines that tell.
  const bool isForeignSignal = obituary.signal != 0 && obituary.signal != SIGABRT;
  const Sign* sign = isForeignSignal ? nullptr : FindSign(lines, &line);
  if (sign != nullptr) return {sign->kind, std::string(sign->meaning) + ": " + *line};
  if (obituary.signal != 0) return Killed(obituary.signal);
  return {SCA_DeathKinds::Exited, "it ended by itself with exit status " +
                                      std::to_string(obituary.exitCode) +
                                      "; its last lines may say why"};
}

}  // namespace

DeathCause FindDeathCause(const SCA_TikaObituary& obituary, const std::vector<std::string>& lines) {
  DeathCause cause = Find(obituary, lines);
  char text[sizeof tagSCA_ERROR_DESCR::text];
  SCA_CopyText(text, cause.text.c_str(), SCA_TextFit::Cut);
  cause.text = text;
  return cause;
}
