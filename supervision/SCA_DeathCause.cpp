#include "supervision/SCA_DeathCause.h"

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "platform/SCA_Text.h"

namespace {

constexpr int kJavaSignalBase = 128;

// What java and Tika print before they end, and what it means.
struct Sign {
  const char* words;
  SCA_DeathKind kind;
  const char* meaning;
};

constexpr Sign kSigns[] = {
    {"java.lang.OutOfMemoryError", SCA_DeathKind::HeapExhausted,
     "it ran out of Java memory; a larger heap may help"},
    {"Address already in use", SCA_DeathKind::PortTaken, "another program has its port"},
    {"Unable to access jarfile", SCA_DeathKind::JarRefused, "java cannot read the jar"},
    {"Invalid or corrupt jarfile", SCA_DeathKind::JarRefused, "the jar is damaged"},
    {"no main manifest attribute", SCA_DeathKind::JarRefused, "the jar is not a runnable one"},
    {"Could not find or load main class", SCA_DeathKind::JarRefused,
     "the jar has no classes beside it: a whole distribution has the folders lib and plugins "
     "there"},
    {"UnsupportedClassVersionError", SCA_DeathKind::JarRefused,
     "the jar needs a newer Java than the one installed"},
    {"Unrecognized option", SCA_DeathKind::OptionsRefused, "java does not know one of its options"},
    {"Unrecognized VM option", SCA_DeathKind::OptionsRefused,
     "java does not know one of its options"},
    {"Invalid maximum heap size", SCA_DeathKind::OptionsRefused, "java refused the heap limit"},
    {"Could not reserve enough space", SCA_DeathKind::OptionsRefused,
     "the machine has less memory than the heap limit"},
    {"Could not create the Java Virtual Machine", SCA_DeathKind::OptionsRefused,
     "java refused its options"},
    {"insufficient memory for the Java Runtime", SCA_DeathKind::HeapExhausted,
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

// At most as long as a field may be.
void Set(SCA_TikaDeath* death, SCA_DeathKind kind, const std::string& cause) {
  char text[sizeof tagSCA_ERROR_DESCR::text];
  SCA_CopyText(text, cause.c_str(), SCA_TextFit::Cut);
  death->kind = kind;
  death->cause = text;
}

std::string Killed(int signal) {
  const char* name = ::sigdescr_np(signal);
  const std::string text = "signal " + std::to_string(signal) + " (" +
                           (name != nullptr ? name : "unknown") + ") ended it";
  return signal == SIGKILL
             ? text + "; if nobody sent it, the machine ran out of memory: see the kernel's log"
             : text;
}

// The exit status that the server reports of a worker, in Java's form: 128 and the signal for one
// that a signal ended. Tika prints it in this line.
bool FindExitCode(const std::vector<std::string>& lines, int* exitCode) {
  constexpr char kWords[] = "forked process exited with exit value ";
  for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
    const std::size_t found = line->find(kWords);
    if (found == std::string::npos) continue;
    *exitCode = std::atoi(line->c_str() + found + sizeof kWords - 1);
    return true;
  }
  return false;
}

}  // namespace

void SCA_FindDeathCause(const SCA_TikaObituary& obituary, SCA_DeathKind verdict, bool hasAnswered,
                        SCA_TikaDeath* death) {
  if (obituary.isRequested != 0) {
    return Set(death, SCA_DeathKind::Stopped, "it was stopped on request");
  }
  const bool isRestart = *obituary.cause != '\0';
  // A signal from elsewhere says more than lines, which may be about a mended fault; java's own
  // SIGABRT comes with lines that tell.
  const bool isForeignSignal = obituary.signal != 0 && obituary.signal != SIGABRT;
  const bool mayLinesTell = isRestart ? !hasAnswered : !isForeignSignal;
  const std::string* line = nullptr;
  const Sign* sign = mayLinesTell ? FindSign(death->lines, &line) : nullptr;
  if (sign != nullptr) return Set(death, sign->kind, sign->meaning + (": " + *line));
  if (isRestart) return Set(death, verdict, obituary.cause);
  if (obituary.signal != 0) return Set(death, SCA_DeathKind::Killed, Killed(obituary.signal));
  char end[60];
  death->DescribeExit(end, sizeof end);
  Set(death, SCA_DeathKind::Exited,
      std::string("it ended by itself ") + end + "; its last lines may say why");
}

void SCA_FindWorkerDeathCause(SCA_TikaDeath* death) {
  death->isExitKnown = FindExitCode(death->lines, &death->exitCode) ? 1 : 0;
  const int signal = death->isExitKnown != 0 ? death->exitCode - kJavaSignalBase : 0;
  const bool isSignal = signal > 0 && signal < NSIG;
  const std::string* line = nullptr;
  const Sign* sign = isSignal && signal != SIGABRT ? nullptr : FindSign(death->lines, &line);
  if (sign != nullptr) {
    return Set(death, sign->kind, "its worker process: " + (sign->meaning + (": " + *line)));
  }
  if (death->isExitKnown == 0) {
    return Set(death, SCA_DeathKind::Exited,
               "its worker process ended in an unknown way; its last lines may say why");
  }
  char end[60];
  death->DescribeExit(end, sizeof end);
  const std::string told = std::string("its worker process ended ") + end + ", as it says";
  if (isSignal) return Set(death, SCA_DeathKind::Killed, told + ": " + Killed(signal));
  Set(death, SCA_DeathKind::Exited, told + "; its last lines may say why");
}
