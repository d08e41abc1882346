/// What Tika tells of a document besides its text, and whether that text is whole.
#ifndef SCA_CLIENT_SCA_TIKAMETADATA_H
#define SCA_CLIENT_SCA_TIKAMETADATA_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/SCA_Object.h"

/// An exception that Tika noted while it read a document.
struct SCA_TikaException {
  std::string kind;  ///< lower case, as in Tika 4: "container-exception", "runtime", "warn"
  std::string text;  ///< the first line: the Java class without its package, and the message
};

/// A document, or one that is embedded in it. Texts are UTF-8 as Tika sent them; what Tika does not
/// tell is empty. The names of fields differ between the lines of Tika; the operations know them
/// all.
/// Threads: one at a time.
struct SCA_API SCA_TikaMetadata {
  /// Every name with one of its values, in the order in which they arrived; without the text.
  std::vector<std::pair<std::string, std::string>> fields;

  std::string GetContentType() const;
  /// The language that Tika recognized, else the one that the document declares; such as "en-US".
  std::string GetLanguage() const;
  std::string GetTitle() const;
  std::vector<std::string> GetAuthors() const;
  std::string GetCreated() const;   ///< as in "2026-11-03T08:15:00Z"
  std::string GetModified() const;  ///< likewise
  /// @return Pages; 0 when Tika does not tell.
  unsigned long GetPages() const;
  /// The Java class of the parser that Tika chose by the content type.
  std::string GetParser() const;
  /// The file name: of an embedded document, or the one that was sent with the request.
  std::string GetName() const;
  /// Where an embedded document is: "/papers.zip/letter.doc". Empty for the document itself.
  std::string GetEmbeddedPath() const;
  std::vector<SCA_TikaException> GetExceptions() const;

  /// @return The first value of a name, or null.
  const std::string* Find(std::string_view name) const;
};

/// What became of a document, by the reply of `/rmeta/body` or `/meta`.
enum class SCA_TikaFinding {
  Complete,   ///< Tika noted no exception
  Truncated,  ///< Tika noted an exception: text may be missing
  Locked,     ///< no text: a password is needed, or the one sent is wrong
  Empty,      ///< no text: a file of no bytes
  Damaged     ///< no text: the parser failed, or Tika told of no document
};

/// @return A word for the finding: "complete", "truncated", "locked", "empty file", "damaged";
///         static storage.
SCA_API const char* SCA_TikaFindingText(SCA_TikaFinding finding);

/// Judges a document by what Tika tells of it and of the documents embedded in it.
///
/// Tika answers a request for plain text with success, and the text simply ends early, when a
/// parser fails after the first 32 KB of it. Only a reply with metadata notes the exception.
/// Documents exist that Tika reads in part without noting anything; no reply tells that.
/// Threads: one at a time.
class SCA_API SCA_TikaCompleteness {
 public:
  /// Adds a piece of text of the document, or of one embedded in it.
  void AddText(const char* text, unsigned long length);
  /// Adds what Tika tells: of the document first, then of each embedded document.
  void AddDocument(const SCA_TikaMetadata& metadata);

  SCA_TikaFinding GetFinding() const;
  /// The exception that the finding relies on, in one line; names the embedded document that it
  /// concerns. Empty when the document is complete.
  const std::string& GetCause() const { return cause_; }

 private:
  bool hasDocument_ = false;
  bool hasText_ = false;  // other than white space
  bool hasNote_ = false;
  // Of the document's own parser. A reply may be successful and hold no document.
  SCA_TikaFinding failure_ = SCA_TikaFinding::Damaged;
  std::string cause_ = "empty answer";
};

#endif  // SCA_CLIENT_SCA_TIKAMETADATA_H
