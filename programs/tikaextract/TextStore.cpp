#include "programs/tikaextract/TextStore.h"

#include <cerrno>
#include <filesystem>
#include <vector>

namespace {

constexpr std::size_t kMemoryLimit = 256UL << 10;
constexpr std::size_t kBlock = 64UL << 10;

}  // namespace

void TextStore::Finish(SCA_TikaExtractRequest* request) {
  Keep(request->GetOutcome() == SCA_TikaOutcome::Extracted);
  if (onFinish) onFinish();
}

int BufferedText::Write(const char* text, unsigned long length, unsigned long /*offset*/) {
  if (file_ == nullptr && memory_.size() + length <= kMemoryLimit) {
    memory_.append(text, length);
    return 1;
  }
  return Spill(text, length) ? 1 : 0;
}

bool BufferedText::Spill(const char* text, std::size_t length) {
  if (file_ == nullptr) {
    file_.reset(std::tmpfile());
    if (file_ != nullptr &&
        std::fwrite(memory_.data(), 1, memory_.size(), file_.get()) == memory_.size()) {
      std::string().swap(memory_);
    }
  }
  if (file_ != nullptr && memory_.empty() && std::fwrite(text, 1, length, file_.get()) == length) {
    return true;
  }
  error_ = static_cast<unsigned long>(errno);
  return false;
}

int BufferedText::Restart() {
  memory_.clear();
  file_.reset();
  return 1;
}

void BufferedText::Keep(bool isExtracted) {
  if (!isExtracted) {
    Restart();
  } else if (file_ != nullptr && std::fflush(file_.get()) != 0) {
    error_ = static_cast<unsigned long>(errno);
  }
}

bool BufferedText::ForEachBlock(
    const std::function<bool(const char* block, std::size_t length)>& take) {
  if (file_ == nullptr) return memory_.empty() || take(memory_.data(), memory_.size());
  std::rewind(file_.get());
  std::vector<char> block(kBlock);
  for (;;) {
    const std::size_t length = std::fread(block.data(), 1, block.size(), file_.get());
    if (length == 0) break;
    if (!take(block.data(), length)) return false;
  }
  if (std::ferror(file_.get()) == 0) return true;
  error_ = static_cast<unsigned long>(errno);
  return false;
}

bool TextFile::Open() {
  if (file_ != nullptr) return true;
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(path_).parent_path(), ignored);
  file_ = std::make_unique<SCA_ReplacementFile>();
  return file_->Open(path_.c_str(), SCA_FileAccess::Default, &error_) != 0;
}

int TextFile::Write(const char* text, unsigned long length, unsigned long /*offset*/) {
  return Open() && file_->Write(text, length, &error_) != 0 ? 1 : 0;
}

int TextFile::Restart() {
  file_.reset();
  return 1;
}

void TextFile::Keep(bool isExtracted) {
  // A document without text has an empty one.
  if (isExtracted && Open()) file_->Commit(SCA_FileCommit::Fast, &error_);
  file_.reset();
}
