#include "foundation/SCA_Field.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "foundation/SCA_ConfigObj.h"
#include "foundation/SCA_ConfigStream.h"
#include "foundation/SCA_NewField.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kSource[] = "SCA_Field";

// Of an empty text, which is never written.
char nothing[] = "";

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
    : SCA_Field(type, parent) {
  SetName(name);
}

SCA_Field::~SCA_Field() = default;

void* SCA_Field::operator new(std::size_t size) {
  return ::operator new(size);
}

void* SCA_Field::operator new(std::size_t size, const std::nothrow_t& tag) noexcept {
  return ::operator new(size, tag);
}

void SCA_Field::operator delete(void* memory) noexcept {
  ::operator delete(memory);
}

void SCA_Field::operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
  ::operator delete(memory);
}

int SCA_Field::Text::Assign(std::string_view text) {
  if (text.size() >= room_ && !text.empty()) {
    std::unique_ptr<char[]> longer(new (std::nothrow) char[text.size() + 1]);
    if (longer == nullptr) return 0;
    std::memcpy(longer.get(), text.data(), text.size());
    Borrow(longer.get(), text.size());
    own_ = std::move(longer);
  } else if (room_ > 0) {
    std::memmove(data_, text.data(), text.size());
    data_[text.size()] = '\0';
    length_ = static_cast<std::uint32_t>(text.size());
  } else {
    data_ = nothing;
  }
  return 1;
}

int SCA_Field::SetName(const char* name) {
  const std::size_t length = name != nullptr ? std::strlen(name) : 0;
  if (name == nullptr || !SCA_IsStorable(name, length, SCA_MaxFieldName)) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelDebug, "Invalid field name.");
  }
  if (name_.Assign({name, length}) == 0) return 0;
  SetValid(1);
  return 1;
}

int SCA_Field::SetValue(const char* data, unsigned long length) {
  if (data == nullptr) {
    value_ = Text();
    return 1;
  }
  if (type_ != SCA_FieldTypePlain || !SCA_IsStorable(data, length, SCA_MaxFieldValue)) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelDebug,
                        "SCA_Field::SetValue: a value of %lu bytes cannot be stored in %s", length,
                        GetName() != nullptr ? GetName() : "(null)");
  }
  return value_.Assign({data, length});
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which is the caller's
void SCA_Field::GetPathName(char* buffer) const {
  if (parent_ != nullptr) parent_->GetPathName(buffer);
  char* end = buffer + std::strlen(buffer);
  if (parent_ != nullptr) *end++ = '/';
  const std::string_view name = name_.View();
  std::copy(name.begin(), name.end(), end);
  end[name.size()] = '\0';
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
  if (source->type_ != type_ || source->GetName() == nullptr) return 0;
  Text name;
  Text value;
  if (name.Assign(source->name_.View()) == 0 ||
      (source->GetValue() != nullptr && value.Assign(source->value_.View()) == 0)) {
    return 0;
  }
  name_ = std::move(name);
  value_ = std::move(value);
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
  if (name_.Assign({name, nameLength}) == 0) return 0;
  if (SetValue(value, valueLength) == 0) return 0;
  const char* end = value + valueLength;
  while (*end == SCA_FieldSeparator) ++end;
  *position = static_cast<unsigned long>(end - buffer);
  parent_ = parent;
  return 1;
}

int SCA_Field::Compare(const SCA_Field* other) const {
  if (type_ != other->type_) return ReportDifference("Different field type", __LINE__);
  if (name_.View() != other->name_.View())
    return ReportDifference("Different field name", __LINE__);
  if (value_.View() != other->value_.View())
    return ReportDifference("Different field value", __LINE__);
  // Equal texts differ in length only when one is empty and the other is not there at all.
  if (name_.Size() != other->name_.Size())
    return ReportDifference("Different name length", __LINE__);
  if (value_.Size() != other->value_.Size())
    return ReportDifference("Different value length", __LINE__);
  return 1;
}

SCA_Field* SCA_Field::Clone() const {
  if (GetName() == nullptr) return nullptr;
  SCA_Owned<SCA_Field> copy(SCA_NewField::Plain(nullptr, name_.View(), value_.View()));
  if (copy != nullptr && GetValue() == nullptr) copy->SetValue(nullptr, 0);
  return copy.release();
}

SCA_ConfigObj* SCA_ToConfigObj(SCA_Field* member) {
  const bool isObject = member != nullptr && member->GetType() == SCA_FieldTypeObject;
  return isObject ? static_cast<SCA_ConfigObj*>(member) : nullptr;
}

const SCA_ConfigObj* SCA_ToConfigObj(const SCA_Field* member) {
  return SCA_ToConfigObj(const_cast<SCA_Field*>(member));
}
