/// Where the text of one document is kept until the document has ended: nothing is shown of a text
/// that might be taken back.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_TEXTSTORE_H
#define SCA_PROGRAMS_TIKAEXTRACT_TEXTSTORE_H

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

#include "platform/SCA_File.h"
#include "product/SCA_TikaExtractRequest.h"

class TextStore : public SCA_TikaTextSink {
 public:
  /// Told when the document has ended, on a thread of the dispatcher.
  std::function<void()> onFinish;

  void Finish(SCA_TikaExtractRequest* request) override;
  /// @return 0, or the error of the store itself.
  unsigned long Error() const { return error_; }

 protected:
  virtual void Keep(bool isExtracted) = 0;
  unsigned long error_ = 0;
};

/// Keeps small texts in memory and large ones in a temporary file without a name.
class BufferedText : public TextStore {
 public:
  int Write(const char* text, unsigned long length, unsigned long offset) override;
  int Restart() override;

  /// Hands the text out in blocks until one is not taken.
  bool ForEachBlock(const std::function<bool(const char* block, std::size_t length)>& take);

 protected:
  void Keep(bool isExtracted) override;

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  bool Spill(const char* text, std::size_t length);

  std::string memory_;
  std::unique_ptr<std::FILE, Closer> file_;
};

/// Writes the text aside, and puts it in its place when it is whole.
class TextFile : public TextStore {
 public:
  explicit TextFile(std::string path) : path_(std::move(path)) {}

  int Write(const char* text, unsigned long length, unsigned long offset) override;
  int Restart() override;

 protected:
  void Keep(bool isExtracted) override;

 private:
  bool Open();

  const std::string path_;
  std::unique_ptr<SCA_ReplacementFile> file_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_TEXTSTORE_H
