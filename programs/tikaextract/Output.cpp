#include "programs/tikaextract/Output.h"

#include <cerrno>

#include "platform/SCA_Error.h"
#include "programs/common/Advice.h"
#include "programs/common/Escape.h"

namespace {

// Texts are brought to the disk together: one after the other takes many times as long.
constexpr std::size_t kMostGathered = 64;
constexpr std::chrono::seconds kLongestGathered{1};

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

std::unique_ptr<TextStore> Output::MakeStore(const Job& job) {
  if (!job.document.complaint.empty()) return nullptr;
  if (options_.outputDir.empty()) return std::make_unique<BufferedText>();
  return std::make_unique<TextFile>(OutputPath(options_, job.document), job.mode, job.replacesText,
                                    &folder_);
}

void Output::Take(std::unique_ptr<Job> job, bool isCut) {
  // What the run's end has cut off is no failure of the document.
  if (isCut && !Judge(*job).IsExtracted()) return;
  if (gathered_.empty()) gatheredSince_ = Clock::now();
  gathered_.push_back(std::move(job));
  FlushWhenDue();
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
  if (ledger_.RefusedBefore() == 0) return;
  status_ = kSomeFailed;
  progress_.PrintLine("tikaextract: " + std::to_string(ledger_.RefusedBefore()) +
                      " of the skipped documents were refused by an earlier run; --retry-refused "
                      "tries them again");
}

void Output::Conclude(const Job& job) {
  Result result = Judge(job);
  if (!hasFailed_) result = Print(job, result);
  if (result.IsExtracted()) {
    progress_.AddExtracted(job.bytes);
  } else {
    progress_.AddFailed(job.bytes);
    progress_.PrintLine("tikaextract: " + Printable(job.document.path) + ": " + result.complaint);
    status_ = kSomeFailed;
  }
  progress_.Show();
  if (onConcluded) onConcluded(job, result);
}

Result Output::Judge(const Job& job) const {
  if (!job.killer.empty()) return {SCA_TikaOutcome::ServersDied, job.document.complaint};
  if (job.request == nullptr) return {SCA_TikaOutcome::FileFailed, job.document.complaint};
  if (!job.store->Complaint().empty()) {
    return {SCA_TikaOutcome::SinkFailed, job.store->Complaint()};
  }
  const SCA_TikaOutcome outcome = job.request->GetOutcome();
  return {outcome, outcome == SCA_TikaOutcome::Extracted ? std::string() : Complain(job)};
}

std::string Output::Complain(const Job& job) const {
  const SCA_TikaExtractRequest& request = *job.request;
  if (request.GetRefusalCode() != 0) {
    return std::string(SCA_ErrorText(request.GetRefusalCode())) + " before it had read the file";
  }
  if (request.GetOutcome() != SCA_TikaOutcome::NoServer &&
      request.GetStatusCode() != SCA_ErrorNoServer) {
    return Explain(request.GetStatusCode());
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
