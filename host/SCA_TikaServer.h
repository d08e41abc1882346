/// A Tika server: one Java process that is started and watched, restarted when it dies, and logged.
/// Threads: any thread may call any operation, with these exceptions: the pointers to texts are
/// valid only while no thread sets them, `SetObserver` is called before the start, and the
/// object is destroyed by one thread when no other uses it.
#ifndef SCA_HOST_SCA_TIKASERVER_H
#define SCA_HOST_SCA_TIKASERVER_H

#include <cstdint>
#include <string>

#include "host/SCA_ProcessStatus.h"
#include "host/SCA_TikaLog.h"
#include "platform/SCA_ThreadObj.h"

class SCA_Process;
struct SCA_ProcessWorker;

/// How a run of the Java process ended.
struct SCA_TikaObituary {
  unsigned long serverId = 0;
  unsigned long processId = 0;
  int isExitKnown = 0;  ///< as `SCA_ProcessExit::isKnown`, for the next two
  int exitCode = 0;     ///< valid when `signal` is 0
  int signal = 0;       ///< the signal that ended it, else 0
  unsigned long long runTimeMs = 0;
  unsigned long long memoryUsage = 0;  ///< bytes, as seen last; 0 when it was never seen
  int isRequested = 0;     ///< 1 when the server was to stop, or Tika ended an idle worker
  const char* cause = "";  ///< of a restart that was requested, else empty; valid for the call
  const char* text = "";   ///< the line in the log; valid for the call
};

/// What a Java process is started with.
struct SCA_TikaLaunch {
  std::string fileName;  ///< the jar
  std::string javaOptions;
  unsigned long heapSize = 1024;  ///< megabytes
};

/// Receives each start and end of the Java process, on the server's worker thread and under no
/// lock. May read the server and its log, to which nothing is added meanwhile, and ask it to stop
/// (`RequestStop`). Must not start, change, wait for or destroy it, and must not throw.
class SCA_API SCA_TikaServerObserver {
 public:
  virtual ~SCA_TikaServerObserver();
  virtual void OnStart(unsigned long processId) = 0;
  /// Called once for each `OnStart`, when the process and all its descendants are gone and its last
  /// lines are in the log.
  virtual void OnEnd(const SCA_TikaObituary& obituary) = 0;
  /// A worker process ended a second or two ago, and the Java process runs on. In Tika 2 and 3 the
  /// Java process forks a worker, which answers and parses, and replaces it when it dies. From
  /// Tika 4 on it answers itself and forks workers that parse, each with the next document; it ends
  /// those that have had none for a minute.
  /// @param obituary  The worker's; how it ended is not known.
  virtual void OnWorkerEnd(const SCA_TikaObituary& obituary);
  /// How long to wait before the process is started again, asked after the `OnEnd` of each
  /// unexpected end. A stop ends the wait.
  /// @return Milliseconds, 0 (at once) unless it is overridden; `SCA_Infinite` gives the server up.
  virtual unsigned long GetRestartDelay();
  /// Asked before each start for options of the process and of all JVMs that it forks. They stand
  /// before those of JAVA_TOOL_OPTIONS and of the configuration, so that these win. May throw
  /// `std::bad_alloc`.
  /// @return Words as in JAVA_TOOL_OPTIONS; none unless it is overridden.
  virtual std::string GetJvmOptions(const SCA_TikaLaunch& launch);
};

/// One Tika server. Made with a user configuration it can be started: a worker thread runs
/// `java OPTIONS -XmxHEAPm -jar "FILE" -h ADDRESS -port PORT` (from Tika 4 on in the jar's folder),
/// turns what the process prints into messages of the log, and starts it again each time it dies,
/// up to 1000 times: at once, unless the observer asks for a delay. The heap limit and the options
/// also go through JAVA_TOOL_OPTIONS, so that they reach a JVM that the process forks. Made without
/// one it is an offline copy, which carries fields and is never started.
///
/// int results are 1 for success and 0 for failure. Nothing is thrown: without the memory that it
/// takes to run its process, a server goes into the state Error with the status code `ENOMEM`.
class SCA_API SCA_TikaServer : public SCA_ThreadObj {
 public:
  /// @param config  Not owned; outlives the server. Null makes an offline copy.
  explicit SCA_TikaServer(SCA_TikaConfigUser* config);
  ~SCA_TikaServer() override;  ///< Stops the worker and the process, whatever the state.

