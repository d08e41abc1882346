#include "programs/tikaextract/Output.h"

#include <cerrno>

#include "platform/SCA_Error.h"
#include "programs/common/Advice.h"
#include "programs/common/Escape.h"

namespace {

// Texts are brought to the disk together: one after the other takes many times as long.
constexpr std::size_t kMostGathered = 64;
constexpr std::chrono::seconds kLongestGathered{1};

const char* LockedSentence(bool hasPassword, const SCA_TikaVersion& server) {
  if (hasPassword) return "it is locked, and the password of --password-file does not open it";
  return server.GetSupport(SCA_TikaOptionPassword) == SCA_TikaSupport::Followed
             ? "it is locked with a password: give that with --password-file"
             : "it is locked with a password, and the Tika version of its server takes none with a "
               "request: configure that server, or use Tika 1 to 3";
}

// What a finding means, and what to do about it.
std::string Sentence(SCA_TikaFinding finding, const std::string& cause, const char* locked) {
  switch (finding) {
    case SCA_TikaFinding::Complete:
      return {};
    case SCA_TikaFinding::Truncated:
      return "its text may not be whole (" + Printable(cause) +
             "): compare it with the document in its own program";
    case SCA_TikaFinding::Locked:
      return locked;
    case SCA_TikaFinding::Empty:
      return "it is an empty file: check that it was copied whole";
    case SCA_TikaFinding::Damaged:
      return "Tika cannot read it (" + Printable(cause) +
             "): it is damaged, or not what it seems to be; open it in its own program";
  }
  return {};
}

// With the server's own message where its answer had one, as with Tika 4. The cause is "SERVER:
// TEXT", and then the message.
std::string ExplainReply(const SCA_TikaExtractRequest& request) {
  const unsigned long code = request.GetStatusCode();
  const SCA_TikaOutcome outcome = request.GetOutcome();
  const bool isAnswered =
      outcome == SCA_TikaOutcome::Refused || outcome == SCA_TikaOutcome::ServerFailed;
  const std::string cause = request.GetCause();
  const std::string begin = std::string(request.GetServer()) + ": " + SCA_ErrorText(code) + ": ";
  if (!isAnswered || cause.compare(0, begin.size(), begin) != 0) return Explain(code);
  return std::string(SCA_ErrorText(code)) + ": " + Printable(cause.substr(begin.size())) + "; " +
         AdviceOn(code, ErrorOf::Document);
}

}  // namespace

std::string Output::Open() {
  std::string complaint = ledger_.Open();
  folder_.beganAt = ledger_.BeginTime();
  return complaint;
}

std::unique_ptr<Job> Output::Admit(const Document& document) {
  auto job = std::make_unique<Job>();
  job->document = document;
  if (!document.complaint.empty() || ledger_.Admit(job.get())) return job;
  // A run that lasts comes across the same ones again and again.
  if (options_.watchFolder.empty()) progress_.AddSkipped(job->bytes);
  progress_.Show();
  return nullptr;
}

SCA_Owned<SCA_TikaTextSink> Output::MakeSink(Job* job) {
  if (!job->document.complaint.empty()) return nullptr;
  std::unique_ptr<TextStore> store;
  if (options_.outputDir.empty()) {
    store = std::make_unique<BufferedText>();
  } else {
    store = std::make_unique<TextFile>(OutputPath(options_, job->document), job->mode,
                                       job->replacesText, &folder_);
  }
  job->store = store.get();
  SCA_Owned<SCA_TikaTextSink> sink;
  if (options_.choice.IsReport()) {
    job->report = new DocumentReport(std::move(store), options_.choice.embeddedRecords);
    sink.reset(job->report);
  } else {
    sink.reset(store.release());
  }
  return sink;
}

void Output::Take(std::unique_ptr<Job> job, bool isCut) {
  // What the run's end has cut off is no failure of the document.
  if (isCut && !Judge(*job).IsExtracted()) return;
  if (!isCut) job->reason = AskWhy(*job);
  if (gathered_.empty()) gatheredSince_ = Clock::now();
  gathered_.push_back(std::move(job));
  FlushWhenDue();
}

// Only of what was refused for its content. An empty file tells by itself.
std::optional<Reason> Output::AskWhy(const Job& job) {
  const SCA_TikaExtractRequest* const request = job.request.get();
  if (request == nullptr || request->GetOutcome() != SCA_TikaOutcome::Refused ||
      request->GetStatusCode() != SCA_ErrorTika422 || request->GetRefusalCode() != 0) {
    return std::nullopt;
  }
  if (request->GetFileSize() == 0) return Reason{SCA_TikaFinding::Empty, {}, {}};
  if (!inquiry_.HasTime()) {
    TellUnasked();
    return std::nullopt;
  }
  return inquiry_.Ask(request->GetServer(), request->GetPath(), job.document.path);
}

void Output::TellUnasked() {
  if (!options_.verbose || toldUnasked_) return;
  toldUnasked_ = true;
  progress_.PrintLine(
      "tikaextract: many documents are refused: to save time, the reason of some is not asked for");
}

void Output::FlushWhenDue() {
  if (gathered_.empty()) return;
  const bool isDue = options_.outputDir.empty() || gathered_.size() >= kMostGathered ||
                     Clock::now() - gatheredSince_ >= kLongestGathered;
  if (isDue) Flush();
}

