/// Reading what may come slowly.
#ifndef SCA_PROGRAMS_COMMON_INPUT_H
#define SCA_PROGRAMS_COMMON_INPUT_H

#include <cstddef>

#include "platform/SCA_Sync.h"

/// Reads from a pipe, a terminal or a file as soon as there is something. A named pipe that has had
/// no writer yet is not at its end.
/// @return The bytes read; 0 at the end, or when the cancel event was set; -1 with errno.
long ReadUnlessCancelled(int fd, char* buffer, std::size_t size, SCA_Event* cancel);

#endif  // SCA_PROGRAMS_COMMON_INPUT_H