  /// @return 1 when all four are the server's own, texts compared byte by byte.
  int CheckConfig(const char* fileName, unsigned short port, unsigned long heapSize,
                  const char* javaOptions) const;
  /// Stores the four; takes effect with the next start of the process.
  /// @param fileName     The jar, as long as 4095 bytes; without double quotes and control bytes,
  ///                     which a command line cannot hold.
  /// @param heapSize     Megabytes; 32 bits.
  /// @param javaOptions  At most 259 bytes, without control bytes but the tab; null is empty.
  /// @param error        `ENAMETOOLONG` for the path, `SCA_ErrorInvalidData` for anything else
  ///                     that is refused. Nothing is stored then.
  int SetConfig(const char* fileName, unsigned short port, unsigned long heapSize,
                const char* javaOptions, unsigned long* error);
  /// Names the address on which the process listens, 0.0.0.0 unless set. An IPv6 address needs no
  /// brackets.
  /// @return 0, with the old one kept, for an empty or over-long one and one with blanks.
  int SetBindAddress(const char* address);
  void SetObserver(SCA_TikaServerObserver* observer) { observer_ = observer; }

  /// Clears the figures and starts the worker. A relative jar that is not there is looked for
  /// beside the host's program; its name then becomes the full path.
  /// @param error  `SCA_ErrorAlreadyActive`; `SCA_ErrorInvalidData` for an offline copy;
  ///               `SCA_ErrorNoJar`; `SCA_ErrorNoTikaFolders` for a jar of Tika 4 without `lib`
  ///               and `plugins` beside it; or the code of the system, also kept as status code.
  /// @return 1 once the worker runs: whether the process does, state and log will tell.
  int StartProcess(unsigned long* error);
  /// Stops an active server, or one that was asked to stop, and waits for its end, 2 s at most
  /// unless the system hangs; then reports it as deactivated. Does nothing for an offline copy and
  /// for a server that has ended otherwise. @return 1.
  int StopAll();
  /// Asks the worker to stop and returns at once; `StopAll` or the destructor waits for it. To stop
  /// many servers, ask all of them first.
  void RequestStop();
  /// Ends the process, which counts as an unexpected end; it is started again.
  /// @param cause      For the log; cut at 127 bytes.
  /// @param processId  The process that is meant; 0 is the one that runs. Another one, which may
  ///                   have followed it meanwhile, is never ended.
  /// @return 0 when that process does not run.
  int RequestRestart(const char* cause, unsigned long processId = 0);
  /// @return Of the running Java process; 0 when none runs.
  unsigned long GetProcessId() const { return processId_.Get(); }

  /// Stops the worker as the base does, and wakes it for that.
  int Unlock(const char* caller) override;
  /// The worker's body.
  unsigned long ThreadFunc() override;

  /// Adds the fields to an object. The log is not among them.
  int Serialize(SCA_ConfigObj* object) const;
  /// Reads the fields, for an offline copy; what is missing stays as it is, texts are cut at 259
  /// bytes.
  int Deserialize(const SCA_ConfigObj* object);
  /// Takes over another server's fields as `Serialize` and `Deserialize` carry them.
  int SetContent(const SCA_TikaServer* source);

  /// @return Static storage.
  const char* GetStatusString() const;
  const char* GetStatusIcon() const;
  int IsActive() const { return GetProcessStatus() == SCA_ServerActive ? 1 : 0; }
  int IsOffline() const { return offline_; }
  SCA_TikaLog* GetLog() { return &log_; }

