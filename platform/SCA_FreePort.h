/// A free port for a server of this machine's own.
/// Threads: any thread may ask.
#ifndef SCA_PLATFORM_SCA_FREEPORT_H
#define SCA_PLATFORM_SCA_FREEPORT_H

#include "platform/SCA_Object.h"

/// Chooses a port of 127.0.0.1 that nothing uses now, at random and below the range from which the
/// system takes the ports of outgoing connections: one of those must not get in the way while the
/// server starts. Nothing reserves the port.
/// @return 20000 to 32000, or 0 when none was found.
SCA_API unsigned short SCA_FindFreePort();

/// @return 1 when a server could listen on the port now: no other one does, on any IPv4 address of
///         this machine. Connections of an earlier one that are still ending do not matter.
SCA_API int SCA_IsPortFree(unsigned short port);

#endif  // SCA_PLATFORM_SCA_FREEPORT_H
