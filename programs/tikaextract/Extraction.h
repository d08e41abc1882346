/// The run of tikaextract: one file after the other over one connection.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_EXTRACTION_H
#define SCA_PROGRAMS_TIKAEXTRACT_EXTRACTION_H

#include <string>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Sync.h"
#include "programs/tikaextract/Options.h"
#include "programs/tikaextract/PrivateServer.h"
#include "programs/tikaextract/Progress.h"
#include "settings/SCA_TikaConfigOrv.h"

class Extraction {
 public:
  /// @param cancel  Ends the run soon after it is set; not owned.
  Extraction(const Options& options, SCA_Event* cancel);

  /// @return An `ExitStatus`; whatever it is when the run was cancelled.
  int Run();

 private:
  bool Connect(std::string* complaint);
  bool ExtractFile(const std::string& file, std::string* complaint);
  bool ExtractToFile(const std::string& file, std::string* complaint);
  bool GetText(const std::string& file, SCA_TikaTextCallback sink, void* context,
               const unsigned long* sinkError, std::string* complaint);
  bool IsCancelled() { return cancel_->Wait(0) != 0; }

  const Options& options_;
  SCA_Event* const cancel_;
  Progress progress_;
  SCA_TikaConfigOrv settings_;
  PrivateServer server_;
  SCA_TikaClient client_;
  bool outputClosed_ = false;  // nobody reads the standard output any more
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_EXTRACTION_H
