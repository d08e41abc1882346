/// A child process whose output is read line by line, and that leaves nothing behind.
/// Threads: one thread at a time, except for `Wake`; the thread that starts the child must outlive
/// it, see `Start`.
#ifndef SCA_PLATFORM_SCA_PROCESS_H
#define SCA_PLATFORM_SCA_PROCESS_H

#include "platform/SCA_Object.h"

/// The option with which `Start` is called. Standard output and standard error go into one pipe;
/// the rest of the behaviour is fixed. @note Inherited: the number has no meaning of its own.
constexpr unsigned long SCA_ProcessReadOutput = 8;

/// How a child ended.
struct SCA_ProcessExit {
  int isKnown = 0;   ///< 0 when the system kept no status for this process: it ignores SIGCHLD, or
                     ///< another wait in it took the child; the others then say nothing
  int exitCode = 0;  ///< valid when `signal` is 0
  int signal = 0;    ///< the signal that ended it, else 0
};

/// What a child and its living descendants use together.
struct SCA_ProcessFigures {
  unsigned long long workingSetSize = 0;      ///< bytes in memory
  unsigned long long readOperationCount = 0;  ///< since the start, as are the following
  unsigned long long writeOperationCount = 0;
  unsigned long long readTransferCount = 0;   ///< bytes
  unsigned long long writeTransferCount = 0;  ///< bytes
};

/// A worker of the child: a process that it has started from its own program.
struct SCA_ProcessWorker {
  unsigned long processId = 0;
  unsigned long long workingSetSize = 0;  ///< bytes in memory, as seen last
  unsigned long long runTimeMs = 0;       ///< from the first look at it to the last
};

/// How much of the machine a child may take from others.
enum class SCA_ProcessPriority {
  Inherited,  ///< as much as its parent
  Idle        ///< processor and disks only while nothing else wants them
};

/// One child process with its descendants, which share a process group of their own. The child gets
/// no descriptor except its output pipe and an empty standard input, default signal handling, and
/// SIGKILL when the thread that started it ends. When this process ends, by a SIGKILL too, a small
/// guardian process (`sh`) kills the whole group.
class SCA_API SCA_Process : public SCA_Object {
 public:
  /// Stops the child as `Stop` does.
  ~SCA_Process() override = default;

  /// Sets a variable of the child's environment, which is otherwise the caller's at the time of the
  /// start. Before `Start`.
  /// @return 1, or 0 for an invalid name or without memory.
  virtual int SetEnvironment(const char* name, const char* value) = 0;

  /// Starts a command without a shell. The line is split at blanks; double quotes group and are
  /// dropped. A program without a slash is looked up in the directories that PATH names, or in the
  /// system's own when it is not set: never in the current one, unless PATH names it.
  /// @param flags    0. @note Inherited.
  /// @param options  `SCA_ProcessReadOutput`.
  /// @param error    `ENOENT` and the like when the program cannot be executed, `ENOMEM`,
  ///                 `SCA_ErrorCommandLine` for a line that is empty or has an open quote, `EBUSY`
  ///                 when a child runs already.
  /// @return 1 once the program runs, else 0.
  virtual int Start(const char* command, unsigned long flags, unsigned long options,
                    unsigned long* error) = 0;

  /// Waits until output can be read. Returns early, with 0, when the child has ended and all it
  /// printed has been read; when only the output has ended, it waits for the child.
  /// @param reserved  0. @note Inherited.
  /// @return 1 when `ReadOutputLine` will give a line or a part of one, else 0.
  virtual int WaitForOutput(unsigned long timeoutMs, int reserved) = 0;

  /// Ends the wait for output that is under way, or else the next one, with 0 unless there is a
  /// line. After the start; any thread may call it while the object lives.
  virtual void Wake() = 0;

  /// Takes one line of output without its line end; never waits. A line longer than the buffer
  /// comes in pieces, cut between UTF-8 characters; a line that is not complete yet is left until
  /// it is, or until the output ends. Empty lines are skipped.
  /// @param size    Capacity of `buffer` in bytes, > 1.
  /// @param length  Receives the bytes of the line; 0 when there is none now.
  /// @return 1, or 0 when the output cannot be read.
  virtual int ReadOutputLine(char* buffer, unsigned long size, unsigned long* length,
                             unsigned long* error) = 0;

  /// @return 1 when the line that was read last goes on with the next piece.
  virtual int IsLineContinued() const = 0;

  /// Sums the figures of the child's process group. Processes that have joined it are seen a
  /// second later at most; the operations and bytes of those that have gone stay in the sums.
  /// @return 1, or 0 when nothing of the group runs or memory is exhausted, the figures then being
  ///         untouched.
  virtual int GetFigures(SCA_ProcessFigures* figures) = 0;

  /// Hands out a worker that has ended while the child runs on. `GetFigures` looks for them, at
  /// most once a second. An end is reported a second or two late: if the whole group was ended, the
  /// child has ended by then too. How a worker ended only the child knows.
  /// @return 1, or 0 when there is none.
  virtual int TakeEndedWorker(SCA_ProcessWorker* worker) = 0;

  /// @return 1 while the child itself runs, whatever its descendants do.
  virtual int IsRunning() = 0;
  /// @return The child's process id, which is also its group's; 0 before the start. Kept after the
  ///         end.
  virtual unsigned long GetProcessId() const = 0;
  /// @return 1 with the way the child ended, 0 when it runs or never ran.
  virtual int GetExit(SCA_ProcessExit* exit) = 0;

  /// Sends SIGTERM to the group and comes back at once: the child's last output can be read while
  /// it ends.
  virtual void Terminate() = 0;

  /// Ends the child and its group: SIGTERM, up to `graceMs` for the child to end, then SIGKILL for
  /// whatever is left; the child is reaped. Its last output can still be read.
  virtual void Stop(unsigned long graceMs) = 0;

  /// Sets the child's working directory, which is otherwise the caller's. Before `Start`.
  /// @param path  Absolute, since `Start` looks the program up from the caller's directory.
  /// @return 1, or 0 for another path or without memory.
  virtual int SetDirectory(const char* path) = 0;

  /// Chooses the priority of the child and its descendants. Before `Start`.
  virtual void SetPriority(SCA_ProcessPriority priority) = 0;
};

/// Milliseconds that a destroyed process object gives its child to end by itself.
constexpr unsigned long SCA_ProcessStopGraceMs = 2000;

/// @return The object, which the caller ends by `Destroy()`; null when memory is exhausted.
SCA_API SCA_Process* SCA_CreateProcess();

/// Starts a program that runs on when this one ends, in a process group of its own, with empty
/// standard streams and no other descriptor. What bounds its life is the program's own affair.
/// @param words  The program, looked up as by `SCA_Process::Start`, and its arguments, followed by
///               a null pointer.
/// @param error  As for `SCA_Process::Start`.
/// @return 1 once the program runs, else 0.
SCA_API int SCA_StartDetached(const char* const* words, SCA_ProcessPriority priority,
                              unsigned long* error);

#endif  // SCA_PLATFORM_SCA_PROCESS_H
