#include "programs/tikaextract/Extraction.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "platform/SCA_Error.h"
#include "programs/tikaextract/Documents.h"
#include "programs/tikaextract/Watcher.h"

namespace {

constexpr std::size_t kLargestWindow = 64;  // documents that may run ahead of the one to print

// Whether a document was written or removed while it was read.
bool WasDisturbed(const Job& job) {
  if (job.request == nullptr || job.request->GetOutcome() != SCA_TikaOutcome::FileFailed)
    return false;
  const unsigned long code = job.request->GetStatusCode();
  return code == ENOENT || code == SCA_ErrorFileShrank || code == SCA_ErrorFileGrew;
}

// What may be otherwise the next time: servers come back, and disks get room.
DocumentSource::Ending EndingOf(const Job& job, const Result& result) {
  switch (result.outcome) {
    case SCA_TikaOutcome::NoServer:
    case SCA_TikaOutcome::ConnectionBroken:
    case SCA_TikaOutcome::ServerFailed:
    case SCA_TikaOutcome::TimedOut:
      return DocumentSource::Ending::Transient;
    case SCA_TikaOutcome::SinkFailed:
      return job.store != nullptr && !job.store->Complaint().empty()
                 ? DocumentSource::Ending::Transient
                 : DocumentSource::Ending::Final;
    default:
      return DocumentSource::Ending::Final;
  }
}

}  // namespace

Extraction::Extraction(const Options& options, SCA_Event* cancel)
    : options_(options),
      cancel_(cancel),
      setup_(options),
      progress_(!options.outputDir.empty() && !options.jsonl),
      output_(options, &progress_, cancel,
              [this](const std::string& cause) { return servers_.WhyNone(cause); }),
      window_(options),
      servers_(options, &setup_, &progress_, cancel) {}

int Extraction::Run() {
  const std::string complaint = Prepare();
  if (!complaint.empty()) {
    progress_.PrintLine("tikaextract: " + complaint);
    return setup_.StatusOfComplaint();
  }
  if (!options_.HasInput()) return kAllExtracted;
  const std::string use = setup_.UseReadyHost();
  if (options_.verbose && !use.empty()) progress_.PrintLine("tikaextract: " + use);
  int status = servers_.Start();
  if (status == kAllExtracted) status = RunDocuments();
  servers_.Stop();
  return status;
}

std::string Extraction::Prepare() {
  std::string complaint = setup_.Prepare();
  if (complaint.empty()) complaint = servers_.UseKey();
  if (complaint.empty()) complaint = output_.Open();
  return complaint;
}

int Extraction::RunDocuments() {
  if (progress_.IsShown()) CountDocuments();
  const std::string complaint = FindSource();
  if (!complaint.empty()) {
    progress_.PrintLine("tikaextract: " + complaint);
    return kSomeFailed;
  }
  while (Fill()) {
    std::unique_ptr<Job> job = WaitForNext();
    servers_.ShowServices();
    if (job != nullptr) End(std::move(job));
    if (output_.HasFailed()) CancelOnce();
  }
  output_.Finish();
  if (IsCancelled() && !options_.outputDir.empty() && options_.watchFolder.empty()) {
    progress_.PrintLine("tikaextract: interrupted; the same command with --resume does the rest");
  }
  if (options_.IsBulk()) progress_.PrintLine("tikaextract: " + progress_.Summary());
  // A folder that can be watched no longer is a failure whatever its documents were.
  const bool hasLostFolder = !options_.watchFolder.empty() && source_->IsOver();
  return hasLostFolder ? kSomeFailed : output_.Status();
}

std::string Extraction::FindSource() {
  const auto tell = [this](const std::string& line) {
    progress_.PrintLine("tikaextract: " + line);
  };
  if (options_.watchFolder.empty()) {
    source_ = std::make_unique<Documents>(options_, setup_, cancel_, tell);
    return {};
  }
  auto watcher = std::make_unique<Watcher>(options_, setup_, tell);
  std::string complaint = watcher->Begin();
  source_ = std::move(watcher);
  output_.onConcluded = [this](const Job& job, const Result& result) {
    source_->HasEnded(job.document, EndingOf(job, result));
  };
  return complaint;
}

// A watched document that was disturbed is no failure: its source gives it again, if it is there.
void Extraction::End(std::unique_ptr<Job> job) {
  if (options_.watchFolder.empty() || !WasDisturbed(*job)) {
    return output_.Take(std::move(job), isCancelled_);
  }
  output_.Withdraw(*job);
  source_->HasEnded(job->document, DocumentSource::Ending::Disturbed);
}

// Only for a visible progress line: the count walks the directories a second time.
void Extraction::CountDocuments() {
  if (!options_.watchFolder.empty() || !Documents::CanCount(options_)) return;
  Documents documents(options_, setup_, cancel_);
  Document document;
  unsigned long long files = 0;
  unsigned long long bytes = 0;
  while (!IsCancelled() && documents.Next(&document)) {
    ++files;
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(document.path, error);
    if (!error) bytes += size;
  }
  progress_.SetTotal(files, bytes);
}

// Keeps the window full. @return False when nothing is under way and nothing is left.
bool Extraction::Fill() {
  Document document;
  while (!isEnding_ && window_.Size() < MostUnderWay()) {
    // What a cancelled wait has brought is not whole.
    const bool isFound = !IsCancelled() && source_->Next(&document) && !IsCancelled();
    if (!isFound) {
      isEnding_ = IsCancelled() || source_->IsOver();
      break;
    }
    std::unique_ptr<Job> job = output_.Admit(document);
    if (job != nullptr) {
      SCA_Owned<SCA_TikaTextSink> sink = output_.MakeSink(job.get());
      window_.Add(std::move(job), std::move(sink), &servers_);
    } else {
      source_->HasEnded(document, DocumentSource::Ending::Final);
    }
    output_.FlushWhenDue();
  }
  return !window_.IsEmpty() || !isEnding_;
}

std::size_t Extraction::MostUnderWay() const {
  const auto pending = setup_.Settings().GetMaxPendingRequests();
  const std::size_t most = std::min<std::size_t>(kLargestWindow, pending);
  // There is a client at least for each server, which may be more than are wanted at once.
  const bool areTooMany = options_.jobs != 0 && servers_.Clients() > options_.jobs;
  return areTooMany ? std::min<std::size_t>(most, options_.jobs) : most;
}

// @return Null when there may be further documents first.
std::unique_ptr<Job> Extraction::WaitForNext() {
  for (;;) {
    if (window_.IsEmpty()) {
      source_->Wait();
    } else if (std::unique_ptr<Job> job = window_.TakeEnded()) {
      return job;
    }
    output_.FlushWhenDue();
    servers_.ShowServices();
    progress_.Show();
    if (IsCancelled()) CancelOnce();
    if (isEnding_ ? window_.IsEmpty() : window_.Size() < MostUnderWay()) return nullptr;
  }
}

void Extraction::CancelOnce() {
  isEnding_ = true;
  if (!isCancelled_) servers_.CancelAll();
  isCancelled_ = true;
}
