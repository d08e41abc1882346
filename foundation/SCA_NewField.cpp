#include "foundation/SCA_NewField.h"

#include <cstring>
#include <new>

namespace {

void Copy(char* target, std::string_view text) {
  if (!text.empty()) std::memcpy(target, text.data(), text.size());
}

}  // namespace

template <class Member, class... Arguments>
Member* SCA_NewField::Place(std::size_t room, Arguments... arguments) {
  void* const memory = ::operator new(sizeof(Member) + room, std::nothrow);
  return memory != nullptr ? ::new (memory) Member(arguments...) : nullptr;
}

SCA_Field* SCA_NewField::Plain(SCA_ConfigObj* parent, std::string_view texts,
                               std::size_t nameLength) {
  auto* const field = Place<SCA_Field>(texts.size() + 1, SCA_FieldTypePlain, parent);
  if (field == nullptr) return nullptr;
  auto* const room = reinterpret_cast<char*>(field + 1);
  if (texts.data() != nullptr) std::memcpy(room, texts.data(), texts.size());
  field->name_.Borrow(room, nameLength);
  field->value_.Borrow(room + nameLength + 1, texts.size() - nameLength - 1);
  field->SetValid(1);
  return field;
}

SCA_Field* SCA_NewField::Plain(SCA_ConfigObj* parent, std::size_t nameLength,
                               std::size_t valueLength, char** name, char** value) {
  SCA_Field* const field = Plain(parent, {nullptr, nameLength + 1 + valueLength}, nameLength);
  if (field == nullptr) return nullptr;
  *name = field->name_.Data();
  *value = field->value_.Data();
  return field;
}

SCA_Field* SCA_NewField::Plain(SCA_ConfigObj* parent, std::string_view name,
                               std::string_view value) {
  char* nameRoom = nullptr;
  char* valueRoom = nullptr;
  SCA_Field* const field = Plain(parent, name.size(), value.size(), &nameRoom, &valueRoom);
  if (field == nullptr) return nullptr;
  Copy(nameRoom, name);
  Copy(valueRoom, value);
  return field;
}

SCA_ConfigObj* SCA_NewField::Object(SCA_ConfigObj* parent, std::string_view name) {
  auto* const object = Place<SCA_ConfigObj>(name.size() + 1, parent);
  if (object == nullptr) return nullptr;
  auto* const room = reinterpret_cast<char*>(object + 1);
  Copy(room, name);
  static_cast<SCA_Field*>(object)->name_.Borrow(room, name.size());
  return object;
}

int SCA_NewField::Rename(SCA_ConfigObj* object, std::string_view name) {
  return static_cast<SCA_Field*>(object)->name_.Assign(name);
}

bool SCA_IsStorable(const char* data, std::size_t length, std::size_t limit) {
  return length <= limit && SCA_FindFieldMark(data, data + length) == data + length;
}

// Eight at a time: with its lowest bit cleared such a byte is 0, and only such a byte borrows into
// its highest bit, or one above it.
const char* SCA_FindFieldMark(const char* at, const char* end) {
  constexpr std::uint64_t kLow = 0x0101010101010101;
  constexpr std::uint64_t kHigh = 0x8080808080808080;
  for (; end - at >= 8; at += 8) {
    std::uint64_t word = 0;
    std::memcpy(&word, at, sizeof word);
    word &= ~kLow;
    const std::uint64_t marks = (word - kLow) & ~word & kHigh;
    if (marks == 0) continue;
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return at + __builtin_ctzll(marks) / 8;
#else
    break;
#endif
  }
  while (at != end && static_cast<unsigned char>(*at) > 1) ++at;
  return at;
}
