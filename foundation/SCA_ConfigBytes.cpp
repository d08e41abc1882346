#include "foundation/SCA_ConfigBytes.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <new>

#include "foundation/SCA_ConfigStream.h"
#include "foundation/SCA_NewField.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kFieldMark = '0' + SCA_FieldTypePlain;
constexpr char kObjectMark = '0' + SCA_FieldTypeObject;
constexpr char kEndMark = '0';
constexpr unsigned long kEndSize = 2;

// Bytes of the record's start, which is all of a plain field.
unsigned long RecordSize(const SCA_Field& field) {
  const unsigned long name = field.GetNameLength();    // with the separator behind it
  const unsigned long value = field.GetValueLength();  // 0 also stands for a lone separator
  const bool isObject = field.GetType() == SCA_FieldTypeObject;
  return 2 + name + (isObject ? kEndSize : std::max(value, 1UL));
}

char* PutText(char* at, const char* text, std::size_t length) {
  if (length > 0) std::memcpy(at, text, length);
  at[length] = SCA_FieldSeparator;
  return at + length + 1;
}

char* PutEnd(char* at) {
  *at++ = kEndMark;
  *at++ = SCA_FieldSeparator;
  return at;
}

// Where records go. Each takes the start of a record, or the end of an object, whose size has been
// counted with the start, or refuses it.

struct CountingTarget {
  SCA_Result Record(const SCA_Field& field) {
    bytes += RecordSize(field);
    return bytes <= SCA_MaxConfigBytes ? SCA_Done : SCA_Result(SCA_ErrorDataTooLarge);
  }
  SCA_Result End() { return SCA_Done; }

  unsigned long bytes = 0;
};

struct MemoryTarget {
  SCA_Result Record(const SCA_Field& field) {
    const unsigned long size = RecordSize(field);
    if (size > room) return SCA_Result(ENOBUFS);
    room -= size;
    at = SCA_PutRecord(at, field);
    return SCA_Done;
  }
  SCA_Result End() {
    at = PutEnd(at);
    return SCA_Done;
  }

  char* at;
  unsigned long room;
};

// Collects blocks for a sink.
struct BlockTarget {
  explicit BlockTarget(const SCA_ConfigSink& receiver) : sink(receiver) {}

  SCA_Result Record(const SCA_Field& field) {
    if (const SCA_Result made = MakeRoom(RecordSize(field)); made.HasFailed()) return made;
    at = SCA_PutRecord(at, field);
    return SCA_Done;
  }
  SCA_Result End() {
    if (const SCA_Result made = MakeRoom(kEndSize); made.HasFailed()) return made;
    at = PutEnd(at);
    return SCA_Done;
  }
  SCA_Result MakeRoom(unsigned long size) {
    return size <= static_cast<unsigned long>(block + sizeof block - at) ? SCA_Done : Flush();
  }
  SCA_Result Flush() {
    const auto length = static_cast<std::size_t>(at - block);
    at = block;
    return sink(block, length);
  }

  const SCA_ConfigSink& sink;
  char block[2 * SCA_ConfigReader::kLongestRecord];
  char* at = block;
};

// Walks a tree within the limits of depth and members.
template <class Target>
class Writer {
 public:
  explicit Writer(Target* target) : target_(target) {}

  // NOLINTNEXTLINE(misc-no-recursion): the depth is limited
  SCA_Result Put(const SCA_ConfigObj& object, unsigned long depth = 1) {
    members_ += object.GetFieldCount();
    if (depth > SCA_MaxConfigDepth || members_ > SCA_MaxConfigMembers) {
      return SCA_Result(SCA_ErrorDataTooLarge);
    }
    SCA_Result result = target_->Record(object);
    for (const SCA_Field* member = object.GetFields().GetHead();
         member != nullptr && !result.HasFailed(); member = member->GetNext()) {
      const SCA_ConfigObj* child = SCA_ToConfigObj(member);
      result = child != nullptr ? Put(*child, depth + 1) : target_->Record(*member);
    }
    return result.HasFailed() ? result : target_->End();
  }

