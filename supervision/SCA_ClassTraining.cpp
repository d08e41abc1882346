#include "supervision/SCA_ClassTraining.h"

#include <algorithm>

#include "client/SCA_TikaClient.h"
#include "host/SCA_TikaJar.h"
#include "platform/SCA_Deadline.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_File.h"
#include "platform/SCA_FreePort.h"
#include "platform/SCA_Process.h"
#include "supervision/SCA_TikaProbe.h"

namespace {

constexpr char kAddress[] = "127.0.0.1";
constexpr unsigned long kAskMs = 2000;  // for one answer of a server that comes up
constexpr unsigned long kPassMs = 100;  // of reading what it prints
constexpr unsigned long kDocumentMs = 20000;
constexpr unsigned long kMostHeapMb = 512;  // enough for the documents
constexpr unsigned long kWideHeapMb = 32768;

// The options of the command line reach the first JVM alone. In one that forks another, only the
// forked one would parse, and both would write the same file.
constexpr const char* kWaysNotToFork[] = {"-noFork", ""};

// A run of java under a limit, whose output nobody needs.
class JavaRun {
 public:
  JavaRun(const SCA_TrainingRun& run, const SCA_Deadline& deadline)
      : priority_(run.priority), deadline_(deadline), cancel_(run.cancel) {}

  // One that must not go on is killed: told to end, it would write its archive first.
  ~JavaRun() {
    if (process_ != nullptr) process_->Stop(0);
  }
  JavaRun(const JavaRun&) = delete;
  JavaRun& operator=(const JavaRun&) = delete;

  SCA_Result Start(const std::string& command, const SCA_TikaJar& jar) {
    unsigned long error = ENOMEM;
    if (process_ == nullptr ||
        (!jar.directory.empty() && process_->SetDirectory(jar.directory.c_str()) == 0)) {
      return SCA_Result(error);
    }
    process_->SetPriority(priority_);
    if (process_->Start(command.c_str(), 0, SCA_ProcessReadOutput, &error) == 0) {
      return SCA_Result(error);
    }
    return SCA_Done;
  }

  // Reads what is printed, so that the pipe never fills, until a time has passed or it has ended.
  // Fails when the run must not go on.
  SCA_Result Pass(unsigned long ms) {
    const SCA_Deadline end(ms);
    char line[1024];
    unsigned long length = 0;
    unsigned long ignored = 0;
    while (process_->WaitForOutput(end.MsLeft(), 0) != 0 && !end.HasPassed()) {
      if (process_->ReadOutputLine(line, sizeof line, &length, &ignored) == 0) break;
    }
    if (cancel_ != nullptr && cancel_->Wait(0) != 0) return SCA_Result(SCA_ErrorCancelled);
    return deadline_.HasPassed() ? SCA_Result(ETIMEDOUT) : SCA_Done;
  }

  SCA_Result WaitForEnd() {
    while (IsRunning()) {
      if (const SCA_Result passed = Pass(kPassMs); passed.HasFailed()) return passed;
    }
    return SCA_Done;
  }

  bool IsRunning() { return process_->IsRunning() != 0; }
  void Terminate() { process_->Terminate(); }
  bool HasSucceeded() {
    SCA_ProcessExit exit;
    return process_->GetExit(&exit) != 0 && exit.isKnown != 0 && exit.signal == 0 &&
           exit.exitCode == 0;
  }

 private:
  const SCA_ProcessPriority priority_;
  const SCA_Deadline& deadline_;
  SCA_Event* const cancel_;
  const SCA_Owned<SCA_Process> process_{SCA_CreateProcess()};
};

class Training {
 public:
  explicit Training(const SCA_TrainingRun& run)
      : run_(run), jar_(SCA_LookAtTikaJar(run.launch.fileName.c_str())), deadline_(run.limitMs) {
    // The limit decides how wide references are; below that, less will do.
    const unsigned long heapMb = run.launch.heapSize;
    const unsigned long enoughMb = heapMb < kWideHeapMb ? std::min(heapMb, kMostHeapMb) : heapMb;
    // The first compiler alone: a short run is not worth the second's time.
    // Last, so that a larger initial heap from anywhere is taken back: the JVM refuses one that is
    // above the limit. With 0 it chooses.
    java_ = "java -XX:TieredStopAtLevel=1 " + run.launch.javaOptions + " -Xmx" +
            std::to_string(enoughMb) + "m -Xms0 ";
  }

