/// How a Tika server's process ended, and why.
/// Threads: a death is a value; one thread at a time.
#ifndef SCA_SUPERVISION_SCA_TIKADEATH_H
#define SCA_SUPERVISION_SCA_TIKADEATH_H

#include <string>
#include <vector>

#include "foundation/SCA_ConfigObj.h"

/// The fields of a death in its serialized form, one row each: `FIELD` is a macro that takes a
/// field's identifier, name, type and meaning. Times are absolute (100 ns since 1601, UTC), lengths
/// of time milliseconds, sizes bytes, switches 0 or 1; texts have at most 259 bytes, paths 4095.
///
/// How a run of a server's process ended, or one of its worker processes, which answer and parse
/// from Tika 2 on and which the server replaces.
#define SCA_DEATH_FIELDS(FIELD)                                                                    \
  FIELD(Number, "Number", U64,                                                                     \
        "counts up over all runs of the host, never given twice; some may be left out")            \
  FIELD(Time, "Time", Time, "of the end")                                                          \
  FIELD(ServerId, "Server Id", U32, "as it was then")                                              \
  FIELD(Port, "Port", U32, "of the server")                                                        \
  FIELD(FileName, "File Name", Path, "the jar")                                                    \
  FIELD(ProcessId, "Process Id", U32, "of the process that ended")                                 \
  FIELD(Worker, "Worker", Switch, "a worker process, whose server ran on")                         \
  FIELD(Kind, "Kind", Text, "one of the kinds below")                                              \
  FIELD(Cause, "Cause", Text, "a sentence")                                                        \
  FIELD(ExitCode, "Exit Code", Int,                                                                \
        "unless a signal ended it; missing when unknown; of a worker as its server reports, from " \
        "129 on 128 plus a signal")                                                                \
  FIELD(Signal, "Signal", U32, "or 0; missing when unknown")                                       \
  FIELD(RunTime, "Run Time", Ms, "from start to end")                                              \
  FIELD(Restart, "Restart", U32, "restarts before this run")                                       \
  FIELD(MemoryUsage, "Memory Usage", Bytes, "as seen last; 0 when never seen")                     \
  FIELD(Lines, "Lines", Object, "the last lines that it printed, oldest first: \"0\", \"1\", ...") \
  FIELD(Memory, "Memory", Object,                                                                  \
        "of u64: memory use over the last minutes, each named by how many ms before the end it "   \
        "was, oldest first")

/// Their names.
namespace SCA_DeathFields {
// NOLINTNEXTLINE(bugprone-macro-parentheses): a literal
#define SCA_FIELD_NAME(identifier, name, type, meaning) constexpr char identifier[] = name;
SCA_DEATH_FIELDS(SCA_FIELD_NAME)
#undef SCA_FIELD_NAME
}  // namespace SCA_DeathFields

/// The most lines of output that a death keeps.
constexpr unsigned long SCA_MaxDeathLines = 50;

/// Kinds of deaths, for counting and filtering. In the fields and in metrics they are texts.
enum class SCA_DeathKind {
  Stopped,         ///< on request; not recorded
  Silent,          ///< restarted because it had not answered
  HeapExhausted,   ///< out of Java memory
  PortTaken,       ///< another program has its port
  JarRefused,      ///< java could not run the jar
  OptionsRefused,  ///< java refused its options
  Killed,          ///< by a signal from elsewhere
  Exited           ///< by itself, for another reason
};

/// Their texts, in the order of the enumerators.
inline constexpr const char* SCA_DeathKindTexts[] = {"stopped",    "silent",      "heap exhausted",
                                                     "port taken", "jar refused", "options refused",
                                                     "killed",     "exited"};

constexpr const char* SCA_DeathKindText(SCA_DeathKind kind) {
  return SCA_DeathKindTexts[static_cast<int>(kind)];
}

/// What died: from version 2 on, a Tika server forks a worker, which answers and parses, and
/// replaces it when it dies.
enum class SCA_DeathOf { Server, Worker };

/// One death.
struct SCA_API SCA_TikaDeath {
  /// The memory that the process and its descendants held at a moment.
  struct Memory {
    unsigned long long msBefore = 0;  ///< the end
    unsigned long long bytes = 0;
  };

  SCA_DeathOf who = SCA_DeathOf::Server;
  SCA_DeathKind kind = SCA_DeathKind::Stopped;
  std::string cause;            ///< a sentence without its full stop, at most 259 bytes
  unsigned long long time = 0;  ///< absolute time
  unsigned long serverId = 0;
  unsigned short port = 0;
  std::string fileName;  ///< the jar
  unsigned long processId = 0;
  int isExitKnown = 0;  ///< 0: the next two are meaningless
  int exitCode = 0;     ///< valid when `signal` is 0
  int signal = 0;       ///< the signal that ended it, else 0
  unsigned long long runTimeMs = 0;
  unsigned long restart = 0;           ///< how often it had been restarted before
  unsigned long long memoryUsage = 0;  ///< bytes, as seen last; 0 when never seen
  std::vector<std::string> lines;      ///< what it printed last, oldest first
  std::vector<Memory> memory;          ///< the curve of its last minutes, oldest first

  /// Writes how it ended: "with exit status 3", "by signal 9 (Killed)" or "with an unknown exit
  /// status".
  /// @param size  Capacity of `text` in bytes, > 0; 60 hold every wording.
  void DescribeExit(char* text, unsigned long size) const;

  /// Adds the fields of `SCA_DeathFields`, without the number.
  /// @return 1, or 0 without memory.
  int Serialize(SCA_ConfigObj* object) const;
};

#endif  // SCA_SUPERVISION_SCA_TIKADEATH_H
