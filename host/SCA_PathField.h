/// What the configuration files of a service host are checked for: their type, and fields that hold
/// paths. A path that does not fit is refused with a report, since a cut path is another path.
/// Internal to the library.
#ifndef SCA_HOST_SCA_PATHFIELD_H
#define SCA_HOST_SCA_PATHFIELD_H

#include "foundation/SCA_ConfigObj.h"
#include "platform/SCA_Text.h"

/// Who reports: the implementation unit, and the operation that texts begin with.
struct SCA_Reporter {
  const char* source;
  const char* operation;
};

/// Stores a value. @return 1, or 0 with the field as it was.
int SCA_SetPathField(char* field, unsigned long size, const char* value,
                     const SCA_Reporter& reporter);

/// Stores the value of a plain member. @return 1, also without such a member; 0 as above.
int SCA_ReadPathField(const SCA_ConfigObj& object, const char* name, char* field,
                      unsigned long size, const SCA_Reporter& reporter);

/// @return 1 when the object is there and of that file type; else 0, after a report.
int SCA_CheckFileType(const SCA_ConfigObj* object, unsigned long expected,
                      const SCA_Reporter& reporter);

#endif  // SCA_HOST_SCA_PATHFIELD_H
