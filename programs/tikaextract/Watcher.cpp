#include "programs/tikaextract/Watcher.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "programs/common/Advice.h"
#include "programs/common/Escape.h"

namespace fs = std::filesystem;

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kSettled{500};  // without a change, after a writer has closed a file
constexpr seconds kOpen{3};            // the same while one may still have it open
constexpr milliseconds kIdle{500};     // the longest wait, after which others are looked after
constexpr seconds kRootLook{1};        // between two looks whether the folder is still there
constexpr seconds kScanSoon{5};        // until a folder is walked that could not be seen whole
constexpr seconds kFirstRetry{60};
constexpr unsigned kMostDoublings = 6;  // of that: about an hour

constexpr std::size_t kMostPending = 16384;  // files, some 200 bytes each
constexpr std::size_t kMostScans = 1024;
constexpr int kMostEvents = 4096;  // taken at once

// A link is there with its content at once.
bool IsLink(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && (S_ISLNK(status.st_mode) || status.st_nlink > 1);
}

bool IsThere(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

// Whether a file's last change is so long ago that nobody may be writing to it. Clocks may differ.
bool HasRested(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return true;
  return std::abs(std::time(nullptr) - status.st_mtim.tv_sec) > kOpen.count();
}

}  // namespace

Watcher::Watcher(const Options& options, const Setup& setup, Tell tell)
    : options_(options),
      tell_(std::move(tell)),
      walk_(options, setup,
            [this](const std::string& folder) {
              std::string complaint = events_.Add(options_.watchFolder, folder);
              if (!complaint.empty()) Fail(complaint);
              return complaint;
            }),
      filter_(options, setup) {}

std::string Watcher::Begin() {
  struct stat status {};
  const std::string& folder = options_.watchFolder;
  if (::stat(folder.c_str(), &status) != 0) {
    return "cannot watch " + Quoted(folder) + ": " + Explain(static_cast<unsigned long>(errno));
  }
  if (!S_ISDIR(status.st_mode)) return "cannot watch " + Quoted(folder) + ": it is no folder";
  std::string complaint = Open(status);
  if (complaint.empty()) tell_("watching " + Quoted(folder));
  return complaint;
}

std::string Watcher::Open(const struct stat& status) {
  root_ = {status.st_dev, status.st_ino};
  isThere_ = true;
  Scan("");
  return events_.Open();
}

bool Watcher::Next(Document* document) {
  Look();
  return isThere_ && !hasFailed_ && (NextSettled(document) || NextWalked(document));
}

void Watcher::Wait() {
  milliseconds limit = kIdle;
  if (!queue_.empty()) {
    const auto left =
        std::chrono::duration_cast<milliseconds>(queue_.begin()->first - Clock::now());
    limit = std::clamp(left + milliseconds(1), milliseconds(0), kIdle);
  }
  events_.Wait(static_cast<int>(limit.count()));
}

void Watcher::HasEnded(const Document& document, Ending ending) {
  const std::string file = InFolder(document);
  const auto given = given_.find(file);
  const unsigned failures = given != given_.end() ? given->second + 1 : 1;
  if (given != given_.end()) given_.erase(given);
  // What has changed meanwhile is pending already.
  if (ending == Ending::Final || pending_.count(file) != 0 || !IsThere(document.path)) return;
  if (ending == Ending::Disturbed) return Pend(file, kOpen);
  Pend(file, kFirstRetry * (1U << std::min(failures - 1, kMostDoublings)), failures);
}

void Watcher::Fail(const std::string& complaint) {
  if (!hasFailed_) tell_(complaint);
  hasFailed_ = true;
}

void Watcher::Look() {
  CheckRoot();
  FolderEvents::Event event;
  for (int i = 0; i < kMostEvents && isThere_ && events_.Next(&event); ++i) Take(event);
}

