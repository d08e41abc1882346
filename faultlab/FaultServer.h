/// A Tika server that misbehaves on command.
#ifndef SCA_FAULTLAB_FAULTSERVER_H
#define SCA_FAULTLAB_FAULTSERVER_H

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "faultlab/Document.h"
#include "faultlab/ServerConnection.h"

struct FaultServerOptions {
  std::string address = "127.0.0.1";
  unsigned short port = 0;  ///< 0 takes a free one
  FaultPlan plan;           ///< the faults of documents; by themselves those of their markers
  /// Chooses the fault of each document in the plan's stead; called on threads of the server.
  std::function<FaultSpec(const DocumentHead&)> choose;
  /// Called for `die`. Unset: the server ends as if its process had been killed.
  std::function<void()> die;
  /// Called with each fault that is played, on threads of the server. May be unset.
  std::function<void(const FaultSpec&, unsigned long long size)> note;
  std::string version = "Apache Tika 3.3.2";
  std::size_t chunkSize = 32768;                  ///< of replies, in bytes; > 0
  unsigned long long maxDocument = 256ULL << 20;  ///< larger ones are refused, with 413
  unsigned long maxConnections = 256;             ///< further ones are closed at once
  std::chrono::milliseconds comingUp{0};          ///< answers 404 to everything for this long
  unsigned long long muteAfter = ~0ULL;           ///< stops answering after this many requests
};

/// Answers `GET /version` and `PUT` of /tika, /tika/text, /tika/md, /rmeta/body and /meta as Tika
/// of its version does, except for the faults; other requests get 404. Markdown is "# " and the
/// text; metadata is JSON with the text. Listens from its construction on, with a thread for each
/// connection.
class FaultServer {
 public:
  /// @param memory  Shared by servers that count tries and answers together.
  /// Throws std::system_error.
  explicit FaultServer(FaultServerOptions options = {},
                       std::shared_ptr<LabMemory> memory = std::make_shared<LabMemory>());
  ~FaultServer();  ///< As `Kill`.
  FaultServer(const FaultServer&) = delete;
  FaultServer& operator=(const FaultServer&) = delete;

  unsigned short Port() const { return listener_.Port(); }
  int Connections() const { return connections_.load(); }
  /// @return How many documents were begun.
  int Documents() const { return documents_.load(); }
  /// @return How many requests were none that a Tika client makes, cut ones included.
  int Strange() const { return strange_.load(); }
  /// Refuses and closes all connections, as the system does for a process that was killed.
  void Kill();

 private:
  class Exchange;

  void Accept();
  void Serve(int fd);

  const FaultServerOptions options_;
  const std::shared_ptr<LabMemory> memory_;
  const std::chrono::steady_clock::time_point startedAt_ = std::chrono::steady_clock::now();
  Listener listener_;
  StopSignal stop_;
  std::atomic<int> connections_{0};
  std::atomic<int> documents_{0};
  std::atomic<int> strange_{0};
  std::atomic<unsigned long long> requests_{0};
  std::mutex mutex_;
  std::condition_variable oneEnded_;
  unsigned long living_ = 0;  // threads of connections, under the mutex
  std::thread thread_;
};

#endif  // SCA_FAULTLAB_FAULTSERVER_H
