/// JSON output of the programs: whatever the bytes, the output is valid, and nothing is lost.
#ifndef SCA_PROGRAMS_COMMON_JSON_H
#define SCA_PROGRAMS_COMMON_JSON_H

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

/// @return An empty object to set members of. A value that is null becomes an object with its first
///         member, but only by half when memory runs out, and its end is then that of the program.
inline nlohmann::ordered_json NewJsonObject() {
  return nlohmann::ordered_json::object();
}

/// Sets a member of an object. Bytes that are not UTF-8 become U+FFFD, and a second member,
/// `key` + "Base64", then holds the original.
void SetJsonText(nlohmann::ordered_json* object, const std::string& key, std::string_view text);

/// Takes a block of a text. @return False to end it.
using TextTake = std::function<bool(std::string_view block)>;
/// Hands a text out in blocks. @return False when one was not taken, or cannot be had.
using TextBlocks = std::function<bool(const TextTake& take)>;

/// Writes the member that `SetJsonText` sets, or both, as in `JsonText`, for a text of any
/// length: of the text never more than some blocks are in memory.
/// @param blocks  Asked twice for a text that is not UTF-8.
/// @return False when a block was not to be had, or a piece was not written.
bool WriteJsonText(const std::string& key, const TextBlocks& blocks, const TextTake& write);

/// @return The value on one line, or indented by that many blanks; no character of it moves a
///         terminal's cursor.
std::string JsonText(const nlohmann::ordered_json& value, int indent = -1);

#endif  // SCA_PROGRAMS_COMMON_JSON_H
