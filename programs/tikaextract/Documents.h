/// The documents of a run, found one by one: however many there are, they are never all in memory.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTS_H
#define SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTS_H

#include <filesystem>
#include <string>

#include "programs/tikaextract/DocumentList.h"
#include "programs/tikaextract/Options.h"
#include "programs/tikaextract/Setup.h"

struct Document {
  std::string path;
  std::string output;     ///< where its text goes, below the output directory
  std::string extension;  ///< without its dot
  std::string complaint;  ///< not empty: why there is nothing to extract at this path
};

class Documents {
 public:
  /// @param setup   Tells which extensions are taken from directories; outlives this object.
  /// @param cancel  Ends the wait for further entries of a list; not owned.
  Documents(const Options& options, const Setup& setup, SCA_Event* cancel);

  /// Finds the next document. @return False after the last one.
  bool Next(Document* document);
  /// @return True when the same documents can be found a second time, to be counted.
  static bool CanCount(const Options& options);

 private:
  using Walk = std::filesystem::recursive_directory_iterator;

  bool NextInDirectory(Document* document);
  bool Enter(const std::string& path, const std::string& output, Document* document);
  bool IsOutputDir(const std::filesystem::path& path) const;

  const Options& options_;
  const Setup& setup_;
  std::size_t named_ = 0;  // of the files of the command line
  DocumentList list_;
  Walk walk_;  // the directory that is walked now; at its end when there is none
  std::string walkRoot_;
  std::string walkOutput_;
};

/// @return Where the text of a document goes under -o.
std::string OutputPath(const Options& options, const Document& document);

/// Two documents of one name would write one file, and one text would be lost.
/// @return A complaint, or nothing.
std::string FindNameClash(const Options& options);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTS_H
