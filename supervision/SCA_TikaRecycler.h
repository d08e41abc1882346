/// Replaces Tika servers that have served for long: a successor starts first, clients move over to
/// it, and the server that it replaces finishes its documents before it is stopped.
/// Threads: see the classes.
#ifndef SCA_SUPERVISION_SCA_TIKARECYCLER_H
#define SCA_SUPERVISION_SCA_TIKARECYCLER_H

#include <memory>
#include <string>
#include <vector>

#include "platform/SCA_Object.h"

/// When a server has served for long, and how long each part of its succession may take.
struct SCA_TikaRecycleRules {
  unsigned long long documents = 0;    ///< that its process has begun; 0: any number
  unsigned long long upTimeMs = 0;     ///< of its process; 0: any time
  unsigned long long memoryBytes = 0;  ///< of its processes; 0: any amount
  /// Its memory counts from then on: where a server exceeds the limit as soon as it runs, a
  /// successor will too.
  unsigned long long memoryAfterMs = 600000;
  unsigned long lookMs = 1000;           ///< between two looks at the servers
  unsigned long readyLimitMs = 120000;   ///< until a successor answers
  unsigned long noticeMs = 3000;         ///< clients look at the list of servers at least so often
  unsigned long finishLimitMs = 600000;  ///< for the documents of a server that was withdrawn
  unsigned long firstDelayMs = 30000;    ///< before the next attempt, when a succession failed
  unsigned long lastDelayMs = 3600000;   ///< upper limit of the delay, which doubles each time
  unsigned long long spareBytes = 512ULL << 20;  ///< of memory that must be free for a successor; a
                                                 ///< Tika 3 that has just started takes 350 MiB
};

/// A server at one moment.
struct SCA_TikaTenure {
  unsigned long serverId = 0;
  unsigned short port = 0;
  int isReady = 0;
  int isBound = 0;                   ///< it may not be replaced now; a client needs its port, say
  unsigned long long documents = 0;  ///< that its process has begun
  unsigned long long upTimeMs = 0;   ///< of its process
  unsigned long long memoryBytes = 0;
};

/// Where a succession is.
enum class SCA_TikaSuccession {
  None,         ///< no server is being replaced
  Starting,     ///< the successor does not answer yet
  Overlapping,  ///< both serve, until all clients know the successor
  Finishing     ///< the server that was replaced gets no more documents, and finishes what it has
};

/// Does what a recycler decides. Called on the recycler's thread, one call at a time and under no
/// lock. Must not throw, and must not destroy the recycler.
class SCA_API SCA_TikaRecyclerOwner {
 public:
  virtual ~SCA_TikaRecyclerOwner();
  /// Gives all servers except those that were withdrawn. @return 1, or 0 without memory.
  virtual int GetTenures(std::vector<SCA_TikaTenure>* tenures) = 0;
  /// Makes and starts another server of the same kind on another port.
  /// @param why    Such as "it has run for 12 h".
  /// @param error  Receives an `SCA_Error.h` code on failure.
  /// @return 1, or 0 when none could be started; nothing of it is left then.
  virtual int StartSuccessor(unsigned long serverId, const char* why, unsigned long* successorId,
                             unsigned long* error) = 0;
  /// Takes a server out of the list that clients see; its process runs on.
  /// @return 1, or 0 when it is gone, or may no longer be replaced.
  virtual int Withdraw(unsigned long serverId, unsigned long successorId) = 0;
  /// Stops a server that was withdrawn.
  /// @param connections  That it still has because the limit has passed; else 0, and 0 when the
  ///                     system has not told them by then.
  virtual void StopWithdrawn(unsigned long serverId, unsigned long connections) = 0;
  /// A succession has failed or is no longer wanted: the server stays as it is.
  /// @param successorId  To be deleted, if it is still there; 0xFFFFFFFF for none.
  /// @param why          One line in English.
  /// @param nextTryMs    Until the next attempt; 0 when nothing failed.
  virtual void AbandonSuccession(unsigned long serverId, unsigned long successorId, const char* why,
                                 unsigned long nextTryMs) = 0;
};

/// Looks at an owner's servers on a thread of its own, and replaces one at a time. Nothing is
/// thrown.
class SCA_API SCA_TikaRecycler : public SCA_Object {
 public:
  /// Without memory or a thread the recycler is not valid, and replaces nothing.
  /// @param owner  Not owned; outlives the recycler.
  SCA_TikaRecycler(const SCA_TikaRecycleRules& rules, SCA_TikaRecyclerOwner* owner);
  /// Waits for a call of the owner that is under way. A succession stays where it is: its servers
  /// are the owner's.
  ~SCA_TikaRecycler() override;
  SCA_TikaRecycler(const SCA_TikaRecycler&) = delete;
  SCA_TikaRecycler& operator=(const SCA_TikaRecycler&) = delete;

  /// Threads: any.
  SCA_TikaSuccession GetSuccession() const;
  /// @return Servers whose place a successor has taken. Threads: any.
  unsigned long long GetCount() const;

 private:
  class Core;
  std::unique_ptr<Core> core_;
};

#endif  // SCA_SUPERVISION_SCA_TIKARECYCLER_H
