/// A document of a run, from its discovery to its outcome.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_JOB_H
#define SCA_PROGRAMS_TIKAEXTRACT_JOB_H

#include "product/SCA_TikaExtractRequest.h"
#include "programs/tikaextract/Documents.h"
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
};

/// The outcome of a job, as it is reported.
struct Result {
  SCA_TikaOutcome outcome = SCA_TikaOutcome::FileFailed;
  std::string complaint;
  bool IsExtracted() const { return outcome == SCA_TikaOutcome::Extracted; }
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_JOB_H
