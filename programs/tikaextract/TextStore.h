/// Where the text of one document is kept until the document has ended: nothing is shown of a text
/// that might be taken back.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_TEXTSTORE_H
#define SCA_PROGRAMS_TIKAEXTRACT_TEXTSTORE_H

#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/SCA_File.h"
#include "platform/SCA_Lock.h"
#include "product/SCA_TikaExtractRequest.h"
#include "programs/common/OwnFile.h"

class TextStore : public SCA_TikaTextSink {
 public:
  /// Told when the document has ended, on a thread of the dispatcher.
  std::function<void()> onFinish;

  void Finish(SCA_TikaExtractRequest* request) override;
  /// Ends the text, which is kept or dropped. `Finish` does so too.
  void End(bool isKept) { Keep(isKept); }
  /// @return Why the store itself failed, such as "cannot write 'a.txt': ..."; empty when it did
  /// not.
  const std::string& Complaint() const { return complaint_; }

 protected:
  virtual void Keep(bool isExtracted) = 0;
  /// Notes the first failure. @return 0 when the code is one, else 1.
  int Check(unsigned long error, const char* what);
  /// What is read and written, as complaints name it.
  virtual std::string Name() const = 0;

 private:
  std::string complaint_;
};

/// Keeps small texts in memory and large ones in a temporary file without a name.
class BufferedText : public TextStore {
 public:
  int Write(const char* text, unsigned long length, unsigned long offset) override;
  int Restart() override;

  /// A part of the text, in bytes; by itself all of it.
  struct Part {
    unsigned long long begin = 0;
    unsigned long long end = ~0ULL;
  };
  /// Hands the text out in blocks until one is not taken or cannot be read.
  bool ForEachBlock(const std::function<bool(std::string_view block)>& take) {
    return ForEachBlock({}, take);
  }
  bool ForEachBlock(const Part& part, const std::function<bool(std::string_view block)>& take);

 protected:
  void Keep(bool isExtracted) override;
  std::string Name() const override;

 private:
  int Spill(std::string_view text);

  std::string memory_;
  OwnFile file_;
  unsigned long long length_ = 0;  // of what is in the file
};

/// What the texts of a run under one output directory have in common.
struct TextFolder {
  timespec beganAt{};  ///< when the run began, by the file system's clock
  SCA_Lock placing;    ///< one text at a time takes its place
};

/// Writes the text aside, and puts it in its place when it is whole. A text that was written there
/// in the same run stays: where names are links, or differ only in case, it is another document's.
class TextFile : public TextStore {
 public:
  /// @param mode  The permissions that the text may have at most.
  /// @param replaces  A text that was written there in the same run is of this document, too.
  TextFile(std::string path, unsigned mode, bool replaces, TextFolder* folder)
      : path_(std::move(path)), mode_(mode), replaces_(replaces), folder_(folder) {}

  int Write(const char* text, unsigned long length, unsigned long offset) override;
  int Restart() override;

  /// Waits until texts that are in their places are on the disk with their names. One that cannot
  /// be written has a complaint then.
  static void Sync(const std::vector<TextFile*>& texts);

 protected:
  void Keep(bool isExtracted) override;
  std::string Name() const override;

 private:
  bool Open();
  unsigned long Place();

  const std::string path_;
  const unsigned mode_;
  const bool replaces_;
  TextFolder* const folder_;
  std::unique_ptr<SCA_ReplacementFile> file_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_TEXTSTORE_H
