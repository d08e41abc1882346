#include "programs/tikasvc/DeathCause.h"

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

DeathCause Killed(int signal) {
  std::string text = "signal " + std::to_string(signal) + " (" + ::strsignal(signal) + ") ended it";
  if (signal == SIGKILL) {
    text += "; if nobody sent it, the machine ran out of memory: see the kernel's log";
  }
  return {SCA_DeathKind::Killed, text};
}

// The exit status that the server tells of a worker, as Java has it: 128 and the signal for one
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

DeathCause FindOfWorker(const std::vector<std::string>& lines, SCA_TikaObituary* obituary) {
  obituary->isExitKnown = FindExitCode(lines, &obituary->exitCode) ? 1 : 0;
  const int signal = obituary->isExitKnown != 0 ? obituary->exitCode - kJavaSignalBase : 0;
  const bool isSignal = signal > 0 && signal < NSIG;
  const std::string* line = nullptr;
  const Sign* sign = isSignal && signal != SIGABRT ? nullptr : FindSign(lines, &line);
  if (sign != nullptr)
    return {sign->kind, "its worker process: " + (sign->meaning + (": " + *line))};
  const std::string told = "its worker process ended with exit status " +
                           std::to_string(obituary->exitCode) + ", as it says";
  if (isSignal) {
    const DeathCause killed = Killed(signal);
    return {killed.kind, told + ": " + killed.text};
  }
  return {SCA_DeathKind::Exited, obituary->isExitKnown != 0
                                     ? told + "; its last lines may say why"
                                     : "its worker process ended in an unknown way; its last lines "
                                       "may say why"};
}

DeathCause Shortened(DeathCause cause) {
  char text[sizeof tagSCA_ERROR_DESCR::text];
  SCA_CopyText(text, cause.text.c_str(), SCA_TextFit::Cut);
  cause.text = text;
  return cause;
}

DeathCause Find(const SCA_TikaObituary& obituary, const std::vector<std::string>& lines,
                SCA_DeathKind verdict, bool hasAnswered) {
  if (obituary.isRequested != 0) return {SCA_DeathKind::Stopped, "it was stopped on request"};
  const bool isRestart = *obituary.cause != '\0';
  // A signal from elsewhere says more than lines, which may be about a mended fault; java's own
  // SIGABRT comes with lines that tell.
  const bool isForeignSignal = obituary.signal != 0 && obituary.signal != SIGABRT;
  const bool mayLinesTell = isRestart ? !hasAnswered : !isForeignSignal;
  const std::string* line = nullptr;
  const Sign* sign = mayLinesTell ? FindSign(lines, &line) : nullptr;
  if (sign != nullptr) return {sign->kind, std::string(sign->meaning) + ": " + *line};
  if (isRestart) return {verdict, obituary.cause};
  if (obituary.signal != 0) return Killed(obituary.signal);
  const std::string status = obituary.isExitKnown != 0
                                 ? "exit status " + std::to_string(obituary.exitCode)
                                 : std::string("an unknown exit status");
  return {SCA_DeathKind::Exited,
          "it ended by itself with " + status + "; its last lines may say why"};
}

}  // namespace

DeathCause FindDeathCause(const SCA_TikaObituary& obituary, const std::vector<std::string>& lines,
                          SCA_DeathKind verdict, bool hasAnswered) {
  return Shortened(Find(obituary, lines, verdict, hasAnswered));
}

DeathCause FindWorkerDeathCause(const std::vector<std::string>& lines, SCA_TikaObituary* obituary) {
  return Shortened(FindOfWorker(lines, obituary));
}
