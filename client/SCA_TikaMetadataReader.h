/// Reads the JSON that Tika answers to `PUT /rmeta/body` and `PUT /meta`, as it arrives.
#ifndef SCA_CLIENT_SCA_TIKAMETADATAREADER_H
#define SCA_CLIENT_SCA_TIKAMETADATAREADER_H

#include <cstdint>
#include <string>
#include <string_view>

#include "client/SCA_TikaMetadata.h"

/// Takes what a reader finds. Threads: called on the thread that calls the reader.
class SCA_API SCA_TikaMetadataReceiver {
 public:
  virtual ~SCA_TikaMetadataReceiver();
  /// Takes a piece of the text of the document under way: the one that the next call of
  /// `TakeDocument` is about. UTF-8 as Tika sent it; a character may be divided between two pieces.
  /// @param length  At least 1.
  /// @return 0 stops the reading.
  virtual int TakeText(const char* text, unsigned long length) = 0;
  /// Takes what is told of a document, after its text: first of the document that was sent, then of
  /// each one embedded in it.
  /// @return 0 stops the reading.
  virtual int TakeDocument(const SCA_TikaMetadata& metadata) = 0;
};

/// Takes the reply in pieces of any size. Texts of any length pass through; what is told of one
/// document besides its text is gathered, up to a limit. So memory does not depend on the reply.
/// Threads: one at a time.
class SCA_API SCA_TikaMetadataReader {
 public:
  /// @param receiver       Not owned.
  /// @param metadataBytes  Limit on names and values of one document.
  explicit SCA_TikaMetadataReader(SCA_TikaMetadataReceiver* receiver,
                                  unsigned long metadataBytes = 4UL << 20);

  /// Takes the next piece.
  /// @return 0 once the reply turned out not to be such JSON or to exceed its limits, or when the
  ///         receiver stopped; `GetError` tells. Further pieces are then refused.
  int Take(const char* bytes, unsigned long length);
  /// @return 1 when the reply is whole, with one document at least.
  int Finish();
  /// @return 0, `SCA_ErrorInvalidData`, `SCA_ErrorDataTooLarge`, `ENOMEM`, or `SCA_ErrorCancelled`
  ///         when the receiver stopped.
  unsigned long GetError() const { return error_; }

 private:
  enum class State { Structure, String, Escape, Literal };
  enum class Expects { Value, ValueOrEnd, Key, KeyOrEnd, Colon, CommaOrEnd, Nothing };

  std::string_view TakeSome(std::string_view bytes);
  bool TakeStructure(char c);
  bool TakeLiteral(char c);
  std::string_view TakeString(std::string_view bytes);
  bool TakeEscape(char c);
  bool TakeUnit(unsigned unit);
  bool EndHalf();
  bool Begin(bool isObject);
  bool End(bool isObject);
  bool BeginString();
  bool EndString();
  bool EndLiteral();
  bool EndValue();
  bool AddValue();
  bool Append(std::string_view text);
  bool AppendCharacter(unsigned long character);
  bool FlushText();
  bool Fail(unsigned long error);
  bool IsValueOfDocument() const;
  bool IsInDocument() const { return documentDepth_ != 0 && depth_ >= documentDepth_; }

  SCA_TikaMetadataReceiver* const receiver_;
  const unsigned long metadataBytes_;
  unsigned long error_ = 0;

  State state_ = State::Structure;
  Expects expects_ = Expects::Value;
  unsigned depth_ = 0;            // of objects and arrays that are open
  std::uint32_t areObjects_ = 0;  // one bit for each of them, the innermost lowest
  unsigned documentDepth_ = 0;    // of the object that is a document; 0 outside
  unsigned long documents_ = 0;   // that have ended

  bool isKey_ = false;      // the string under way
  bool isText_ = false;     // likewise
  std::string escape_;      // after the backslash, until it is whole
  unsigned highUnit_ = 0;   // the first half of a character in two escapes
  std::string token_;       // the string or literal under way, or text that is to be handed out
  std::string name_;        // of the value to come
  unsigned long held_ = 0;  // bytes of names and values of the document
  SCA_TikaMetadata metadata_;
};

#endif  // SCA_CLIENT_SCA_TIKAMETADATAREADER_H
