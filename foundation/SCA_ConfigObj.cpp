#include "foundation/SCA_ConfigObj.h"

#include <charconv>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>

#include "foundation/SCA_ConfigBytes.h"
#include "foundation/SCA_ConfigFile.h"
#include "foundation/SCA_NewField.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Text.h"

namespace {

constexpr char kSource[] = "SCA_ConfigObj";

// Public operations give 32-bit numbers in an unsigned long, which may hold more.
template <class T>
using Stored = std::conditional_t<std::is_same_v<T, unsigned long>, std::uint32_t, T>;

}  // namespace

SCA_ConfigObj::SCA_ConfigObj(const char* name, SCA_ConfigObj* parent)
    : SCA_Field(SCA_FieldTypeObject, name, parent) {}

SCA_ConfigObj::SCA_ConfigObj(SCA_ConfigObj* parent) : SCA_ConfigObj("", parent) {}

SCA_ConfigObj::SCA_ConfigObj(const SCA_ConfigObj& source) : SCA_ConfigObj("", nullptr) {
  SetValid(CopyFrom(&source));
}

SCA_ConfigObj::~SCA_ConfigObj() = default;

// Members that are added

int SCA_ConfigObj::HasDuplicate(const char* name, int form, int line) const {
  if (fields_.IsItemValid(name) == 0) return 0;
  SCA_GetReportFunction(kSource, line)(
      SCA_LevelDebug, "SCA_ConfigObj::AddField(%d): Duplicate field name - %s", form, name);
  return 1;
}

int SCA_ConfigObj::Link(SCA_Field* member, int setParent) {
  if (fields_.AddItemToTail(member) == 0) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelDebug,
                        "SCA_ConfigObj::AddField: Invalid field name.");
  }
  if (setParent != 0) member->parent_ = this;
  return 1;
}

SCA_ConfigObj* SCA_ConfigObj::AddConfigObj(const char* name) {
  const std::size_t length = name != nullptr ? std::strlen(name) : 0;
  if (name == nullptr || !SCA_IsStorable(name, length, SCA_MaxFieldName)) {
    const SCA_ConfigObj refused(name, nullptr);  // and reported
    return nullptr;
  }
  SCA_ConfigObj* const object = SCA_NewField::Object(this, {name, length});
  if (object != nullptr) fields_.AddItemToTail(object);
  return object;
}

int SCA_ConfigObj::AddField(const char* name, const char* value, int checkDuplicate) {
  // What can be stored is copied once; the field itself tells of the rest.
  const std::size_t nameLength = name != nullptr ? std::strlen(name) : 0;
  const std::size_t valueLength = value != nullptr ? std::strlen(value) : 0;
  const bool isStorable = name != nullptr && value != nullptr &&
                          SCA_IsStorable(name, nameLength, SCA_MaxFieldName) &&
                          SCA_IsStorable(value, valueLength, SCA_MaxFieldValue);
  SCA_Owned<SCA_Field> field(
      isStorable ? SCA_NewField::Plain(this, {name, nameLength}, {value, valueLength})
                 : new (std::nothrow) SCA_Field(name, this));
  if (field == nullptr || field->IsValid() == 0) return 0;
  if (!isStorable && value != nullptr && field->SetValue(value, valueLength) == 0) return 0;
  if (AddField(field.get(), checkDuplicate) == 0) return 0;
  static_cast<void>(field.release());
  return 1;
}

template <class T>
int SCA_ConfigObj::AddNumber(const char* name, T value, int checkDuplicate) {
  char text[32];
  if (value > std::numeric_limits<Stored<T>>::max()) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelDebug,
                        "SCA_ConfigObj::AddField: a number of more than 32 bits for %s",
                        name != nullptr ? name : "(null)");
  }
  *std::to_chars(text, text + sizeof text - 1, value).ptr = '\0';
  return AddField(name, text, checkDuplicate);
}

int SCA_ConfigObj::AddField(const char* name, unsigned short value, int checkDuplicate) {
  return AddNumber(name, value, checkDuplicate);
}

int SCA_ConfigObj::AddField(const char* name, int value, int checkDuplicate) {
  return AddNumber(name, value, checkDuplicate);
}

int SCA_ConfigObj::AddField(const char* name, unsigned int value, int checkDuplicate) {
  return AddNumber(name, value, checkDuplicate);
}

int SCA_ConfigObj::AddField(const char* name, unsigned long value, int checkDuplicate) {
  return AddNumber(name, value, checkDuplicate);
}

