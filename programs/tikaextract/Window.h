/// The documents under way, from which they are taken in the order in which they are printed.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_WINDOW_H
#define SCA_PROGRAMS_TIKAEXTRACT_WINDOW_H

#include <deque>
#include <memory>

#include "platform/SCA_Lock.h"
#include "programs/common/Event.h"
#include "programs/tikaextract/Job.h"
#include "programs/tikaextract/Servers.h"

/// Threads: used by one thread; those of the dispatcher say which document has ended.
class Window {
 public:
  explicit Window(const Options& options)
      : choice_(options.choice), isOrdered_(!options.unordered && options.watchFolder.empty()) {}

  std::size_t Size() const { return jobs_.size(); }
  bool IsEmpty() const { return jobs_.empty(); }
  /// Takes a document over.
  /// @param sink  For the reply; null when there is nothing to extract, and it has ended.
  void Add(std::unique_ptr<Job> job, SCA_Owned<SCA_TikaTextSink> sink, Servers* servers);
  /// Waits for a moment until the next document has ended. @return Null when it has not.
  std::unique_ptr<Job> TakeEnded() SCA_EXCLUDES(lock_);

 private:
  void MakeRequest(Job* job, SCA_Owned<SCA_TikaTextSink> sink) const;
  Job* FirstEnded() SCA_EXCLUDES(lock_);
  void HasEnded(Job* job) SCA_EXCLUDES(lock_);

  const RequestChoice& choice_;
  const bool isOrdered_;  // documents leave in the order in which they came; else as they end
  std::deque<std::unique_ptr<Job>> jobs_;

  SCA_Lock lock_;
  std::deque<Job*> ended_ SCA_GUARDED_BY(lock_);  // when there is no order
  ProgramEvent oneEnded_{0, 0};
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_WINDOW_H
