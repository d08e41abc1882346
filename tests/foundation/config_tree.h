/// Random trees, and a comparison that uses none of the library's own.
#ifndef SCA_TESTS_FOUNDATION_CONFIG_TREE_H
#define SCA_TESTS_FOUNDATION_CONFIG_TREE_H

#include <random>
#include <string>

#include "foundation/SCA_ConfigObj.h"

inline std::string RandomText(std::mt19937* random, std::size_t limit) {
  std::string text((*random)() % 8 == 0 ? (*random)() % (limit + 1) : (*random)() % 24, ' ');
  for (char& byte : text) byte = static_cast<char>(2 + (*random)() % 254);
  return text;
}

/// Adds some members, objects with members of their own among them.
inline void Grow(SCA_ConfigObj* object, std::mt19937* random, int depth) {
  for (auto left = (*random)() % 7; left > 0; --left) {
    const std::string name = RandomText(random, SCA_MaxFieldName);
    if (depth > 0 && (*random)() % 3 == 0) {
      Grow(object->AddConfigObj(name.c_str()), random, depth - 1);
    } else {
      object->AddField(name.c_str(), RandomText(random, SCA_MaxFieldValue).c_str(), 0);
    }
  }
}

/// @return Kind, name and content of the whole tree as text that no other tree has. An absent value
///         counts as an empty one.
inline std::string Describe(const SCA_Field& field) {
  const auto quote = [](const char* text) {
    const std::string bytes = text != nullptr ? text : "";
    return std::to_string(bytes.size()) + ":" + bytes;
  };
  std::string text = quote(field.GetName());
  const SCA_ConfigObj* object = SCA_ToConfigObj(&field);
  if (object == nullptr) return text + "=" + quote(field.GetValue());
  text += "{";
  for (const SCA_Field* member = object->GetFields().GetHead(); member != nullptr;
       member = member->GetNext()) {
    text += member->GetParent() == object ? "" : "(another parent)";
    text += Describe(*member) + ",";
  }
  return text + "}";
}

#endif  // SCA_TESTS_FOUNDATION_CONFIG_TREE_H
