/// Where the documents of a run come from.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTSOURCE_H
#define SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTSOURCE_H

#include "programs/tikaextract/Document.h"

/// Threads: one.
class DocumentSource {
 public:
  /// What became of a document.
  enum class Ending {
    Final,      ///< it is done, or nothing would change if it were tried again now
    Transient,  ///< it failed for a reason that may pass
    Disturbed   ///< it was written or removed while it was read
  };

  DocumentSource() = default;
  virtual ~DocumentSource() = default;
  DocumentSource(const DocumentSource&) = delete;
  DocumentSource& operator=(const DocumentSource&) = delete;

  /// Finds the next document. @return False when there is none now.
  virtual bool Next(Document* document) = 0;
  /// @return True when none will come later either.
  virtual bool IsOver() const { return true; }
  /// Waits for a moment, or until there may be another one.
  virtual void Wait() {}
  /// Called once for each document that was given, when the run has nothing more to do with it.
  virtual void HasEnded(const Document& /*document*/, Ending /*ending*/) {}
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_DOCUMENTSOURCE_H