// The system tells nothing of a folder that is moved along with one above it, or mounted over.
void Watcher::CheckRoot() {
  const Clock::time_point now = Clock::now();
  if (now - rootSeen_ < kRootLook) return;
  rootSeen_ = now;
  struct stat status {};
  const bool isThere =
      ::stat(options_.watchFolder.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  if (isThere_ && (!isThere || root_ != std::pair(status.st_dev, status.st_ino))) {
    tell_(Quoted(options_.watchFolder) + " is gone; waiting until it is back");
    isThere_ = false;
    events_.Close();
    walk_.Stop();
    pending_.clear();
    queue_.clear();
    scans_.clear();
  }
  if (isThere_ || !isThere) return;
  tell_(Quoted(options_.watchFolder) + " is back");
  const std::string complaint = Open(status);
  if (!complaint.empty()) Fail(complaint);
}

void Watcher::Take(const FolderEvents::Event& event) {
  switch (event.kind) {
    case FolderEvents::Kind::Lost:
      tell_("more has changed at once than the system remembers: looking at all of " +
            Quoted(options_.watchFolder) + " again");
      return Scan("");
    case FolderEvents::Kind::FolderChanged:
      if (options_.recursive) Scan(event.path);
      return;
    case FolderEvents::Kind::FileAppeared:
      return Pend(event.path, IsLink(PathOf(event.path)) ? kSettled : kOpen);
    case FolderEvents::Kind::FileWritten:
    case FolderEvents::Kind::FileGone:
      break;
  }
  // What was left out may be taken now.
  if (fs::path(event.path).filename() == FolderFilter::kIgnoreFile) return Scan("");
  if (event.kind == FolderEvents::Kind::FileWritten) return Pend(event.path, kSettled);
  const auto gone = pending_.find(event.path);
  if (gone == pending_.end()) return;
  queue_.erase({gone->second.due, gone->first});
  pending_.erase(gone);
}

void Watcher::Scan(const std::string& folder) {
  if (folder.empty() || scans_.size() >= kMostScans) scans_ = {""};
  if (scans_.count("") == 0) scans_.insert(folder);
}

void Watcher::Pend(const std::string& file, Delay delay, unsigned failures) {
  if (pending_.size() >= kMostPending && pending_.count(file) == 0) {
    scanDue_ = Clock::now() + kScanSoon;
    return;
  }
  Pending& pending = pending_[file];
  pending.delay = delay;
  pending.failures = failures;
  IsSettled(file, &pending);
  Schedule(file, &pending);
}

void Watcher::Schedule(const std::string& file, Pending* pending) {
  queue_.erase({pending->due, file});
  pending->due = Clock::now() + pending->delay;
  queue_.emplace(pending->due, file);
}

// Whether a file is as it was when it was looked at last.
bool Watcher::IsSettled(const std::string& file, Pending* pending) const {
  struct stat status {};
  if (::stat(PathOf(file).c_str(), &status) != 0) return true;
  const timespec& changed = status.st_mtim;
  const bool isSame = pending->size == status.st_size &&
                      pending->changed.tv_sec == changed.tv_sec &&
                      pending->changed.tv_nsec == changed.tv_nsec;
  pending->size = status.st_size;
  pending->changed = changed;
  return isSame;
}

bool Watcher::NextSettled(Document* document) {
  const Clock::time_point now = Clock::now();
  while (!queue_.empty() && queue_.begin()->first <= now) {
    const std::string file = queue_.begin()->second;
    const auto entry = pending_.find(file);
    if (given_.count(file) != 0 || !IsSettled(file, &entry->second)) {
      Schedule(file, &entry->second);
      continue;
    }
    const unsigned failures = entry->second.failures;
    queue_.erase(queue_.begin());
    pending_.erase(entry);
    if (!Describe(file, document)) continue;
    given_[file] = failures;
    return true;
  }
  return false;
}

// @return False for what has gone, and for what is no document.
bool Watcher::Describe(const std::string& file, Document* document) {
  struct stat status {};
  const std::string path = PathOf(file);
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (!filter_.EnterFrom(options_.watchFolder, fs::path(file).parent_path().string())) return false;
  *document = MakeDocument(options_, path, file);
  return filter_.Judge(file, document->extension) == FolderFilter::Verdict::Taken;
}

bool Watcher::NextWalked(Document* document) {
  while (!hasFailed_ && (!walk_.IsOver() || BeginWalk())) {
    if (!walk_.Next(document) || hasFailed_) continue;
    const std::string file = InFolder(*document);
    const bool isBroken = !document->complaint.empty();
    // What cannot be gone through any further ends the walk.
    if (isBroken && walk_.IsOver()) scanDue_ = Clock::now() + kScanSoon;
    if (isBroken ? !IsThere(document->path) : pending_.count(file) != 0) continue;
    if (given_.count(file) != 0) {
      Pend(file, kSettled);
    } else if (!isBroken && !HasRested(document->path)) {
      Pend(file, kOpen);
    } else {
      given_[file] = 0;
      return true;
    }
  }
  return false;
}

// @return False when there is none to be walked now.
bool Watcher::BeginWalk() {
  if (scanDue_ != Clock::time_point() && scanDue_ <= Clock::now()) {
    scanDue_ = {};
    Scan("");
  }
  if (scans_.empty()) return false;
  const std::string folder = *scans_.begin();
  scans_.erase(scans_.begin());
  const std::string complaint = walk_.Begin(options_.watchFolder, "", folder);
  if (complaint.empty() || hasFailed_ || !IsThere(PathOf(folder))) return true;
  tell_(Printable(PathOf(folder)) + ": " + complaint);
  return true;
}

std::string Watcher::PathOf(const std::string& file) const {
  return (fs::path(options_.watchFolder) / file).string();
}

std::string Watcher::InFolder(const Document& document) const {
  return fs::path(document.path).lexically_relative(options_.watchFolder).string();
}
