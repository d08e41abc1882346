/// Writing and reading the byte form block by block. Internal to the library.
#ifndef SCA_FOUNDATION_SCA_CONFIGSTREAM_H
#define SCA_FOUNDATION_SCA_CONFIGSTREAM_H

#include <cstddef>
#include <functional>
#include <string_view>

#include "foundation/SCA_ConfigBytes.h"
#include "platform/SCA_Result.h"

/// Takes the bytes of a run of blocks; a failure ends the writing.
using SCA_ConfigSink = std::function<SCA_Result(const char* data, std::size_t length)>;

/// Writes the start of a record, which is all of a plain field.
/// @param at  Has room for `GetDataSize()` bytes. @return The end of what was written.
char* SCA_PutRecord(char* at, const SCA_Field& field);

/// @param bytes  Receives the size of the byte form.
/// @return The failure with which such an object is refused.
SCA_Result SCA_MeasureConfig(const SCA_ConfigObj& object, unsigned long* bytes);

/// Writes an object that has been measured. @return What the sink said last.
SCA_Result SCA_StreamConfig(const SCA_ConfigObj& object, const SCA_ConfigSink& sink);

/// Builds an object of bytes that arrive in blocks, without recursion.
class SCA_ConfigReader {
 public:
  /// @param root  Empty; receives the name and the members, which are in part there after a
  /// failure.
  explicit SCA_ConfigReader(SCA_ConfigObj* root) : root_(root) {}

  /// Takes the records that lie in the block as a whole.
  /// @param isLast  Nothing follows the block.
  /// @return Bytes taken; the caller puts the others at the start of the next block. A block of
  ///         `kLongestRecord` bytes never leaves all of them.
  std::size_t Feed(const char* block, std::size_t length, bool isLast);

  /// @return What was wrong; after the last block done says that all is well.
  SCA_Result Result() const { return result_; }
  const SCA_ConfigFault& Fault() const { return fault_; }

  static constexpr std::size_t kLongestRecord = 4 + SCA_MaxFieldName + SCA_MaxFieldValue;

 private:
  enum class Step { Taken, NeedsMore, Failed };

  const char* SkipSeparators();
  Step TakeRecord(const char* start);
  Step TakeText(std::size_t limit, const char* tooLong, std::string_view* text);
  Step TakeField(std::string_view name);
  Step BeginObject(std::string_view name);
  Step Fail(unsigned long code, const char* text, const char* where);
  Step OutOfBytes(const char* where);

  SCA_ConfigObj* root_;
  SCA_ConfigObj* current_ = nullptr;  // the object whose members come; null outside the root
  unsigned long depth_ = 0;
  unsigned long members_ = 0;
  bool followsField_ = false;
  bool isComplete_ = false;

  const char* at_ = nullptr;  // within the block
  const char* block_ = nullptr;
  const char* end_ = nullptr;
  bool isLast_ = false;
  unsigned long long taken_ = 0;  // by earlier blocks

  SCA_Result result_;
  SCA_ConfigFault fault_;
};

#endif  // SCA_FOUNDATION_SCA_CONFIGSTREAM_H