 private:
  Target* target_;
  unsigned long members_ = 0;
};

}  // namespace

char* SCA_PutRecord(char* at, const SCA_Field& field) {
  *at++ = static_cast<char>('0' + field.GetType());
  *at++ = SCA_FieldSeparator;
  at = PutText(at, field.GetName(), field.GetNameLength() - 1);
  if (field.GetType() != SCA_FieldTypePlain) return at;
  return PutText(at, field.GetValue(), std::max(field.GetValueLength(), 1UL) - 1);
}

SCA_Result SCA_MeasureConfig(const SCA_ConfigObj& object, unsigned long* bytes) {
  if (object.GetName() == nullptr) return SCA_Result(SCA_ErrorInvalidData);
  CountingTarget target;
  const SCA_Result result = Writer<CountingTarget>(&target).Put(object);
  *bytes = target.bytes;
  return result;
}

SCA_Result SCA_StreamConfig(const SCA_ConfigObj& object, const SCA_ConfigSink& sink) {
  BlockTarget target(sink);
  const SCA_Result result = Writer<BlockTarget>(&target).Put(object);
  return result.HasFailed() ? result : target.Flush();
}

int SCA_WriteConfigBytes(const SCA_ConfigObj& object, char* buffer, unsigned long size,
                         unsigned long* written, unsigned long* error) {
  if (object.GetName() == nullptr) return SCA_Fail(SCA_ErrorInvalidData, error);
  MemoryTarget target{buffer, std::min(size, SCA_MaxConfigBytes)};
  const SCA_Result result = Writer<MemoryTarget>(&target).Put(object);
  // A larger buffer than the limit would not help.
  const bool isBeyondLimit = result.Code() == ENOBUFS && size >= SCA_MaxConfigBytes;
  if (isBeyondLimit) return SCA_Fail(SCA_ErrorDataTooLarge, error);
  if (result.HasFailed()) return result.Store(error);
  *written = static_cast<unsigned long>(target.at - buffer);
  return 1;
}

int SCA_ReadConfigBytes(const char* bytes, unsigned long length, SCA_ConfigObj* object,
                        SCA_ConfigFault* fault, unsigned long* error) {
  SCA_ConfigObj root;
  SCA_ConfigReader reader(&root);
  reader.Feed(bytes, length, true);
  object->Clear();
  if (fault != nullptr) *fault = reader.Fault();
  if (reader.Result().HasFailed()) return reader.Result().Store(error);
  return object->TakeContent(&root);
}

SCA_ConfigReader::Step SCA_ConfigReader::Fail(unsigned long code, const char* text,
                                              const char* where) {
  result_ = SCA_Result(code);
  fault_.offset = taken_ + static_cast<unsigned long long>(where - block_);
  fault_.text = text;
  return Step::Failed;
}

SCA_ConfigReader::Step SCA_ConfigReader::OutOfBytes(const char* where) {
  if (!isLast_) return Step::NeedsMore;
  return Fail(SCA_ErrorInvalidData, "the data end within an object", where);
}

std::size_t SCA_ConfigReader::Feed(const char* block, std::size_t length, bool isLast) {
  at_ = block_ = block;
  end_ = block + length;
  isLast_ = isLast;
  Step step = result_.HasFailed() ? Step::Failed : Step::Taken;
  while (step == Step::Taken && !isComplete_) {
    const char* start = SkipSeparators();
    step = TakeRecord(start);
    if (step == Step::NeedsMore) at_ = start;
  }
  if (step == Step::Taken && at_ != end_) {
    Fail(SCA_ErrorInvalidData, "bytes follow the end of the object", at_);
  }
  const auto count = static_cast<std::size_t>(at_ - block);
  taken_ += count;
  return count;
}

