/// How documents ended, in this run and in the earlier runs that count: which of them are
/// tried at all.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_LEDGER_H
#define SCA_PROGRAMS_TIKAEXTRACT_LEDGER_H

#include <filesystem>
#include <string>

#include "programs/tikaextract/Job.h"
#include "programs/tikaextract/Journal.h"
#include "programs/tikaextract/Killers.h"
#include "programs/tikaextract/Options.h"

/// Under -o it keeps the journal; without, it knows only this run. Threads: one.
class Ledger {
 public:
  explicit Ledger(const Options& options) : options_(options) {}

  /// Begins. @return A complaint, or nothing.
  std::string Open();
  /// The time on the output directory's file system at which this run began.
  const timespec& BeginTime() const { return journal_.BeginTime(); }

  /// Decides on a document, which this run then owns until its outcome is noted.
  /// @param job  Receives the document's state, and a complaint when there is nothing to extract.
  /// @return False for a document that is skipped.
  bool Admit(Job* job);
  /// Gives back a document that was admitted and has no outcome.
  void Withdraw(const Job& job) { journal_.Withdraw(job.entry); }
  /// Notes what a later run, or another document, must know.
  void Note(const Job& job, const Result& result);
  /// Writes what was noted. @return A complaint, or nothing.
  std::string Write() { return journal_.Write(); }
  /// Waits until all of it is on the disk. @return A complaint, or nothing.
  std::string Sync() { return journal_.Sync(); }

  /// @return How many of the skipped documents an earlier run's servers refused.
  unsigned long long RefusedBefore() const { return refusedBefore_; }
  /// @return How many of the skipped documents have a text that may not be whole.
  unsigned long long TruncatedBefore() const { return truncatedBefore_; }

 private:
  void Describe(Job* job) const;
  std::string RealOutput(const Document& document) const;

  const Options& options_;
  Journal journal_;
  Killers killers_;
  std::filesystem::path realDir_;  // the output directory without links
  unsigned long long refusedBefore_ = 0;
  unsigned long long truncatedBefore_ = 0;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_LEDGER_H
