/// What a server does wrong with a document: the table of faults, and faults as words.
#ifndef SCA_FAULTLAB_FAULT_H
#define SCA_FAULTLAB_FAULT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

enum class FaultKind {
  None,
  Slow,
  Trickle,
  HangUp,
  After,
  NoText,
  Continue,
  LengthToo,
  Die,
  DieEarly,
  Reset,
  ResetEarly,
  Close,
  Cut,
  Hang,
  HangEarly,
  Status,
  Busy,
  Crash,
  Refuse,
  SizeLong,
  SizeShort,
  SizeWord,
  SizeHuge,
  Plain,
  Gzip,
  Garbage,
  Endless
};

/// What becomes of the document with a client that makes no mistake.
enum class FaultEffect {
  Harmless,  ///< its text arrives whole
  Breaks,    ///< the connection breaks: another try may bring the text
  Fails      ///< the answer is one that no further try changes
};

struct FaultRow {
  FaultKind kind;
  const char* name;
  const char* unit;             ///< of its value; null when it takes none
  unsigned long long byItself;  ///< its value where none is given, except for `isPlace`
  bool isPlace;  ///< the value is a place in the text; none: before the reply's first byte
  FaultEffect effect;
  const char* help;
};

/// One row for each fault, in the order of the help.
const std::vector<FaultRow>& FaultTable();

/// A fault as it is asked for: NAME or NAME=VALUE, then any of tries=N, rate=SHARE and text=BYTES,
/// separated by commas. Without a name there is none, but the text may have another length.
struct FaultSpec {
  FaultKind Kind() const { return row != nullptr ? row->kind : FaultKind::None; }
  /// @return The value given, or the row's.
  unsigned long long Value() const { return value.value_or(row != nullptr ? row->byItself : 0); }

  const FaultRow* row = nullptr;
  std::optional<unsigned long long> value;
  unsigned long tries = 0;                       ///< it passes after this many; 0: it is permanent
  double rate = 1;                               ///< share of documents that have it
  std::optional<unsigned long long> textLength;  ///< bytes of the document's text
};

/// @return A complaint, or nothing.
std::string ParseFault(std::string_view words, FaultSpec* fault);

/// @return The words for a fault, its rate left out; "none" for none.
std::string FaultWords(const FaultSpec& fault);

/// What a client that makes no mistake makes of a document with a fault.
enum class FaultPrognosis {
  Text,   ///< it is extracted, byte for byte
  Fails,  ///< it is not extracted
  Either  ///< that depends on how many tries the client gives it
};
FaultPrognosis Foretell(const FaultSpec& fault);

/// The faults that a share of all documents is to have, each as likely as another.
const std::vector<FaultSpec>& FaultMix();

#endif  // SCA_FAULTLAB_FAULT_H