  SCA_Result Run() {
    if (const SCA_Result written = WriteDocuments(); written.HasFailed()) return written;
    SCA_Result result = SCA_Done;
    for (const char* way : kWaysNotToFork) {
      result = RunServer(way);
      if (result.Code() != SCA_ErrorProcessEnded) break;
    }
    return result.HasFailed() ? result : CheckArchive();
  }

 private:
  SCA_Result WriteDocuments() {
    for (const auto* document = SCA_TrainingDocuments; document->name != nullptr; ++document) {
      SCA_ReplacementFile file;
      unsigned long error = 0;
      const std::string name = run_.workPlace + "/" + document->name;
      if (file.Open(name.c_str(), SCA_FileAccess::Private, &error) == 0 ||
          file.Write(reinterpret_cast<const char*>(document->bytes), document->length, &error) ==
              0 ||
          file.Commit(SCA_FileCommit::Fast, &error) == 0) {
        return SCA_Result(error);
      }
    }
    return SCA_Done;
  }

  SCA_Result RunServer(const char* way) {
    const unsigned short port = SCA_FindFreePort();
    if (port == 0) return SCA_Result(EADDRNOTAVAIL);
    JavaRun run(run_, deadline_);
    const std::string command = java_ + "\"-XX:ArchiveClassesAtExit=" + run_.archive +
                                "\" -jar \"" + jar_.path + "\" -h " + kAddress + " -port " +
                                std::to_string(port) + " " + way;
    if (const SCA_Result started = run.Start(command, jar_); started.HasFailed()) return started;
    const SCA_TikaProbe probe(kAddress, port, kAskMs);
    SCA_TikaAnswer answer;
    unsigned long ignored = 0;
    while (probe.Ask(run_.cancel, &answer, &ignored) == 0) {
      if (const SCA_Result passed = run.Pass(kPassMs); passed.HasFailed()) return passed;
      if (!run.IsRunning()) return SCA_Result(SCA_ErrorProcessEnded);
    }
    if (const SCA_Result sent = SendDocuments(port, &run); sent.HasFailed()) return sent;
    run.Terminate();
    return run.WaitForEnd();
  }

  // What becomes of a document does not matter, only the classes that it takes.
  SCA_Result SendDocuments(unsigned short port, JavaRun* run) {
    const auto ignore = [](const char*, unsigned long, unsigned long, void*) { return 1; };
    SCA_TikaConfigOrv settings;
    settings.SetNetworkTimeout(kDocumentMs);
    for (const auto* document = SCA_TrainingDocuments; document->name != nullptr; ++document) {
      SCA_TikaClient client(&settings, kAddress, port);
      client.SetCancelEvent(run_.cancel);
      const std::string name = run_.workPlace + "/" + document->name;
      unsigned long length = 0;
      unsigned long ignored = 0;
      if (client.InitDataBuffer() == 0) return SCA_Result(ENOMEM);
      if (client.Connect(kAskMs, &ignored) != 0) {
        client.GetFileText(3, name.c_str(), nullptr, ignore, nullptr, run_.cancel, &length,
                           &ignored);
      }
      if (const SCA_Result passed = run->Pass(0); passed.HasFailed()) return passed;
    }
    return SCA_Done;
  }

  // A JVM dies of an archive that was cut, as on a full disk. Here it is one of ours. So is one
  // that does not know an option with which servers would use the archive.
  SCA_Result CheckArchive() {
    JavaRun run(run_, deadline_);
    const std::string command = java_ + "-Xshare:on " + SCA_ClassArchiveOptions(run_.archive) +
                                " -cp \"" + jar_.path + "\" -version";
    if (const SCA_Result started = run.Start(command, jar_); started.HasFailed()) return started;
    if (const SCA_Result ended = run.WaitForEnd(); ended.HasFailed()) return ended;
    return run.HasSucceeded() ? SCA_Done : SCA_Result(SCA_ErrorInvalidData);
  }

  const SCA_TrainingRun& run_;
  const SCA_TikaJar jar_;
  const SCA_Deadline deadline_;
  std::string java_;  // the beginning of each command
};

}  // namespace

std::string SCA_ClassArchiveOptions(const std::string& archive) {
  return "\"-XX:SharedArchiveFile=" + archive + "\" -XX:+VerifySharedSpaces";
}

SCA_Result SCA_TrainClasses(const SCA_TrainingRun& run) {
  return Training(run).Run();
}
