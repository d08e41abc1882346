/// The documents of --watch: those of a folder, and from then on what comes and changes there.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_WATCHER_H
#define SCA_PROGRAMS_TIKAEXTRACT_WATCHER_H

#include <sys/stat.h>

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>

#include "programs/tikaextract/DocumentSource.h"
#include "programs/tikaextract/FolderEvents.h"
#include "programs/tikaextract/FolderFilter.h"
#include "programs/tikaextract/FolderWalk.h"

/// Gives a file when it has settled: it has not changed for a moment after a writer closed it or it
/// was moved there, for a longer one when a writer may still have it open. A file that changes
/// while it is extracted is given again after that.
///
/// Keeps only what has not been given yet, up to a limit. Beyond it, and when the system has lost
/// events, the folder is walked again, and the run's journal tells what is new. So does a folder
/// that was gone and is back.
class Watcher : public DocumentSource {
 public:
  using Tell = std::function<void(const std::string& line)>;

  /// @param setup  Tells which extensions are taken; outlives this object, as the options.
  /// @param tell   Gets lines for people.
  Watcher(const Options& options, const Setup& setup, Tell tell);

  /// Begins. @return A complaint, or nothing.
  std::string Begin();

  bool Next(Document* document) override;
  /// @return True when the folder can be watched no longer, which was told.
  bool IsOver() const override { return hasFailed_; }
  void Wait() override;
  void HasEnded(const Document& document, Ending ending) override;

 private:
  using Clock = std::chrono::steady_clock;
  using Delay = std::chrono::milliseconds;

  // A file that may have to be given, in the state in which it was seen last.
  struct Pending {
    Clock::time_point due;
    Delay delay{};
    unsigned failures = 0;
    off_t size = -1;
    timespec changed{};
  };
  using Files = std::map<std::string, Pending>;

  std::string Open(const struct stat& status);
  void Fail(const std::string& complaint);
  void Look();
  void Take(const FolderEvents::Event& event);
  void CheckRoot();
  void Scan(const std::string& folder);
  void Pend(const std::string& file, Delay delay, unsigned failures = 0);
  void Schedule(const std::string& file, Pending* pending);
  bool NextSettled(Document* document);
  bool NextWalked(Document* document);
  bool IsSettled(const std::string& file, Pending* pending) const;
  bool Describe(const std::string& file, Document* document);
  bool BeginWalk();
  std::string PathOf(const std::string& file) const;
  std::string InFolder(const Document& document) const;

  const Options& options_;
  const Tell tell_;
  FolderEvents events_;
  FolderWalk walk_;
  FolderFilter filter_;
  bool hasFailed_ = false;
  bool isThere_ = false;  // the folder
  std::pair<dev_t, ino_t> root_;
  Clock::time_point rootSeen_;
  Clock::time_point scanDue_;  // of a walk in place of one that missed something

  // All by paths from the folder on.
  Files pending_;
  std::set<std::pair<Clock::time_point, std::string>> queue_;  // of those, by their dues
  std::map<std::string, unsigned> given_;                      // and how often each has failed
  std::set<std::string> scans_;                                // folders to walk; "" is all
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_WATCHER_H