// Extra separators after a field belong to it.
const char* SCA_ConfigReader::SkipSeparators() {
  while (followsField_ && at_ != end_ && *at_ == SCA_FieldSeparator) ++at_;
  return at_;
}

SCA_ConfigReader::Step SCA_ConfigReader::TakeRecord(const char* start) {
  const auto offset = taken_ + static_cast<unsigned long long>(start - block_);
  if (offset + kEndSize > SCA_MaxConfigBytes) {
    return Fail(SCA_ErrorDataTooLarge, "an object is longer than 64 MiB", start);
  }
  if (end_ - at_ < 2) return OutOfBytes(end_);
  const char mark = at_[0];
  if (at_[1] != SCA_FieldSeparator || (mark != kObjectMark && current_ == nullptr) ||
      (mark != kObjectMark && mark != kFieldMark && mark != kEndMark)) {
    return Fail(SCA_ErrorInvalidData, "no record of a field or an object begins here", start);
  }
  at_ += 2;
  if (mark == kEndMark) {
    followsField_ = false;
    current_ = --depth_ > 0 ? current_->GetParent() : nullptr;
    isComplete_ = depth_ == 0;
    return Step::Taken;
  }
  std::string_view name;
  const Step step = TakeText(SCA_MaxFieldName, "a name is longer than 10240 bytes", &name);
  if (step != Step::Taken) return step;
  if (current_ != nullptr && members_ >= SCA_MaxConfigMembers) {
    return Fail(SCA_ErrorDataTooLarge, "there are more than 100000 members", start);
  }
  if (mark == kFieldMark) return TakeField(name);
  if (depth_ >= SCA_MaxConfigDepth) {
    return Fail(SCA_ErrorDataTooLarge, "objects are nested deeper than 64", start);
  }
  return BeginObject(name);
}

// A text and the separator after it.
SCA_ConfigReader::Step SCA_ConfigReader::TakeText(std::size_t limit, const char* tooLong,
                                                  std::string_view* text) {
  const auto left = static_cast<std::size_t>(end_ - at_);
  const char* mark = SCA_FindFieldMark(at_, at_ + std::min(left, limit + 1));
  *text = {at_, static_cast<std::size_t>(mark - at_)};
  if (text->size() > limit) return Fail(SCA_ErrorInvalidData, tooLong, at_);
  if (mark == end_) return OutOfBytes(end_);
  if (*mark == '\0') return Fail(SCA_ErrorInvalidData, "a zero byte stands in a text", mark);
  at_ = mark + 1;
  return Step::Taken;
}

SCA_ConfigReader::Step SCA_ConfigReader::TakeField(std::string_view name) {
  std::string_view value;
  const Step step = TakeText(SCA_MaxFieldValue, "a value is longer than 20480 bytes", &value);
  if (step != Step::Taken) return step;
  // The two lie as they are to be kept, with their separator between them.
  const std::string_view texts(name.data(), name.size() + 1 + value.size());
  SCA_Field* const field = SCA_NewField::Plain(current_, texts, name.size());
  if (field == nullptr) return Fail(ENOMEM, "there is no memory for a field", name.data());
  current_->GetFields().AddItemToTail(field);
  ++members_;
  followsField_ = true;
  return Step::Taken;
}

SCA_ConfigReader::Step SCA_ConfigReader::BeginObject(std::string_view name) {
  SCA_ConfigObj* object = root_;
  if (current_ == nullptr) {
    if (SCA_NewField::Rename(root_, name) == 0) object = nullptr;
  } else if ((object = SCA_NewField::Object(current_, name)) != nullptr) {
    current_->GetFields().AddItemToTail(object);
    ++members_;
  }
  if (object == nullptr) return Fail(ENOMEM, "there is no memory for an object", name.data());
  current_ = object;
  ++depth_;
  followsField_ = false;
  return Step::Taken;
}
