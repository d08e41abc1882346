#include "platform/SCA_Object.h"

// Out of line, so that objects are deleted by the library that allocated them.
SCA_Object::~SCA_Object() = default;

void SCA_Object::Destroy() {
  delete this;
}
