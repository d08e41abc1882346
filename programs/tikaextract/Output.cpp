#include "programs/tikaextract/Output.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "platform/SCA_Error.h"
#include "programs/common/Advice.h"
#include "programs/common/Escape.h"
#include "programs/common/Json.h"

namespace fs = std::filesystem;

namespace {

// Texts are brought to the disk together: one after the other takes many times as long.
constexpr std::size_t kMostGathered = 64;
constexpr std::chrono::seconds kLongestGathered{1};

// The permissions of a document for the account of this run and for the group of its text, which
// may be another group than the document's.
unsigned ModeOfText(const struct stat& document, const std::string& outputDir) {
  struct stat directory {};
  const bool givesGroup =
      ::stat(outputDir.c_str(), &directory) == 0 && (directory.st_mode & S_ISGID) != 0;
  const gid_t group = givesGroup ? directory.st_gid : ::getegid();
  unsigned mode = document.st_mode & 0666U;
  if (document.st_uid != ::geteuid()) mode |= 0600U;
  if (document.st_gid != group) mode &= ~0070U | (mode & 07U) << 3U;
  return mode;
}

bool WriteToStandardOutput(std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

}  // namespace

std::string Output::Open() {
  if (options_.outputDir.empty()) return {};
  std::string complaint =
      journal_.Open(options_.outputDir, options_.resume, options_.retryRefused, &killers_);
  folder_.beganAt = journal_.BeginTime();
  std::error_code ignored;
  realDir_ = fs::canonical(options_.outputDir, ignored);
  return complaint;
}

std::unique_ptr<Job> Output::Admit(const Document& document) {
  auto job = std::make_unique<Job>();
  job->document = document;
  if (!document.complaint.empty()) return job;
  Describe(job.get());
  if (IsToBeTried(job.get())) return job;
  progress_.AddSkipped(job->bytes);
  progress_.Show();
  return nullptr;
}

void Output::Describe(Job* job) const {
  struct stat status {};
  if (::stat(job->document.path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  job->bytes = static_cast<unsigned long long>(status.st_size);
  if (options_.outputDir.empty()) return;
  job->entry = Journal::Describe(job->document.path, status, RealOutput(job->document));
  job->mode = ModeOfText(status, options_.outputDir);
}

// Where directories of the output are links, two names may mean one text: the journal has the one
// without links.
std::string Output::RealOutput(const Document& document) const {
  const fs::path path = OutputPath(document);
  std::error_code error;
  fs::path directory = fs::canonical(path.parent_path(), error);
  if (error) directory = fs::weakly_canonical(path.parent_path(), error);
  if (error || realDir_.empty()) return document.output;
  return (directory / path.filename()).lexically_relative(realDir_).string();
}

bool Output::IsToBeTried(Job* job) {
  if (job->entry.IsKnown()) {
    std::string owner;
    switch (journal_.Claim(job->entry, &owner)) {
      case Journal::Verdict::Extract:
        break;
      case Journal::Verdict::Refused:
        ++refusedBefore_;
        return false;
      case Journal::Verdict::Done:
      case Journal::Verdict::Repeated:
        return false;
      case Journal::Verdict::Taken:
        // The line of the output is its owner's.
        job->entry = {};
        job->document.complaint = "its text would take the place of that of " + Quoted(owner) +
                                  ", " + Quoted(OutputPath(job->document)) +
                                  ": extract them into different directories";
        return true;
    }
  }
  if (options_.retryRefused) return true;
  if (const Killers::Content* killer = killers_.Find(job->document.path, job->bytes)) {
    job->killer = killer->digest;
    job->document.complaint = "not sent: servers died while they had " + Quoted(killer->path) +
                              ", which has the same content; --retry-refused sends it";
  }
  return true;
}

std::unique_ptr<TextStore> Output::MakeStore(const Job& job) {
  if (options_.outputDir.empty()) return std::make_unique<BufferedText>();
  return std::make_unique<TextFile>(OutputPath(job.document), job.mode, &folder_);
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
  for (const auto& job : gathered_) Note(*job, Judge(*job));
  Fail(journal_.Write());
  for (const auto& job : gathered_) Conclude(*job);
  gathered_.clear();
}

void Output::Finish() {
  Flush();
  Fail(journal_.Sync());
  if (refusedBefore_ == 0) return;
  status_ = kSomeFailed;
  progress_.PrintLine("tikaextract: " + std::to_string(refusedBefore_) +
                      " of the skipped documents were refused by a former run; --retry-refused "
                      "tries them again");
}

void Output::Conclude(const Job& job) {
  Result result = Judge(job);
  if (!hasFailed_ && !Print(job, result)) result = Judge(job);
  if (result.IsExtracted()) {
    progress_.AddExtracted(job.bytes);
  } else {
    progress_.AddFailed(job.bytes);
    progress_.PrintLine("tikaextract: " + Printable(job.document.path) + ": " + result.complaint);
    status_ = kSomeFailed;
  }
  progress_.Show();
}

Output::Result Output::Judge(const Job& job) const {
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

// @return False when the text could not be read back.
bool Output::Print(const Job& job, const Result& result) {
  bool isWhole = true;
  if (options_.jsonl) {
    isWhole = PrintRecord(job, result);
    if (!isWhole) PrintRecord(job, Judge(job));
  } else if (options_.outputDir.empty() && result.IsExtracted()) {
    isWhole = PrintText(job);
  }
  CheckStandardOutput();
  return isWhole;
}

bool Output::PrintText(const Job& job) {
  auto* const text = static_cast<BufferedText*>(job.store);
  text->ForEachBlock(WriteToStandardOutput);
  return text->Complaint().empty();
}

bool Output::PrintRecord(const Job& job, const Result& result) {
  nlohmann::ordered_json record;
  SetJsonText(&record, "path", job.document.path);
  record["size"] = job.bytes;
  record["outcome"] = SCA_TikaOutcomeText(result.outcome);
  if (result.IsExtracted()) {
    record["error"] = nullptr;
  } else {
    SetJsonText(&record, "error", result.complaint);
  }
  record["milliseconds"] = job.request != nullptr ? job.request->GetDuration() : 0;
  SetJsonText(&record, "server", job.request != nullptr ? job.request->GetServer() : "");
  record["textLength"] = result.IsExtracted() ? job.request->GetTextLength() : 0;
  if (result.IsExtracted() && !options_.outputDir.empty()) {
    SetJsonText(&record, "textPath", OutputPath(job.document));
  }
  std::string line = JsonText(record);
  if (!result.IsExtracted() || !options_.outputDir.empty()) {
    WriteToStandardOutput(line + "\n");
    return true;
  }
  // A text of any size: the record is written piece by piece.
  line.back() = ',';
  auto* const text = static_cast<BufferedText*>(job.store);
  const auto blocks = [text](const TextTake& take) { return text->ForEachBlock(take); };
  const bool isWhole = WriteToStandardOutput(line) &&
                       WriteJsonText("text", blocks, WriteToStandardOutput) &&
                       WriteToStandardOutput("}\n");
  if (isWhole || text->Complaint().empty()) return true;
  // What is out remains a string without an end, which nobody takes for a record.
  WriteToStandardOutput("\n");
  return false;
}

// Writes down what a later run, or another document, must know.
void Output::Note(const Job& job, const Result& result) {
  using Kind = Journal::Kind;
  if (result.outcome == SCA_TikaOutcome::ServersDied) {
    const bool isKnown = !job.killer.empty();
    const std::string digest = isKnown ? job.killer : Killers::Digest(job.document.path);
    if (!isKnown && !digest.empty()) killers_.Add(job.bytes, {digest, job.document.path});
    journal_.Add(job.entry, digest.empty() ? Kind::Failed : Kind::Killer, digest);
  } else if (result.IsExtracted()) {
    journal_.Add(job.entry, Kind::Text, std::to_string(job.request->GetTextLength()));
  } else {
    journal_.Add(job.entry,
                 result.outcome == SCA_TikaOutcome::Refused ? Kind::Refused : Kind::Failed, "");
  }
}

// Ends the run when the output cannot be written any more.
void Output::CheckStandardOutput() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
  const auto error = static_cast<unsigned long>(errno);
  // A reader that has seen enough is no failure worth a line.
  Fail(error == EPIPE ? std::string() : "cannot write to standard output: " + Explain(error));
  hasFailed_ = true;
  status_ = kSomeFailed;
}

void Output::Fail(const std::string& complaint) {
  if (complaint.empty()) return;
  if (!hasFailed_) progress_.PrintLine("tikaextract: " + complaint);
  hasFailed_ = true;
  status_ = kSomeFailed;
}

std::string Output::OutputPath(const Document& document) const {
  return (fs::path(options_.outputDir) / document.output).string();
}
