/// The seam by which tests and fuzz targets, which are linked with the library's objects, replace
/// sockets. Internal to the library.
#ifndef SCA_PLATFORM_SCA_TCPSOCKFACTORY_H
#define SCA_PLATFORM_SCA_TCPSOCKFACTORY_H

#include "platform/SCA_TcpSock.h"

/// Makes sockets, as `SCA_CreateTcpSock` does.
using SCA_TcpSockFactory = SCA_VirtualTcpSock* (*)(int handle);

/// Replaces what `SCA_CreateTcpSock` makes; null restores real sockets.
/// Threads: set before sockets are made.
void SCA_SetTcpSockFactory(SCA_TcpSockFactory factory);

#endif  // SCA_PLATFORM_SCA_TCPSOCKFACTORY_H
