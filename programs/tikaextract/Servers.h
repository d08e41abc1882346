/// The servers of a run, and the dispatcher that hands them documents.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SERVERS_H
#define SCA_PROGRAMS_TIKAEXTRACT_SERVERS_H

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "control/SCA_ControlKey.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Sync.h"
#include "product/SCA_TikaDispatcher.h"
#include "programs/tikaextract/Options.h"
#include "programs/tikaextract/PrivateServer.h"
#include "programs/tikaextract/Progress.h"
#include "programs/tikaextract/Services.h"
#include "programs/tikaextract/Setup.h"

/// Finds the servers that the setup names, starts a private one where it names none, and takes in
/// those of service hosts while the run goes on.
/// Threads: used by one thread. Those of the dispatcher and of the services call private members.
class Servers {
 public:
  /// @param setup   Prepared before `Start`; not owned, as the others.
  /// @param cancel  Ends the waits. `Stop` sets it.
  Servers(const Options& options, Setup* setup, Progress* progress, SCA_Event* cancel);
  ~Servers();
  Servers(const Servers&) = delete;
  Servers& operator=(const Servers&) = delete;

  /// Uses the key of the command line for all services. @return A complaint, or nothing.
  std::string UseKey();
  /// Waits until one server can be reached. Prints why none can.
  /// @return `kAllExtracted`, or the `ExitStatus` to end with.
  ExitStatus Start();
  /// Ends everything that is under way and gives servers back.
  void Stop() SCA_EXCLUDES(privateLock_);

  /// Hands a document to the dispatcher.
  /// @return Nothing; or why it was not taken, and then the caller still owns it.
  std::string Submit(SCA_TikaExtractRequest* request, const std::string& extension);
  void CancelAll() { dispatcher_->CancelAll(); }
  /// @return How many documents can be served at once.
  unsigned long Clients() const { return clients_.load() + services_.Clients(); }
  /// Prints what has happened to services.
  void ShowServices();
  /// @param cause  What the request tells.
  /// @return All that is known of why a document found no server.
  std::string WhyNone(const std::string& cause) SCA_EXCLUDES(privateLock_);

 private:
  bool MakeDispatcher();
  bool Find(std::vector<std::string>* complaints) SCA_EXCLUDES(privateLock_);
  void Complain(const std::vector<std::string>& complaints);
  ExitStatus AddClients() SCA_EXCLUDES(privateLock_);
  bool AddClient(const ServerOfService& server, unsigned long* error);
  unsigned long ClientsForServer();
  bool PreparePrivate(SCA_TikaClient* client, unsigned long* error) SCA_EXCLUDES(privateLock_);

  const Options& options_;
  Setup& setup_;
  Progress& progress_;
  SCA_Event* const cancel_;
  SCA_ControlKey key_;

  SCA_Lock privateLock_;  // its server is used by one thread at a time
  PrivateServer private_ SCA_GUARDED_BY(privateLock_);
  std::string privateComplaint_ SCA_GUARDED_BY(privateLock_);  // why it could not be started last

  std::atomic<unsigned long> clients_{0};  // of the dispatcher, except those of services

  // Last: their threads use all of the above, and those of the services use the dispatcher.
  std::unique_ptr<SCA_TikaDispatcher> dispatcher_;
  Services services_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SERVERS_H
