/// A document from standard input, as a file: servers are told its length before its bytes.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SPOOL_H
#define SCA_PROGRAMS_TIKAEXTRACT_SPOOL_H

#include <string>

#include "platform/SCA_Sync.h"
#include "programs/common/OwnFile.h"

/// A file that is given as standard input is read where it is. Everything else is copied to a file
/// without a name in the directory for temporary files.
class Spool {
 public:
  /// Reads standard input to its end.
  /// @param cancel  Ends it early, with what has come until then.
  /// @return A complaint, or nothing.
  std::string Fill(SCA_Event* cancel);

  /// @return Where the bytes can be read while this object is there.
  const std::string& Path() const { return path_; }
  bool IsCopy() const { return copy_.IsOpen(); }

 private:
  std::string Copy(SCA_Event* cancel);

  std::string path_;
  OwnFile copy_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SPOOL_H
