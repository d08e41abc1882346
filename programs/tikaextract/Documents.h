/// The documents of a run, found one by one: however many there are, they are never all in memory.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTS_H
#define SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTS_H

#include <functional>
#include <string>

#include "programs/tikaextract/Document.h"
#include "programs/tikaextract/DocumentList.h"
#include "programs/tikaextract/DocumentSource.h"
#include "programs/tikaextract/FolderWalk.h"
#include "programs/tikaextract/Options.h"
#include "programs/tikaextract/Setup.h"

class Documents : public DocumentSource {
 public:
  using Tell = std::function<void(const std::string& note)>;

  /// @param setup   Tells which extensions are taken from directories; outlives this object.
  /// @param cancel  Ends the wait for standard input and for further entries of a list; not owned.
  /// @param tell    Gets lines for people on what was passed over; may be empty.
  Documents(const Options& options, const Setup& setup, SCA_Event* cancel, Tell tell = {});

  /// Finds the next document. @return False after the last one.
  bool Next(Document* document) override;
  /// @return True when the same documents can be found a second time, to be counted.
  static bool CanCount(const Options& options);

 private:
  bool NextInDirectory(Document* document);
  bool Enter(const std::string& path, const std::string& output, Document* document);
  void TakeInput(const std::string& output, Document* document);

  const Options& options_;
  SCA_Event* const cancel_;
  const Tell tell_;
  std::size_t named_ = 0;  // of the files of the command line
  DocumentList list_;
  FolderWalk walk_;
  bool isWalking_ = false;
};

/// Two documents of one name would write one file, and one text would be lost.
/// @return A complaint, or nothing.
std::string FindNameClash(const Options& options);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTS_H