  /// @name Configuration
  /// Setters of texts refuse what `SetConfig` refuses, with a report and 0.
  /// @{
  unsigned long GetServerId() const { return serverId_.Get(); }
  void SetServerId(unsigned long id) { serverId_.Set(static_cast<std::uint32_t>(id)); }
  const char* GetFileName() const SCA_NO_THREAD_SAFETY_ANALYSIS { return fileName_; }
  int SetFileName(const char* fileName);
  unsigned short GetPortNumber() const { return portNumber_.Get(); }
  void SetPortNumber(unsigned short port) { portNumber_.Set(port); }
  unsigned long GetHeapSize() const { return heapSize_.Get(); }
  void SetHeapSize(unsigned long megabytes) {
    heapSize_.Set(static_cast<std::uint32_t>(megabytes));
  }
  const char* GetJavaOptions() const SCA_NO_THREAD_SAFETY_ANALYSIS { return javaOptions_; }
  int SetJavaOptions(const char* options);
  /// @}

  /// @name State and figures, which the worker writes
  /// Figures are up to a second old.
  /// @{
  unsigned long GetProcessStatus() const { return processStatus_.Get(); }
  void SetProcessStatus(unsigned long status) {
    processStatus_.Set(static_cast<std::uint32_t>(status));
  }
  /// The system's code of the last start that failed.
  unsigned long GetStatusCode() const { return statusCode_.Get(); }
  void SetStatusCode(unsigned long code) { statusCode_.Set(static_cast<std::uint32_t>(code)); }
  /// Restarts of the process since the last start of the server.
  unsigned long GetSessionId() const { return sessionId_.Get(); }
  void SetSessionId(unsigned long id) { sessionId_.Set(static_cast<std::uint32_t>(id)); }
  /// Unexpected ends of the process since the last start of the server.
  unsigned long GetTikaErrors() const { return tikaErrors_.Get(); }
  void SetTikaErrors(unsigned long count) { tikaErrors_.Set(static_cast<std::uint32_t>(count)); }
  /// Worker processes that have ended while the process ran on, since the last start of the server.
  unsigned long GetWorkerEnds() const { return workerEnds_.Get(); }
  /// Documents that the running process has begun, as far as its log tells: Tika logs one line for
  /// each request that parses.
  unsigned long long GetDocuments() const { return documents_.Get(); }
  /// Absolute time of the running process's start.
  unsigned long long GetStartTime() const { return startTime_.Get(); }
  void SetStartTime(unsigned long long time) { startTime_.Set(time); }
  /// Milliseconds since then.
  unsigned long long GetUpTime() const { return upTime_.Get(); }
  void SetUpTime(unsigned long long ms) { upTime_.Set(ms); }
  /// Operations, modulo 2^32, and bytes that the process and its descendants have read and written.
  unsigned long long GetReadIOPS() const { return readIops_.Get(); }
  void SetReadIOPS(unsigned long long count) { readIops_.Set(count); }
  unsigned long long GetWriteIOPS() const { return writeIops_.Get(); }
  void SetWriteIOPS(unsigned long long count) { writeIops_.Set(count); }
  unsigned long long GetReadData() const { return readData_.Get(); }
  void SetReadData(unsigned long long bytes) { readData_.Set(bytes); }
  unsigned long long GetWriteData() const { return writeData_.Get(); }
  void SetWriteData(unsigned long long bytes) { writeData_.Set(bytes); }
  /// Bytes that they hold in memory.
  unsigned long long GetMemoryUsage() const { return memoryUsage_.Get(); }
  void SetMemoryUsage(unsigned long long bytes) { memoryUsage_.Set(bytes); }
  /// @}

 protected:
  /// One life of the process. Always 0, with the reason: `SCA_ErrorNotStarted`,
  /// `SCA_ErrorCancelled` for a stop, `SCA_ErrorProcessEnded`, `SCA_ErrorCannotCreate` when the log
  /// refused the session.
  int DoProcess(unsigned long* error);
  /// Adds the command between two rules to the log.
  /// @param error  `SCA_ErrorCannotCreate` when the log refuses.
  int OpenTikaLogSession(const char* command, unsigned long* error);
  /// Adds a line of output to the log, with a level by its first word.
  /// @param line   Null and empty lines are passed over.
  /// @param error  `SCA_ErrorInvalidData` for a line of blanks, `SCA_ErrorCannotCreate` when the
  ///               log refuses.
  int AddLogMessage(const char* line, unsigned long length, unsigned long* error);

