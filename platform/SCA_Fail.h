/// A former name of SCA_Result.h, which has all of it. Internal to the library.
#ifndef SCA_PLATFORM_SCA_FAIL_H
#define SCA_PLATFORM_SCA_FAIL_H

#include "platform/SCA_Result.h"

#endif  // SCA_PLATFORM_SCA_FAIL_H
