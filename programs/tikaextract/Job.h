/// A document of a run, from its discovery to its outcome.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_JOB_H
#define SCA_PROGRAMS_TIKAEXTRACT_JOB_H

#include <optional>

#include "product/SCA_TikaExtractRequest.h"
#include "programs/tikaextract/DocumentReport.h"
#include "programs/tikaextract/Documents.h"
#include "programs/tikaextract/Inquiry.h"
#include "programs/tikaextract/Journal.h"
#include "programs/tikaextract/TextStore.h"

struct Job {
  Document document;
  Journal::Entry entry;          ///< under -o
  unsigned long long bytes = 0;  ///< of the document
  unsigned mode = 0666;          ///< permissions of its text at most
  bool replacesText = false;     ///< an older one of this document, which this run has made
  std::string killer;            ///< digest of a content that is not sent any more

  SCA_Owned<SCA_TikaExtractRequest> request;  ///< null when there was nothing to submit
  TextStore* store = nullptr;                 ///< the request's
  DocumentReport* report = nullptr;           ///< likewise; null when text alone was asked for
  std::optional<Reason> reason;               ///< why a server refused it, when that was found out

  unsigned long long TextLength() const {
    return report != nullptr ? report->TextLength() : request->GetTextLength();
  }
  /// @return What Tika tells of the document; null when that was not asked for or did not arrive.
  const SCA_TikaMetadata* Metadata() const {
    if (report != nullptr && report->IsWhole()) return &report->Metadata();
    return reason ? &reason->metadata : nullptr;
  }
  /// @return The finding that goes with the metadata, which must be there.
  SCA_TikaFinding MetadataFinding() const {
    return report != nullptr && report->IsWhole() ? report->Finding() : reason->finding;
  }
};

/// The outcome of a job, as it is reported.
struct Result {
  SCA_TikaOutcome outcome = SCA_TikaOutcome::FileFailed;
  std::string complaint;
  std::optional<SCA_TikaFinding> finding;  ///< unset when nobody told

  /// There is a text, or what else was asked for, in whole or in part.
  bool IsExtracted() const { return outcome == SCA_TikaOutcome::Extracted; }
  /// Text may be missing.
  bool IsTruncated() const { return IsExtracted() && finding == SCA_TikaFinding::Truncated; }
  /// @return One word, or two.
  const char* Word() const {
    const bool isFound = finding && *finding != SCA_TikaFinding::Complete;
    return isFound ? SCA_TikaFindingText(*finding) : SCA_TikaOutcomeText(outcome);
  }
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_JOB_H