 private:
  struct Run;
  struct Complaint;

  int CheckJar(Complaint* complaint) SCA_REQUIRES(control_);
  int FindJar(Complaint* complaint) SCA_REQUIRES(control_);
  void CopyFileName(char (&fileName)[SCA_MaxPath]) const SCA_EXCLUDES(texts_);
  int StartWorker(Complaint* complaint) SCA_REQUIRES(control_);
  void ClearFigures();
  void StoreFileName(const char* fileName) SCA_REQUIRES(control_) SCA_EXCLUDES(texts_);
  SCA_TikaLaunch GetLaunch() const SCA_EXCLUDES(texts_);
  std::string MakeToolOptions(const SCA_TikaLaunch& launch) const;
  void MakeCommand(Run* run) const SCA_EXCLUDES(texts_);
  static bool Equip(const Run& run);
  unsigned long StartJava(Run* run) SCA_EXCLUDES(texts_);
  unsigned long WatchJava(Run* run);
  void SetRunning(SCA_Process* process) SCA_EXCLUDES(texts_);
  void WakeWorker() SCA_EXCLUDES(texts_);
  int ReadOutput(Run* run, unsigned long waitMs);
  void AddOutput(Run* run, char* line, unsigned long length);
  void Sample(Run* run);
  void WriteWorkerObituary(Run* run, const SCA_ProcessWorker& worker);
  void EndJava(Run* run, bool isRequested);
  void WriteObituary(const Run& run, bool isRequested);
  bool IsRestartRequested(Run* run) SCA_EXCLUDES(texts_);
  bool WaitForRestart(unsigned long code);

  const int offline_;
  SCA_TikaLog log_;
  SCA_TikaServerObserver* observer_ = nullptr;

  SCA_AtomicValue<std::uint32_t> serverId_{0};
  SCA_AtomicValue<std::uint32_t> sessionId_{0};
  SCA_AtomicValue<unsigned short> portNumber_{9998};
  SCA_AtomicValue<std::uint32_t> heapSize_{1024};
  SCA_AtomicValue<std::uint32_t> tikaErrors_{0};
  SCA_AtomicValue<std::uint32_t> workerEnds_{0};
  SCA_AtomicValue<std::uint32_t> processStatus_{SCA_ServerIdle};
  SCA_AtomicValue<std::uint32_t> statusCode_{0};
  SCA_AtomicValue<unsigned long long> documents_{0};
  SCA_AtomicValue<unsigned long long> startTime_{0};
  SCA_AtomicValue<unsigned long long> upTime_{0};
  SCA_AtomicValue<unsigned long long> readIops_{0};
  SCA_AtomicValue<unsigned long long> writeIops_{0};
  SCA_AtomicValue<unsigned long long> readData_{0};
  SCA_AtomicValue<unsigned long long> writeData_{0};
  SCA_AtomicValue<unsigned long long> memoryUsage_{0};
  SCA_AtomicValue<std::uint32_t> processId_{0};

  // Orders starts, stops and changes of texts; held while a worker is joined, so the worker never
  // takes it. Taken before `texts_`.
  SCA_Lock control_;
  bool isEndUntold_ SCA_GUARDED_BY(control_) = false;  // it was started, and not stopped since
  // Guards the texts, the request of a restart, and the life of the process object. Held for copies
  // alone.
  mutable SCA_Lock texts_;
  char fileName_[SCA_MaxPath] SCA_GUARDED_BY(texts_) = "";
  char javaOptions_[260] SCA_GUARDED_BY(texts_) = "";
  char bindAddress_[260] SCA_GUARDED_BY(texts_) = "0.0.0.0";
  char restartCause_[128] SCA_GUARDED_BY(texts_) = "";
  unsigned long condemned_ SCA_GUARDED_BY(texts_) = 0;     // the process that is to be restarted
  SCA_Process* running_ SCA_GUARDED_BY(texts_) = nullptr;  // the worker's, while it may be woken
};

#endif  // SCA_HOST_SCA_TIKASERVER_H
