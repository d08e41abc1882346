/// What a run asks the servers for, and in which form it asks.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_REQUESTCHOICE_H
#define SCA_PROGRAMS_TIKAEXTRACT_REQUESTCHOICE_H

#include <string>

#include "client/SCA_TikaRequestOptions.h"

/// What becomes of a document.
enum class Aim {
  Text,         ///< its plain text
  CheckedText,  ///< the same, and whether it is whole
  Metadata,     ///< that, and what Tika tells of the document
  Detection,    ///< its type and language alone
  Markdown      ///< its text as Markdown
};

/// Filled in by the command line.
struct RequestChoice {
  Aim aim = Aim::Text;
  bool embeddedRecords = false;  ///< embedded documents get records of their own
  std::string passwordFile;
  bool sendsName = true;  ///< the names of files, where anything else than the plain text is wanted
  SCA_TikaRequestOptions request;  ///< what all documents have in common

  /// The reply is metadata, in which the text may be a part.
  bool IsReport() const {
    return aim == Aim::CheckedText || aim == Aim::Metadata || aim == Aim::Detection;
  }
  /// Metadata is shown, and not only heeded.
  bool ShowsMetadata() const { return aim == Aim::Metadata || aim == Aim::Detection; }
  bool HasText() const { return aim != Aim::Detection; }
  /// Of the files that texts are written to.
  const char* TextEnding() const { return aim == Aim::Markdown ? ".md" : ".txt"; }
  /// The run sends what one without any of these options sends.
  bool IsPlain() const { return aim == Aim::Text && SCA_TikaOptionsIn(request) == 0; }
};

/// Reads the password, and completes the request.
/// @return A complaint, or nothing.
std::string CompleteChoice(RequestChoice* choice);

/// @param path  The name of the document.
/// @return The options of the document's request.
SCA_TikaRequestOptions OptionsFor(const RequestChoice& choice, const std::string& path);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_REQUESTCHOICE_H