int SCA_ConfigObj::AddField(const char* name, unsigned long long value, int checkDuplicate) {
  return AddNumber(name, value, checkDuplicate);
}

int SCA_ConfigObj::AddField(const char* name, SCA_Field** out, int atTail, int check) {
  if (check != 0 && (name == nullptr || *name == '\0')) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelDebug,
                        "SCA_ConfigObj::AddField: Invalid field name.");
  }
  if (check != 0 && HasDuplicate(name, 15, __LINE__) != 0) return 0;
  SCA_Owned<SCA_Field> field(new (std::nothrow) SCA_Field(name, this));
  if (field == nullptr) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelDebug,
                        "SCA_ConfigObj::AddField : Cannot create field object");
  }
  if ((atTail != 0 ? fields_.AddItemToTail(field.get()) : fields_.AddItemToHead(field.get())) ==
      0) {
    return 0;
  }
  *out = field.release();
  return 1;
}

int SCA_ConfigObj::AddField(const char* name, SCA_Field* member, int check) {
  if (member == nullptr) return 0;
  if (check != 0 && HasDuplicate(name, 12, __LINE__) != 0) return 0;
  return member->SetName(name) != 0 ? Link(member, 1) : 0;
}

int SCA_ConfigObj::AddField(SCA_Field* member) {
  return AddField(member, 0);
}

int SCA_ConfigObj::AddField(SCA_Field* member, int check) {
  if (member == nullptr) return 0;
  if (check != 0 && HasDuplicate(member->GetName(), 13, __LINE__) != 0) return 0;
  return Link(member, 1);
}

int SCA_ConfigObj::AddField(SCA_Field* member, int check, int setParent) {
  if (member == nullptr) return 0;
  if (check != 0 && HasDuplicate(member->GetName(), 14, __LINE__) != 0) return 0;
  return Link(member, setParent);
}

// Values

int SCA_ConfigObj::GetField(const char* name, char* buffer, unsigned long size) const {
  const SCA_Field* member = fields_.GetListItem(name);
  if (member == nullptr || member->type_ != SCA_FieldTypePlain || size == 0) return 0;
  SCA_CopyText(buffer, size, member->GetValue(), SCA_TextFit::Cut);
  return 1;
}

template <class T>
int SCA_ConfigObj::GetNumber(const char* name, T* value) const {
  const SCA_Field* member = fields_.GetListItem(name);
  if (member == nullptr) return 0;  // an object has an empty value, which is no number
  const std::string_view text = member->value_.View();
  const char* const end = text.data() + text.size();
  Stored<T> number{};
  const auto [last, failure] = std::from_chars(text.data(), end, number);
  if (failure != std::errc() || last != end) return 0;
  *value = number;
  return 1;
}

int SCA_ConfigObj::GetField(const char* name, unsigned short* value) const {
  return GetNumber(name, value);
}

int SCA_ConfigObj::GetField(const char* name, int* value) const {
  return GetNumber(name, value);
}

int SCA_ConfigObj::GetField(const char* name, unsigned int* value) const {
  return GetNumber(name, value);
}

int SCA_ConfigObj::GetField(const char* name, unsigned long* value) const {
  return GetNumber(name, value);
}

int SCA_ConfigObj::GetField(const char* name, unsigned long long* value) const {
  return GetNumber(name, value);
}

// Lookup

int SCA_ConfigObj::GetField(const char* name, SCA_ConfigObj** out) const {
  SCA_Field* member = fields_.GetListItem(name);
  if (member == nullptr) return 0;
  // The pointer may be to a plain field, so ask its kind instead of a static_cast.
  *out = reinterpret_cast<SCA_ConfigObj*>(member);
  return 1;
}

SCA_ConfigObj* SCA_ConfigObj::GetConfigObj(const char* name) const {
  return SCA_ToConfigObj(fields_.GetListItem(name));
}

int SCA_ConfigObj::IsFieldExists(const char* name) const {
  return fields_.IsItemValid(name);
}

int SCA_ConfigObj::GetFieldById(unsigned long id, SCA_Field** out) const {
  char name[32];
  *std::to_chars(name, name + sizeof name - 1, id).ptr = '\0';
  return GetFieldByName(name, out);
}

unsigned long SCA_ConfigObj::GetFieldCount() const {
  return fields_.Count();
}

