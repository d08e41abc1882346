#include "foundation/SCA_Field.h"

#include <cstring>
#include <new>

#include "foundation/SCA_ConfigObj.h"
#include "foundation/SCA_ConfigStream.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kSource[] = "SCA_Field";

bool IsStorable(const char* data, std::size_t length, std::size_t limit) {
  return length <= limit && std::memchr(data, '\0', length) == nullptr &&
         std::memchr(data, SCA_FieldSeparator, length) == nullptr;
}

// Length of the text that ends at a separator.
// @return False when a zero byte comes first, or none within the limit.
bool ScanText(const char* text, std::size_t limit, std::size_t* length) {
  std::size_t i = 0;
  while (i < limit && text[i] != SCA_FieldSeparator && text[i] != '\0') ++i;
  *length = i;
  return text[i] == SCA_FieldSeparator;
}

int ReportDifference(const char* what, int line) {
  return SCA_Complain(kSource, line, SCA_LevelDebug, "%s", what);
}

}  // namespace

SCA_Field::SCA_Field(const char* name, SCA_ConfigObj* parent)
    : SCA_Field(SCA_FieldTypePlain, name, parent) {}

SCA_Field::SCA_Field(unsigned long type, const char* name, SCA_ConfigObj* parent)
    : parent_(parent), type_(static_cast<std::uint32_t>(type)) {
  SetName(name);
}

SCA_Field::~SCA_Field() = default;

int SCA_Field::Assign(std::string* text, bool* isPresent, const char* data, std::size_t length) {
  try {
    text->assign(data, length);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  *isPresent = true;
  return 1;
}

int SCA_Field::SetName(const char* name) {
  const std::size_t length = name != nullptr ? std::strlen(name) : 0;
  if (name == nullptr || !IsStorable(name, length, SCA_MaxFieldName)) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelDebug, "Invalid field name.");
  }
  if (Assign(&name_, &hasName_, name, length) == 0) return 0;
  SetValid(1);
  return 1;
}

int SCA_Field::SetValue(const char* data, unsigned long length) {
  if (data != nullptr &&
      (type_ != SCA_FieldTypePlain || !IsStorable(data, length, SCA_MaxFieldValue))) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelDebug,
                        "SCA_Field::SetValue: a value of %lu bytes cannot be stored in %s", length,
                        hasName_ ? name_.c_str() : "(null)");
  }
  if (data != nullptr) return Assign(&value_, &hasValue_, data, length);
  std::string().swap(value_);
  hasValue_ = false;
  return 1;
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which is the caller's
void SCA_Field::GetPathName(char* buffer) const {
  if (parent_ != nullptr) parent_->GetPathName(buffer);
  char* end = buffer + std::strlen(buffer);
  if (parent_ != nullptr) *end++ = '/';
  std::memcpy(end, name_.c_str(), name_.size() + 1);
}

unsigned long SCA_Field::GetDataSize() const {
  constexpr unsigned long kFraming = 5;
  return GetNameLength() + GetValueLength() + kFraming;
}

unsigned long SCA_Field::GetFieldCount() const {
  return 0;
}

int SCA_Field::GetFieldByIndex(unsigned long /*index*/, SCA_Field** out) const {
  *out = nullptr;
  return 0;
}

int SCA_Field::GetFieldByName(const char* /*name*/, SCA_Field** out) const {
  *out = nullptr;
  return 0;
}

unsigned long SCA_Field::GetTotalFieldCount() const {
  return 1;
}

int SCA_Field::CopyFrom(const SCA_Field* source) {
  if (source->type_ != type_ || !source->hasName_) return 0;
  try {
    std::string name = source->name_;
    std::string value = source->value_;
    name_.swap(name);
    value_.swap(value);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  hasName_ = true;
  hasValue_ = source->hasValue_;
  SetValid(1);
  return 1;
}

int SCA_Field::WriteData(char* buffer, unsigned long /*size*/, unsigned long* position) const {
  const char* end = SCA_PutRecord(buffer + *position, *this);
  *position = static_cast<unsigned long>(end - buffer);
  return 1;
}

int SCA_Field::ReadData(const char* buffer, unsigned long* position, SCA_ConfigObj* parent) {
  const char* at = buffer + *position;
  if (at[0] != '0' + static_cast<char>(SCA_FieldTypePlain) || at[1] != SCA_FieldSeparator) return 0;
  const char* name = at + 2;
  std::size_t nameLength = 0;
  if (!ScanText(name, SCA_MaxFieldName, &nameLength)) return 0;
  const char* value = name + nameLength + 1;
  std::size_t valueLength = 0;
  if (!ScanText(value, SCA_MaxFieldValue, &valueLength)) return 0;
  if (Assign(&name_, &hasName_, name, nameLength) == 0) return 0;
  if (SetValue(value, valueLength) == 0) return 0;
  const char* end = value + valueLength;
  while (*end == SCA_FieldSeparator) ++end;
  *position = static_cast<unsigned long>(end - buffer);
  parent_ = parent;
  return 1;
}

int SCA_Field::Compare(const SCA_Field* other) const {
  if (type_ != other->type_) return ReportDifference("Different field type", __LINE__);
  if (name_ != other->name_) return ReportDifference("Different field name", __LINE__);
  if (value_ != other->value_) return ReportDifference("Different field value", __LINE__);
  // Equal texts differ in length only when one is empty and the other is not there at all.
  if (hasName_ != other->hasName_) return ReportDifference("Different name length", __LINE__);
  if (hasValue_ != other->hasValue_) return ReportDifference("Different value length", __LINE__);
  return 1;
}

SCA_Field* SCA_Field::Clone() const {
  SCA_Owned<SCA_Field> copy(new (std::nothrow) SCA_Field("Field", nullptr));
  if (copy == nullptr || copy->CopyFrom(this) == 0) return nullptr;
  return copy.release();
}

SCA_ConfigObj* SCA_ToConfigObj(SCA_Field* member) {
  const bool isObject = member != nullptr && member->GetType() == SCA_FieldTypeObject;
  return isObject ? static_cast<SCA_ConfigObj*>(member) : nullptr;
}

const SCA_ConfigObj* SCA_ToConfigObj(const SCA_Field* member) {
  return SCA_ToConfigObj(const_cast<SCA_Field*>(member));
}
