#include "programs/tikaextract/Ledger.h"

#include <sys/stat.h>
#include <unistd.h>

#include "programs/common/Escape.h"
#include "programs/tikaextract/Digest.h"

namespace fs = std::filesystem;

namespace {

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

}  // namespace

std::string Ledger::Open() {
  if (options_.outputDir.empty()) return {};
  const bool isLasting = !options_.watchFolder.empty();
  if (isLasting) journal_.SetLasting();
  Journal::Terms terms;
  terms.resume = options_.resume || isLasting;
  terms.retryRefused = options_.retryRefused;
  terms.checksTexts = options_.choice.IsReport();
  terms.hasPassword = !options_.choice.request.password.empty();
  std::string complaint = journal_.Open(options_.outputDir, terms, &killers_);
  std::error_code ignored;
  realDir_ = fs::canonical(options_.outputDir, ignored);
  return complaint;
}

bool Ledger::Admit(Job* job) {
  Describe(job);
  if (job->entry.IsKnown()) {
    std::string owner;
    switch (journal_.Claim(job->entry, &owner)) {
      case Journal::Verdict::Extract:
        break;
      case Journal::Verdict::Renew:
        job->replacesText = true;
        break;
      case Journal::Verdict::Refused:
        // A run that lasts comes across it again and again.
        if (options_.watchFolder.empty()) ++refusedBefore_;
        return false;
      case Journal::Verdict::Truncated:
        if (options_.watchFolder.empty()) ++truncatedBefore_;
        return false;
      case Journal::Verdict::Done:
      case Journal::Verdict::Repeated:
        return false;
      case Journal::Verdict::Taken:
        // The line of the output is its owner's.
        job->entry = {};
        job->document.complaint = "its text would replace that of " + Quoted(owner) + ", " +
                                  Quoted(OutputPath(options_, job->document)) +
                                  ": extract them into different directories";
        return true;
    }
  }
  if (options_.retryRefused) return true;
  if (const Killers::Content* killer = killers_.Find(job->document.Source(), job->bytes)) {
    job->killer = killer->digest;
    job->document.complaint = "not sent: servers died while they had " + Quoted(killer->path) +
                              ", which has the same content; --retry-refused sends it anyway";
  }
  return true;
}

void Ledger::Describe(Job* job) const {
  struct stat status {};
  if (::stat(job->document.Source().c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
  job->bytes = static_cast<unsigned long long>(status.st_size);
  if (options_.outputDir.empty()) return;
  // What comes from standard input has a name for people only, which may be that of another file.
  const bool isInput = job->document.input != nullptr;
  job->entry = Journal::Describe(isInput ? "/dev/stdin" : job->document.path, status,
                                 RealOutput(job->document));
  // A copy that this run has made says nothing of who may read.
  if (!isInput || !job->document.input->IsCopy())
    job->mode = ModeOfText(status, options_.outputDir);
}

// Where directories of the output are links, two names may mean one text: the journal has the one
// without links.
std::string Ledger::RealOutput(const Document& document) const {
  const fs::path path = OutputPath(options_, document);
  std::error_code error;
  fs::path directory = fs::canonical(path.parent_path(), error);
  if (error) directory = fs::weakly_canonical(path.parent_path(), error);
  if (error || realDir_.empty()) return document.output;
  return (directory / path.filename()).lexically_relative(realDir_).string();
}

void Ledger::Note(const Job& job, const Result& result) {
  using Kind = Journal::Kind;
  if (result.outcome == SCA_TikaOutcome::ServersDied) {
    const bool isKnown = !job.killer.empty();
    const std::string digest = isKnown ? job.killer : DigestOfFile(job.document.Source());
    if (!isKnown && !digest.empty()) killers_.Add(job.bytes, {digest, job.document.path});
    journal_.Add(job.entry, digest.empty() ? Kind::Failed : Kind::Killer, digest);
  } else if (result.IsExtracted()) {
    Kind kind = result.finding ? Kind::Checked : Kind::Text;
    if (result.IsTruncated()) kind = Kind::Truncated;
    journal_.Add(job.entry, kind, std::to_string(job.TextLength()));
  } else if (result.outcome == SCA_TikaOutcome::Refused) {
    journal_.Add(job.entry, Kind::Refused,
                 result.finding ? SCA_TikaFindingText(*result.finding) : "");
  } else {
    journal_.Add(job.entry, Kind::Failed, "");
  }
}
