#include "programs/tikaextract/Extraction.h"

#include <algorithm>
#include <filesystem>

namespace {

constexpr std::size_t kLargestWindow = 64;  // documents that may run ahead of the one to print

}  // namespace

Extraction::Extraction(const Options& options, SCA_Event* cancel)
    : options_(options),
      cancel_(cancel),
      setup_(options),
      progress_(!options.outputDir.empty() && !options.jsonl),
      output_(options, &progress_,
              [this](const std::string& cause) { return servers_.WhyNone(cause); }),
      window_(!options.unordered),
      servers_(options, &setup_, &progress_, cancel) {}

int Extraction::Run() {
  const std::string complaint = Prepare();
  if (!complaint.empty()) {
    progress_.PrintLine("tikaextract: " + complaint);
    return setup_.StatusOfComplaint();
  }
  if (options_.files.empty() && options_.filesFrom.empty()) return kAllExtracted;
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
  Documents documents(options_, setup_, cancel_, [this](const std::string& note) {
    progress_.PrintLine("tikaextract: " + note);
  });
  while (Fill(&documents)) {
    std::unique_ptr<Job> job = WaitForNext();
    servers_.ShowServices();
    output_.Take(std::move(job), isCancelled_);
    if (output_.HasFailed()) CancelOnce();
  }
  output_.Finish();
  if (IsCancelled() && !options_.outputDir.empty()) {
    progress_.PrintLine("tikaextract: interrupted; the same command with --resume does the rest");
  }
  if (options_.IsBulk()) progress_.PrintLine("tikaextract: " + progress_.Summary());
  return output_.Status();
}

// Only for a visible progress line: the count walks the directories a second time.
void Extraction::CountDocuments() {
  if (!Documents::CanCount(options_)) return;
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
bool Extraction::Fill(Documents* documents) {
  Document document;
  while (!isEnding_ && window_.Size() < MostUnderWay()) {
    // What a cancelled wait has brought is not whole.
    if (IsCancelled() || !documents->Next(&document) || IsCancelled()) {
      isEnding_ = true;
      break;
    }
    std::unique_ptr<Job> job = output_.Admit(document);
    if (job != nullptr) {
      std::unique_ptr<TextStore> store = output_.MakeStore(*job);
      window_.Add(std::move(job), std::move(store), &servers_);
    }
    output_.FlushWhenDue();
  }
  return !window_.IsEmpty();
}

std::size_t Extraction::MostUnderWay() const {
  const auto pending = setup_.Settings().GetMaxPendingRequests();
  const std::size_t most = std::min<std::size_t>(kLargestWindow, pending);
  // There is a client at least for each server, which may be more than are wanted at once.
  const bool areTooMany = options_.jobs != 0 && servers_.Clients() > options_.jobs;
  return areTooMany ? std::min<std::size_t>(most, options_.jobs) : most;
}

std::unique_ptr<Job> Extraction::WaitForNext() {
  for (;;) {
    std::unique_ptr<Job> job = window_.TakeEnded();
    if (job != nullptr) return job;
    output_.FlushWhenDue();
    servers_.ShowServices();
    progress_.Show();
    if (IsCancelled()) CancelOnce();
  }
}

void Extraction::CancelOnce() {
  isEnding_ = true;
  if (!isCancelled_) servers_.CancelAll();
  isCancelled_ = true;
}
