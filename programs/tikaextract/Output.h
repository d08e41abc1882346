/// What becomes of the documents of a run: which of them are extracted at all, where their texts
/// are kept, and what is written down and told of each that has ended.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_OUTPUT_H
#define SCA_PROGRAMS_TIKAEXTRACT_OUTPUT_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "programs/tikaextract/Inquiry.h"
#include "programs/tikaextract/Job.h"
#include "programs/tikaextract/Ledger.h"
#include "programs/tikaextract/Options.h"
#include "programs/tikaextract/Printer.h"
#include "programs/tikaextract/Progress.h"

/// Threads: one.
class Output {
 public:
  /// Told of each document when all is written and told of it. May be empty.
  std::function<void(const Job& job, const Result& result)> onConcluded;

  using WhyNoServer = std::function<std::string(const std::string& cause)>;

  /// @param cancel       Ends inquiries; not owned.
  /// @param whyNoServer  Tells all that is known of why a document found no server, out of what its
  ///                     request tells.
  Output(const Options& options, Progress* progress, SCA_Event* cancel, WhyNoServer whyNoServer)
      : options_(options),
        progress_(*progress),
        whyNoServer_(std::move(whyNoServer)),
        inquiry_(options.choice, cancel),
        ledger_(options),
        printer_(options) {}

  /// Begins. @return A complaint, or nothing.
  std::string Open();

  /// @return Null for a document that is skipped; else its job, which has a complaint when there is
  ///         nothing to extract.
  std::unique_ptr<Job> Admit(const Document& document);
  /// Makes what receives the reply for a document, and notes it in the job.
  /// @return Null when there is nothing to extract.
  SCA_Owned<SCA_TikaTextSink> MakeSink(Job* job);

  /// Takes over a job that has ended. Under -o some are gathered, until their texts are on the
  /// disk.
  /// @param isCut  The run was cancelled: what has no text is no failure of its document.
  void Take(std::unique_ptr<Job> job, bool isCut);
  /// Gives back a job whose document is to be extracted again later, as if it had not been
  /// admitted.
  void Withdraw(const Job& job) { ledger_.Withdraw(job); }
  /// Concludes what has been gathered, when it has waited long enough.
  void FlushWhenDue();
  void Finish();

  /// Nothing can be written any more: the run is to end.
  bool HasFailed() const { return hasFailed_; }
  /// @return An `ExitStatus`.
  int Status() const { return status_; }

 private:
  using Clock = std::chrono::steady_clock;

  std::optional<Reason> AskWhy(const Job& job);
  void TellIgnoredOptions(const Job& job);
  void Flush();
  void Conclude(const Job& job);
  Result Judge(const Job& job) const;
  std::string Complain(const Job& job) const;
  void Worsen(ExitStatus status);
  void TellUnasked();
  Result Print(const Job& job, const Result& result);
  void Fail(const std::string& complaint);

  const Options& options_;
  Progress& progress_;
  const WhyNoServer whyNoServer_;
  Inquiry inquiry_;
  bool toldUnasked_ = false;
  unsigned long toldIgnored_ = 0;  // options, as bits
  Ledger ledger_;
  Printer printer_;
  TextFolder folder_;
  std::vector<std::unique_ptr<Job>> gathered_;
  Clock::time_point gatheredSince_;
  bool hasFailed_ = false;
  ExitStatus status_ = kAllExtracted;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_OUTPUT_H
