/// What standard output gets of a document: its text, its metadata, or JSON records.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_PRINTER_H
#define SCA_PROGRAMS_TIKAEXTRACT_PRINTER_H

#include "programs/common/Json.h"
#include "programs/tikaextract/Job.h"
#include "programs/tikaextract/Options.h"

/// Threads: one.
class Printer {
 public:
  explicit Printer(const Options& options) : options_(options) {}

  /// Prints what the options ask for: nothing under plain -o.
  /// @return False when the text could not be read back. What is out of a record then is a line
  ///         that nobody takes for one.
  bool Print(const Job& job, const Result& result);
  /// @return 0, or why standard output cannot be written any more.
  static unsigned long Flush();

 private:
  void PrintMetadata(const Job& job) const;
  bool PrintRecord(const Job& job, const Result& result);
  void SetReport(const Job& job, const Result& result, nlohmann::ordered_json* record) const;
  bool PrintEmbedded(const Job& job) const;
  static bool PrintWithText(std::string line, const Job& job, const BufferedText::Part& part);

  const Options& options_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_PRINTER_H
