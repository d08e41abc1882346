/// What a metadata reply tells of a document, gathered while the reply arrives.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTREPORT_H
#define SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTREPORT_H

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/SCA_TikaMetadataReader.h"
#include "programs/tikaextract/TextStore.h"

/// An embedded document, as its container's record has it.
struct EmbeddedNote {
  std::string path;
  std::string contentType;
  std::string exception;  ///< the first that Tika noted; empty when there is none
};

/// Where the record of an embedded document is in the store: its text, then its other fields.
struct EmbeddedRecord {
  unsigned long long text = 0;
  unsigned long long fields = 0;
  unsigned long long end = 0;
};

/// The sink of a request for metadata: the texts in the reply go into a store, and the rest is kept
/// in bounded memory, however many documents are embedded. Threads: as a sink.
class DocumentReport : public SCA_TikaTextSink, private SCA_TikaMetadataReceiver {
 public:
  static constexpr std::size_t kMostNotes = 1000;
  static constexpr std::size_t kMostRecords = 100000;

  /// @param store         Receives the text: that of the document, followed by those of the
  /// embedded
  ///                      documents.
  /// @param keepsRecords  Embedded documents get records; the store must then be a `BufferedText`.
  DocumentReport(std::unique_ptr<TextStore> store, bool keepsRecords);

  int Write(const char* text, unsigned long length, unsigned long offset) override;
  int Restart() override;
  void Finish(SCA_TikaExtractRequest* request) override;

  TextStore* Store() const { return store_.get(); }

  /// @name Once the document has ended
  /// @{
  /// @return 0, or why the reply cannot be understood.
  unsigned long Error() const { return error_; }
  /// A reply was read to its end.
  bool IsWhole() const { return isWhole_; }
  SCA_TikaFinding Finding() const { return judge_.GetFinding(); }
  const std::string& Cause() const { return judge_.GetCause(); }
  const SCA_TikaMetadata& Metadata() const { return metadata_; }
  unsigned long long TextLength() const { return textLength_; }
  /// The first of the embedded documents, and how many there are.
  const std::vector<EmbeddedNote>& Embedded() const { return notes_; }
  unsigned long long EmbeddedCount() const { return documents_ > 0 ? documents_ - 1 : 0; }
  const std::vector<EmbeddedRecord>& Records() const { return records_; }
  /// @}

 private:
  void BeginReply() { reader_.emplace(static_cast<SCA_TikaMetadataReceiver*>(this)); }
  int TakeText(const char* text, unsigned long length) override;
  int TakeDocument(const SCA_TikaMetadata& metadata) override;
  bool AddRecord(const SCA_TikaMetadata& metadata);
  bool Append(std::string_view bytes);

  const std::unique_ptr<TextStore> store_;
  const bool keepsRecords_;
  std::optional<SCA_TikaMetadataReader> reader_;  // never unset; a new one for each try
  SCA_TikaCompleteness judge_;
  SCA_TikaCompleteness embeddedJudge_;  // of the embedded document under way
  SCA_TikaMetadata metadata_;
  std::vector<EmbeddedNote> notes_;
  std::vector<EmbeddedRecord> records_;
  unsigned long long documents_ = 0;
  unsigned long long stored_ = 0;      // bytes in the store
  unsigned long long textLength_ = 0;  // of them, those of the text
  char lastByte_ = '\n';               // of the text
  bool isTextBegun_ = false;           // of the document under way
  bool isWhole_ = false;
  unsigned long error_ = 0;
};

/// Receives a reply of which only the judgement is wanted.
class ReportJudge : public SCA_TikaMetadataReceiver {
 public:
  SCA_TikaCompleteness judge;
  SCA_TikaMetadata metadata;  ///< of the document itself

 private:
  int TakeText(const char* /*text*/, unsigned long /*length*/) override { return 1; }
  int TakeDocument(const SCA_TikaMetadata& document) override;

  bool hasDocument_ = false;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTREPORT_H
