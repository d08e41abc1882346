/// The run of tikaextract: documents go to the servers, a window of them at a time, and from there
/// to the output.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_EXTRACTION_H
#define SCA_PROGRAMS_TIKAEXTRACT_EXTRACTION_H

#include <memory>

#include "platform/SCA_Sync.h"
#include "programs/tikaextract/DocumentSource.h"
#include "programs/tikaextract/Options.h"
#include "programs/tikaextract/Output.h"
#include "programs/tikaextract/Progress.h"
#include "programs/tikaextract/Servers.h"
#include "programs/tikaextract/Setup.h"
#include "programs/tikaextract/Window.h"

class Extraction {
 public:
  /// @param cancel  Ends the run soon after it is set; not owned.
  Extraction(const Options& options, SCA_Event* cancel);

  /// @return An `ExitStatus`; whatever it is when the run was cancelled.
  int Run();

 private:
  std::string Prepare();
  int RunDocuments();
  void CountDocuments();
  std::string FindSource();
  bool Fill();
  void End(std::unique_ptr<Job> job);
  std::size_t MostUnderWay() const;
  std::unique_ptr<Job> WaitForNext();
  void CancelOnce();
  bool IsCancelled() { return cancel_->Wait(0) != 0; }

  const Options& options_;
  SCA_Event* const cancel_;
  Setup setup_;
  Progress progress_;
  Output output_;
  Window window_;
  std::unique_ptr<DocumentSource> source_;
  bool isEnding_ = false;     // no further documents
  bool isCancelled_ = false;  // the servers know

  Servers servers_;  // last: its threads use the window and the stores of the output
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_EXTRACTION_H
