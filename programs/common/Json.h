/// JSON output of the programs: whatever the bytes, the output is valid, and nothing is lost.
#ifndef SCA_PROGRAMS_COMMON_JSON_H
#define SCA_PROGRAMS_COMMON_JSON_H

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

/// Sets a member of an object. Bytes that are not UTF-8 become U+FFFD, and a second member,
/// `key` + "Base64", then holds the original.
void SetJsonText(nlohmann::ordered_json* object, const std::string& key, std::string_view text);

/// @return The value on one line, or indented by so many blanks; no character of it moves a
///         terminal's cursor.
std::string JsonText(const nlohmann::ordered_json& value, int indent = -1);

#endif  // SCA_PROGRAMS_COMMON_JSON_H
