#include "programs/tikactl/Fields.h"

#include <map>

#include "programs/common/Escape.h"
#include "programs/common/Json.h"
#include "programs/tikactl/Table.h"

namespace {

using Json = nlohmann::ordered_json;

// A field has the same type in whatever object it is; texts may look like numbers.
std::optional<SCA_FieldType> TypeOf(const std::string& name) {
  static const std::map<std::string, SCA_FieldType> types = [] {
    std::map<std::string, SCA_FieldType> all;
    for (const auto& row : SCA_ServiceFieldRows) all.emplace(row.name, row.type);
    for (const auto& row : SCA_ServerFieldRows) all.emplace(row.name, row.type);
    for (const auto& row : SCA_DeathFieldRows) all.emplace(row.name, row.type);
    return all;
  }();
  const auto found = types.find(name);
  return found != types.end() ? std::optional(found->second) : std::nullopt;
}

bool IsText(std::optional<SCA_FieldType> type) {
  return type == SCA_FieldType::Text || type == SCA_FieldType::Path;
}

std::string SnakeCase(const std::string& name) {
  std::string key = Escape(name);
  for (char& c : key) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c == ' ') c = '_';
  }
  return key;
}

// Gives each member of an object a key of its own.
class Keys {
 public:
  std::string Next(const Json& object, const std::string& name) {
    const std::string wanted = SnakeCase(name);
    unsigned long& number = numbers_[wanted];
    std::string key;
    do {
      key = ++number == 1 ? wanted : wanted + "_" + std::to_string(number);
    } while (object.contains(key));
    return key;
  }

 private:
  std::map<std::string, unsigned long> numbers_;
};

// A list's members are named by their places.
bool IsList(const SCA_ConfigObj& object) {
  unsigned long place = 0;
  bool isList = true;
  ForEachMember(&object, [&](const SCA_Field& member) {
    isList = isList && NameOf(member) == std::to_string(place++);
  });
  return isList;
}

void SetValue(Json* object, const std::string& key, const SCA_Field& member, bool isText) {
  const std::string value = ValueOf(member);
  if (member.GetValue() == nullptr) {
    (*object)[key] = nullptr;
  } else if (const auto number = ReadNumber<unsigned long long>(value); number && !isText) {
    (*object)[key] = *number;
  } else if (const auto negative = ReadNumber<long long>(value); negative && !isText) {
    (*object)[key] = *negative;
  } else {
    SetJsonText(object, key, value);
  }
}

// Counts from 1601 are no use to most readers.
void SetReadableTime(Json* object, const std::string& key) {
  const Json& value = object->at(key);
  if (!value.is_number_unsigned() || object->contains(key + "_local")) return;
  const std::string text = When(value.get<unsigned long long>());
  if (text != "-") (*object)[key + "_local"] = text;
}

// Unless there is more than the members, such as bytes that are no text.
Json ToList(Json members, const SCA_ConfigObj& object) {
  if (members.size() != object.GetFieldCount()) return members;
  Json list = Json::array();
  for (auto& item : members) list.push_back(std::move(item));
  return list;
}

// NOLINTNEXTLINE(misc-no-recursion): what comes in a message has a limited depth
Json Convert(const SCA_ConfigObj& object, bool areTexts) {
  Json json = Json::object();
  Keys keys;
  const SCA_Field* member = object.GetFields().GetHead();
  for (; member != nullptr; member = member->GetNext()) {
    const std::string name = NameOf(*member);
    const std::string key = keys.Next(json, name);
    const SCA_ConfigObj* child = SCA_ToConfigObj(member);
    if (child == nullptr) {
      const auto type = TypeOf(name);
      SetValue(&json, key, *member, areTexts || IsText(type));
      if (type == SCA_FieldType::Time) SetReadableTime(&json, key);
      continue;
    }
    const bool areLines = name == SCA_DeathFields::Lines;
    Json members = Convert(*child, areLines);
    json[key] =
        areLines && IsList(*child) ? ToList(std::move(members), *child) : std::move(members);
  }
  return json;
}

}  // namespace

std::string NameOf(const SCA_Field& member) {
  return member.GetName() != nullptr ? member.GetName() : "";
}

std::string ValueOf(const SCA_Field& member) {
  return member.GetValue() != nullptr ? member.GetValue() : "";
}

std::string Fields::Text(const char* name) const {
  SCA_Field* member = nullptr;
  if (object_ == nullptr || object_->GetFieldByName(name, &member) == 0) return {};
  return Printable(ValueOf(*member));
}

std::optional<unsigned long long> Fields::Number(const char* name) const {
  unsigned long long number = 0;
  if (object_ == nullptr || object_->GetField(name, &number) == 0) return std::nullopt;
  return number;
}

const SCA_ConfigObj* Fields::Object(const char* name) const {
  return object_ != nullptr ? object_->GetConfigObj(name) : nullptr;
}

std::string ServerIdOf(const SCA_Field& member) {
  const std::string name = NameOf(member);
  // It becomes part of command lines that are shown to be typed.
  const bool isId = name.size() <= 10 && !name.empty() &&
                    name.find_first_not_of("0123456789") == std::string::npos;
  return isId ? name : "?";
}

const SCA_ConfigObj* FindServer(const SCA_ConfigObj& servers, unsigned long serverId) {
  SCA_Field* member = nullptr;
  return servers.GetFieldById(serverId, &member) != 0 ? SCA_ToConfigObj(member) : nullptr;
}

nlohmann::ordered_json ToJson(const SCA_ConfigObj& object) {
  return Convert(object, false);
}