// First the texts are on the disk, then the journal says so, and then the documents are told of:
// what was told of is not done again, whenever the run is killed.
void Output::Flush() {
  if (!options_.outputDir.empty()) {
    std::vector<TextFile*> texts;
    for (const auto& job : gathered_) {
      if (Judge(*job).IsExtracted()) texts.push_back(static_cast<TextFile*>(job->store));
    }
    TextFile::Sync(texts);
  }
  for (const auto& job : gathered_) ledger_.Note(*job, Judge(*job));
  Fail(ledger_.Write());
  for (const auto& job : gathered_) Conclude(*job);
  gathered_.clear();
}

void Output::Finish() {
  Flush();
  Fail(ledger_.Sync());
  if (ledger_.TruncatedBefore() != 0) {
    Worsen(kSomeTruncated);
    progress_.PrintLine("tikaextract: " + std::to_string(ledger_.TruncatedBefore()) +
                        " of the skipped documents have texts that may not be whole; "
                        "--retry-refused extracts them again");
  }
  if (ledger_.RefusedBefore() == 0) return;
  Worsen(kSomeFailed);
  progress_.PrintLine("tikaextract: " + std::to_string(ledger_.RefusedBefore()) +
                      " of the skipped documents were refused by an earlier run; --retry-refused "
                      "tries them again");
}

void Output::Conclude(const Job& job) {
  Result result = Judge(job);
  if (!hasFailed_) result = Print(job, result);
  if (!result.complaint.empty()) {
    progress_.PrintLine("tikaextract: " + Printable(job.document.path) + ": " + result.complaint);
    Worsen(result.IsTruncated() ? kSomeTruncated : kSomeFailed);
  }
  if (result.IsTruncated()) progress_.AddTruncated();
  if (result.IsExtracted()) {
    progress_.AddExtracted(job.bytes);
    TellIgnoredOptions(job);
  } else {
    progress_.AddFailed(job.bytes);
  }
  progress_.Show();
  if (onConcluded) onConcluded(job, result);
}

// A failure counts more than a text that is not whole.
void Output::Worsen(ExitStatus status) {
  if (status_ != kSomeFailed) status_ = status;
}

// Once for each option: the next documents are not different.
void Output::TellIgnoredOptions(const Job& job) {
  const unsigned long ignored = job.request->GetIgnoredOptions() & ~toldIgnored_;
  if (ignored == 0) return;
  toldIgnored_ |= ignored;
  progress_.PrintLine("tikaextract: the Tika version of " + Printable(job.request->GetServer()) +
                      " ignores: " + SCA_TikaOptionNames(ignored));
}

Result Output::Judge(const Job& job) const {
  using Outcome = SCA_TikaOutcome;
  if (!job.killer.empty()) return {Outcome::ServersDied, job.document.complaint, {}};
  if (job.request == nullptr) return {Outcome::FileFailed, job.document.complaint, {}};
  if (!job.store->Complaint().empty()) return {Outcome::SinkFailed, job.store->Complaint(), {}};
  if (job.report != nullptr && job.report->Error() != 0) {
    return {Outcome::ServerFailed, "its metadata: " + Explain(job.report->Error()), {}};
  }
  const Outcome outcome = job.request->GetOutcome();
  // The type of a document is known whatever else could not be read.
  if (!options_.choice.HasText() && job.Metadata() != nullptr &&
      !job.Metadata()->GetContentType().empty()) {
    return {Outcome::Extracted, {}, SCA_TikaFinding::Complete};
  }
  const char* const locked =
      LockedSentence(!options_.choice.request.password.empty(), job.request->GetServerVersion());
  if (job.reason) {
    return {outcome, Sentence(job.reason->finding, job.reason->cause, locked), job.reason->finding};
  }
  if (outcome != Outcome::Extracted) return {outcome, Complain(job), {}};
  if (job.report == nullptr) return {outcome, {}, {}};
  const SCA_TikaFinding finding = job.report->Finding();
  const bool isKept = finding == SCA_TikaFinding::Complete || finding == SCA_TikaFinding::Truncated;
  return {isKept ? outcome : Outcome::Refused, Sentence(finding, job.report->Cause(), locked),
          finding};
}

std::string Output::Complain(const Job& job) const {
  const SCA_TikaExtractRequest& request = *job.request;
  if (request.GetRefusalCode() != 0) {
    return std::string(SCA_ErrorText(request.GetRefusalCode())) + " before it had read the file";
  }
  if (request.GetOutcome() == SCA_TikaOutcome::OptionRefused) return Printable(request.GetCause());
  if (request.GetOutcome() != SCA_TikaOutcome::NoServer &&
      request.GetStatusCode() != SCA_ErrorNoServer) {
    return ExplainReply(request);
  }
  return whyNoServer_(request.GetCause());
}

// @return The result, which is another one when the text could not be read back.
Result Output::Print(const Job& job, const Result& printed) {
  Result result = printed;
  if (!printer_.Print(job, result)) {
    result = Judge(job);
    printer_.Print(job, result);
  }
  const unsigned long error = Printer::Flush();
  if (error != 0) {
    // A reader that has seen enough is no failure worth a line.
    Fail(error == EPIPE ? std::string() : "cannot write to standard output: " + Explain(error));
    hasFailed_ = true;
    status_ = kSomeFailed;
  }
  return result;
}

// Ends the run when the output cannot be written any more.
void Output::Fail(const std::string& complaint) {
  if (complaint.empty()) return;
  if (!hasFailed_) progress_.PrintLine("tikaextract: " + complaint);
  hasFailed_ = true;
  status_ = kSomeFailed;
}
