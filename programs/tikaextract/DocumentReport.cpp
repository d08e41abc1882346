#include "programs/tikaextract/DocumentReport.h"

#include <cerrno>
#include <new>

#include "platform/SCA_Error.h"
#include "platform/SCA_Text.h"
#include "programs/tikaextract/MetadataRecord.h"

namespace {

constexpr unsigned long kLongestNote = 1024;

std::string Cut(const std::string& text) {
  return text.size() <= kLongestNote ? text
                                     : text.substr(0, SCA_CutLength(text.c_str(), kLongestNote));
}

}  // namespace

DocumentReport::DocumentReport(std::unique_ptr<TextStore> store, bool keepsRecords)
    : store_(std::move(store)), keepsRecords_(keepsRecords) {
  BeginReply();
}

int DocumentReport::Write(const char* text, unsigned long length, unsigned long /*offset*/) {
  return reader_->Take(text, length);
}

int DocumentReport::Restart() {
  BeginReply();
  judge_ = {};
  embeddedJudge_ = {};
  metadata_ = {};
  notes_.clear();
  records_.clear();
  documents_ = 0;
  stored_ = 0;
  textLength_ = 0;
  lastByte_ = '\n';
  isTextBegun_ = false;
  error_ = 0;
  return store_->Restart();
}

void DocumentReport::Finish(SCA_TikaExtractRequest* request) {
  const bool isExtracted = request->GetOutcome() == SCA_TikaOutcome::Extracted;
  isWhole_ = isExtracted && reader_->Finish() != 0;
  if (isExtracted || error_ == 0) error_ = reader_->GetError();
  const bool hasText =
      Finding() == SCA_TikaFinding::Complete || Finding() == SCA_TikaFinding::Truncated;
  store_->End(isWhole_ && hasText);
  if (store_->onFinish) store_->onFinish();
}

int DocumentReport::TakeText(const char* text, unsigned long length) {
  judge_.AddText(text, length);
  if (documents_ > 0) embeddedJudge_.AddText(text, length);
  // The texts of embedded documents begin on lines of their own.
  if (!isTextBegun_ && !keepsRecords_ && lastByte_ != '\n' && !Append("\n")) return 0;
  isTextBegun_ = true;
  lastByte_ = text[length - 1];
  return Append({text, length}) ? 1 : 0;
}

int DocumentReport::TakeDocument(const SCA_TikaMetadata& metadata) try {
  judge_.AddDocument(metadata);
  isTextBegun_ = false;
  const bool isEmbedded = documents_++ > 0;
  if (!isEmbedded) {
    metadata_ = metadata;
  } else if (notes_.size() < kMostNotes) {
    const std::vector<SCA_TikaException> exceptions = metadata.GetExceptions();
    notes_.push_back({Cut(metadata.GetEmbeddedPath()), Cut(metadata.GetContentType()),
                      exceptions.empty() ? std::string() : exceptions.front().text});
  }
  if (isEmbedded && keepsRecords_ && !AddRecord(metadata)) return 0;
  if (!isEmbedded || !keepsRecords_) textLength_ = stored_;
  return 1;
} catch (const std::bad_alloc&) {
  error_ = ENOMEM;
  return 0;
}

bool DocumentReport::AddRecord(const SCA_TikaMetadata& metadata) {
  if (records_.size() == kMostRecords) {
    error_ = SCA_ErrorDataTooLarge;
    return false;
  }
  embeddedJudge_.AddDocument(metadata);
  const unsigned long long begin = records_.empty() ? textLength_ : records_.back().end;
  const unsigned long long fields = stored_;
  nlohmann::ordered_json record = NewJsonObject();
  record["embeddedPath"] = metadata.GetEmbeddedPath();
  SetCompleteness(&record, embeddedJudge_.GetFinding(), embeddedJudge_.GetCause());
  SetMetadata(&record, metadata);
  if (!Append(JsonText(record))) return false;
  records_.push_back({begin, fields, stored_});
  embeddedJudge_ = {};
  return true;
}

bool DocumentReport::Append(std::string_view bytes) {
  const auto offset = static_cast<unsigned long>(stored_);
  stored_ += bytes.size();
  return store_->Write(bytes.data(), bytes.size(), offset) != 0;
}

int ReportJudge::TakeDocument(const SCA_TikaMetadata& document) try {
  judge.AddDocument(document);
  if (!hasDocument_) metadata = document;
  hasDocument_ = true;
  return 1;
} catch (const std::bad_alloc&) {
  return 0;
}