int SCA_ConfigObj::GetFieldByIndex(unsigned long index, SCA_Field** out) const {
  return fields_.GetItemByPos(index, out);
}

int SCA_ConfigObj::GetFieldByName(const char* name, SCA_Field** out) const {
  return fields_.GetItem(name, out);
}

unsigned long SCA_ConfigObj::GetTotalFieldCount() const {
  unsigned long count = 1;
  for (const SCA_Field* member = fields_.GetHead(); member != nullptr; member = member->next_) {
    count += member->GetTotalFieldCount();
  }
  return count;
}

unsigned long SCA_ConfigObj::GetDataSize() const {
  constexpr unsigned long kFraming = 11;
  unsigned long size = GetNameLength() + kFraming;
  for (const SCA_Field* member = fields_.GetHead(); member != nullptr; member = member->next_) {
    size += member->GetDataSize();
  }
  return size;
}

int SCA_ConfigObj::RemoveField(const char* name) {
  return fields_.RemoveItem(name);
}

int SCA_ConfigObj::DeleteFieldByIndex(unsigned long index) {
  return fields_.DeleteItemByPos(index);
}

int SCA_ConfigObj::TakeContent(SCA_ConfigObj* source) {
  if (source == this) return 1;
  if (source->GetName() != nullptr && name_.Assign(source->name_.View()) == 0) return 0;
  // Aside first: the source may be one of the members that go.
  SCA_FieldList taken;
  taken.TakeAll(&source->fields_, this);
  fields_.Clear();
  fields_.TakeAll(&taken, this);
  SetValid(GetName() != nullptr ? 1 : 0);
  return 1;
}

// The whole tree

int SCA_ConfigObj::CopyFrom(const SCA_Field* source) {
  const SCA_ConfigObj* object = SCA_ToConfigObj(source);
  if (object == nullptr || object->GetName() == nullptr) return 0;
  SCA_ConfigObj copy(object->GetName(), nullptr);
  if (copy.IsValid() == 0) return 0;
  for (const SCA_Field* member = object->fields_.GetHead(); member != nullptr;
       member = member->next_) {
    SCA_Owned<SCA_Field> clone(member->Clone());
    if (clone == nullptr || copy.AddField(clone.get()) == 0) return 0;
    static_cast<void>(clone.release());
  }
  return TakeContent(&copy);
}

int SCA_ConfigObj::WriteData(char* buffer, unsigned long size, unsigned long* position) const {
  unsigned long written = 0;
  unsigned long error = 0;
  if (*position > size ||
      SCA_WriteConfigBytes(*this, buffer + *position, size - *position, &written, &error) == 0) {
    return 0;
  }
  *position += written;
  return 1;
}

int SCA_ConfigObj::ReadData(const char* /*buffer*/, unsigned long* /*position*/,
                            SCA_ConfigObj* /*parent*/) {
  return SCA_Complain(kSource, __LINE__, SCA_LevelDebug,
                      "SCA_ConfigObj::ReadData: an object is not read without a length");
}

int SCA_ConfigObj::Compare(const SCA_Field* other) const {
  if (SCA_Field::Compare(other) == 0) return 0;
  const SCA_FieldList& others = SCA_ToConfigObj(other)->fields_;
  if (fields_.Count() != others.Count()) {
    return SCA_Complain(kSource, __LINE__, SCA_LevelDebug, "Different field count");
  }
  const SCA_Field* match = others.GetHead();
  for (const SCA_Field* member = fields_.GetHead(); member != nullptr; member = member->next_) {
    if (member->Compare(match) == 0) return 0;
    match = match->next_;
  }
  return 1;
}

SCA_Field* SCA_ConfigObj::Clone() const {
  SCA_Owned<SCA_ConfigObj> copy(new (std::nothrow) SCA_ConfigObj(*this));
  return copy != nullptr && copy->IsValid() != 0 ? copy.release() : nullptr;
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as the tree, which is the caller's
void SCA_ConfigObj::GetPathName(char* buffer) const {
  SCA_Field::GetPathName(buffer);
}

// Files

int SCA_ConfigObj::Load(const char* fileName, unsigned long* error) {
  return SCA_LoadConfigFile(fileName, this, nullptr, error);
}

int SCA_ConfigObj::Save(const char* fileName, unsigned long fileType, unsigned long formatVersion,
                        unsigned long* error) const {
  return SCA_SaveConfigFile(*this, fileName, fileType, formatVersion, error);
}
