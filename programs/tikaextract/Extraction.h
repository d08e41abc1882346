/// The run of tikaextract: documents go to the dispatcher, a window of them at a time, and from
/// there to the output.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_EXTRACTION_H
#define SCA_PROGRAMS_TIKAEXTRACT_EXTRACTION_H

#include <atomic>
#include <deque>
#include <memory>
#include <string>

#include "control/SCA_ControlKey.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Sync.h"
#include "product/SCA_TikaDispatcher.h"
#include "programs/common/Event.h"
#include "programs/tikaextract/Documents.h"
#include "programs/tikaextract/Job.h"
#include "programs/tikaextract/Options.h"
#include "programs/tikaextract/Output.h"
#include "programs/tikaextract/PrivateServer.h"
#include "programs/tikaextract/Progress.h"
#include "programs/tikaextract/Services.h"
#include "programs/tikaextract/Setup.h"

class Extraction {
 public:
  /// @param cancel  Ends the run soon after it is set; not owned.
  Extraction(const Options& options, SCA_Event* cancel);
  ~Extraction();
  Extraction(const Extraction&) = delete;
  Extraction& operator=(const Extraction&) = delete;

  /// @return An `ExitStatus`; whatever it is when the run was cancelled.
  int Run();

 private:
  int RunDocuments();
  bool IsTaken(const std::string& extension) const;
  void CountDocuments();
  int RunWithServers();
  std::string UseKey();
  bool MakeDispatcher();
  int StartDispatcher();
  bool FindServers(std::vector<std::string>* complaints);
  void ComplainAboutServers(const std::vector<std::string>& complaints);
  bool AddClient(const ServerOfService& server, unsigned long* error);
  unsigned long ClientsForServer();
  void AddServerOfService(unsigned long serviceId, unsigned short port);
  void ShowServices();
  static int PrepareServer(SCA_TikaClient* client, SCA_Event* stop, void* context,
                           unsigned long* error);
  bool EnsurePrivateServer(SCA_TikaClient* client) SCA_EXCLUDES(privateLock_);

  bool Fill();
  std::size_t Window() const;
  void Submit(std::unique_ptr<Job> admitted);
  std::unique_ptr<Job> TakeFinished();
  Job* FirstFinished();
  void HasFinished(Job* job) SCA_EXCLUDES(finishedLock_);
  void CancelOnce();

  std::string WhyNoServer(const std::string& cause) SCA_EXCLUDES(privateLock_);
  bool IsCancelled() { return cancel_->Wait(0) != 0; }
  bool UsesPrivateServer() const { return setup_.IsPrivate(); }

  const Options& options_;
  SCA_Event* const cancel_;
  Setup setup_;
  Progress progress_;
  Output output_;

  SCA_Lock privateLock_;  // its server is used by one thread at a time
  PrivateServer private_ SCA_GUARDED_BY(privateLock_);
  std::string privateComplaint_ SCA_GUARDED_BY(privateLock_);  // why it could not be started last

  std::unique_ptr<Documents> documents_;
  std::size_t window_ = 1;                 // documents under way at most
  std::atomic<unsigned long> clients_{0};  // of the dispatcher
  std::deque<std::unique_ptr<Job>> jobs_;
  bool isEnding_ = false;     // no further documents
  bool isCancelled_ = false;  // the dispatcher knows

  SCA_Lock finishedLock_;
  std::deque<Job*> finished_ SCA_GUARDED_BY(finishedLock_);  // when output is unordered
  ProgramEvent oneFinished_{0, 0};

  SCA_ControlKey key_;

  // Last: the threads of the dispatcher use all of the above, and those of the services use the
  // dispatcher, which uses them until it has stopped.
  std::unique_ptr<SCA_TikaDispatcher> dispatcher_;
  Services services_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_EXTRACTION_H
