/// Reading what a service host tells. It comes from outside: fields may be missing, of another kind
/// or hold anything; what cannot be used reads as missing.
#ifndef SCA_PROGRAMS_TIKACTL_FIELDS_H
#define SCA_PROGRAMS_TIKACTL_FIELDS_H

#include <charconv>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "control/SCA_ServiceStatusNames.h"
#include "foundation/SCA_ConfigObj.h"

/// The fields of an object that outlives this.
class Fields {
 public:
  /// @param object  Null has no fields.
  explicit Fields(const SCA_ConfigObj* object) : object_(object) {}

  /// @return Fit for a terminal; empty when missing.
  std::string Text(const char* name) const;
  std::optional<unsigned long long> Number(const char* name) const;
  unsigned long long NumberOr(const char* name, unsigned long long otherwise) const {
    return Number(name).value_or(otherwise);
  }
  /// @return Null when missing or a plain field.
  const SCA_ConfigObj* Object(const char* name) const;

 private:
  const SCA_ConfigObj* object_;
};

/// @return A member's name or value, empty for none.
std::string NameOf(const SCA_Field& member);
std::string ValueOf(const SCA_Field& member);

/// @return The number that a text spells out; nothing for another spelling, such as 007, which
///         would be lost.
template <class Number>
std::optional<Number> ReadNumber(const std::string& text) {
  Number number = 0;
  const char* end = text.data() + text.size();
  const auto [last, failure] = std::from_chars(text.data(), end, number);
  const bool isWhole = failure == std::errc() && last == end && std::to_string(number) == text;
  return isWhole ? std::optional<Number>(number) : std::nullopt;
}

/// Calls `visit(member)` for each member, in order.
template <class Visit>
void ForEachMember(const SCA_ConfigObj* object, Visit visit) {
  if (object == nullptr) return;
  const SCA_Field* member = object->GetFields().GetHead();
  for (; member != nullptr; member = member->GetNext()) visit(*member);
}

/// @return The id of a server, by which its object is named; "?" when the name is none.
std::string ServerIdOf(const SCA_Field& member);

/// Calls `visit(id, fields)` for each object of a servers' status object.
template <class Visit>
void ForEachServer(const SCA_ConfigObj& servers, Visit visit) {
  ForEachMember(&servers, [&visit](const SCA_Field& member) {
    const SCA_ConfigObj* server = SCA_ToConfigObj(&member);
    if (server != nullptr) visit(ServerIdOf(member), Fields(server));
  });
}
/// @return Null when there is none.
const SCA_ConfigObj* FindServer(const SCA_ConfigObj& servers, unsigned long serverId);

/// @return The object's members under their names in snake_case ("Up Time" is "up_time"), numbers
///         as numbers, lines as a list; times also as local text ("start_time_local"). Nothing is
///         lost: a repeated name gets a number at its end.
nlohmann::ordered_json ToJson(const SCA_ConfigObj& object);

#endif  // SCA_PROGRAMS_TIKACTL_FIELDS_H
