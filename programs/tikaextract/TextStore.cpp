#include "programs/tikaextract/TextStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <tuple>

#include "programs/common/Advice.h"
#include "programs/common/Escape.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMemoryLimit = 256UL << 10;
constexpr std::size_t kBlock = 64UL << 10;

// Does something with an open file. @return 0, or the system's code.
unsigned long WithFile(const std::string& path, int (*call)(int)) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  const bool isDone = fd >= 0 && call(fd) == 0;
  const auto error = static_cast<unsigned long>(errno);
  if (fd >= 0) ::close(fd);
  return isDone ? 0 : error;
}

}  // namespace

void TextStore::Finish(SCA_TikaExtractRequest* request) {
  Keep(request->GetOutcome() == SCA_TikaOutcome::Extracted);
  if (onFinish) onFinish();
}

int TextStore::Check(unsigned long error, const char* what) {
  if (error == 0) return 1;
  if (complaint_.empty()) {
    complaint_ = std::string("cannot ") + what + " " + Name() + ": " + Explain(error);
  }
  return 0;
}

std::string BufferedText::Name() const {
  return "a temporary file in " + Quoted(OwnFile::TemporaryDirectory());
}

int BufferedText::Write(const char* text, unsigned long length, unsigned long /*offset*/) {
  if (!file_.IsOpen() && memory_.size() + length <= kMemoryLimit) {
    memory_.append(text, length);
    return 1;
  }
  return Spill({text, length});
}

int BufferedText::Spill(std::string_view text) {
  if (!file_.IsOpen()) {
    if (Check(file_.OpenTemporary(), "write") == 0) return 0;
    if (Check(file_.Append(memory_), "write") == 0) return 0;
    length_ = memory_.size();
    std::string().swap(memory_);
  }
  length_ += text.size();
  return Check(file_.Append(text), "write");
}

int BufferedText::Restart() {
  memory_.clear();
  file_.Close();
  return 1;
}

void BufferedText::Keep(bool isExtracted) {
  if (!isExtracted) Restart();
}

bool BufferedText::ForEachBlock(const Part& part,
                                const std::function<bool(std::string_view block)>& take) {
  const unsigned long long end = std::min(part.end, file_.IsOpen() ? length_ : memory_.size());
  if (part.begin >= end) return true;
  if (!file_.IsOpen()) return take(std::string_view(memory_).substr(part.begin, end - part.begin));
  std::string block(kBlock, '\0');
  for (unsigned long long place = part.begin; place < end;) {
    std::size_t length = 0;
    const auto wanted = static_cast<std::size_t>(std::min<unsigned long long>(kBlock, end - place));
    unsigned long error = file_.ReadAt(place, block.data(), wanted, &length);
    if (error == 0 && length < wanted) error = EIO;
    if (Check(error, "read its text back from") == 0) return false;
    if (!take(std::string_view(block).substr(0, length))) return false;
    place += length;
  }
  return true;
}

std::string TextFile::Name() const {
  return Quoted(path_);
}

bool TextFile::Open() {
  if (file_ != nullptr) return true;
  std::error_code ignored;
  fs::create_directories(fs::path(path_).parent_path(), ignored);
  file_ = std::make_unique<SCA_ReplacementFile>();
  unsigned long error = 0;
  file_->Open(path_.c_str(), SCA_FileAccess::Default, &error, mode_);
  return Check(error, "write") != 0;
}

int TextFile::Write(const char* text, unsigned long length, unsigned long /*offset*/) {
  unsigned long error = 0;
  if (!Open()) return 0;
  file_->Write(text, length, &error);
  return Check(error, "write");
}

int TextFile::Restart() {
  file_.reset();
  return 1;
}

void TextFile::Keep(bool isExtracted) {
  // A document without text has an empty one.
  if (isExtracted && Open()) Check(Place(), "write");
  file_.reset();
}

unsigned long TextFile::Place() {
  const SCA_LockGuard guard(folder_->placing);
  const timespec& began = folder_->beganAt;
  struct stat status {};
  if (!replaces_ && ::lstat(path_.c_str(), &status) == 0 &&
      std::tie(status.st_mtim.tv_sec, status.st_mtim.tv_nsec) >
          std::tie(began.tv_sec, began.tv_nsec)) {
    return EEXIST;
  }
  unsigned long error = 0;
  file_->Commit(SCA_FileCommit::Fast, &error);
  return error;
}

// The whole file system, once for all texts: each by itself would take fifty times as long, since
// most have the system write its journal for them alone.
void TextFile::Sync(const std::vector<TextFile*>& texts) {
  std::map<dev_t, bool> areSynced;  // file systems; one directory may lead to several
  for (TextFile* text : texts) {
    struct stat status {};
    const bool isThere = ::stat(text->path_.c_str(), &status) == 0;
    if (!text->Check(isThere ? 0 : static_cast<unsigned long>(errno), "write")) continue;
    const auto [system, isNew] = areSynced.emplace(status.st_dev, true);
    if (isNew) system->second = WithFile(text->path_, ::syncfs) == 0;
    // The failure may be that of another program's file.
    if (system->second) continue;
    unsigned long error = WithFile(text->path_, ::fsync);
    if (error == 0) error = WithFile(fs::path(text->path_).parent_path(), ::fsync);
    text->Check(error, "write");
  }
}
