/// Makes members in one piece of memory with their texts. Internal to the library.
#ifndef SCA_FOUNDATION_SCA_NEWFIELD_H
#define SCA_FOUNDATION_SCA_NEWFIELD_H

#include <string_view>

#include "foundation/SCA_ConfigObj.h"

/// Members for an object, with it as their parent and linked nowhere. Texts must fit the limits and
/// hold neither 0x00 nor 0x01.
/// @return Null without memory.
class SCA_NewField {
 public:
  static SCA_Field* Plain(SCA_ConfigObj* parent, std::string_view name, std::string_view value);
  /// @param texts  Both texts with one byte between them, any.
  static SCA_Field* Plain(SCA_ConfigObj* parent, std::string_view texts, std::size_t nameLength);
  /// @param name,value  Receive where the caller writes that many bytes each; zeros follow them.
  static SCA_Field* Plain(SCA_ConfigObj* parent, std::size_t nameLength, std::size_t valueLength,
                          char** name, char** value);
  static SCA_ConfigObj* Object(SCA_ConfigObj* parent, std::string_view name);
  /// Gives an object that is there another name. @return 0 without memory.
  static int Rename(SCA_ConfigObj* object, std::string_view name);

 private:
  // A member with room for its texts after it.
  template <class Member, class... Arguments>
  static Member* Place(std::size_t room, Arguments... arguments);
};

/// @return Whether neither 0x00 nor 0x01 is among the bytes, which are at most `limit`.
bool SCA_IsStorable(const char* data, std::size_t length, std::size_t limit);

/// @return The first byte that is 0x00 or 0x01, or the end.
const char* SCA_FindFieldMark(const char* at, const char* end);

#endif  // SCA_FOUNDATION_SCA_NEWFIELD_H
