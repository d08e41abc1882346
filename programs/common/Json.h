/// JSON of texts that are bytes.
#ifndef SCA_PROGRAMS_COMMON_JSON_H
#define SCA_PROGRAMS_COMMON_JSON_H

#include <nlohmann/json.hpp>
#include <string>

using Json = nlohmann::ordered_json;

/// Sets a member to a text. One that is not UTF-8 stands there with replacement characters, and
/// under the key with "Base64" behind it as it is.
void SetText(Json* object, const std::string& key, const std::string& bytes);

/// @return The value on one line.
std::string ToLine(const Json& value);

#endif  // SCA_PROGRAMS_COMMON_JSON_H
