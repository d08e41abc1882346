/// The first frames of a control connection: the server's greeting and, where it asks for one, a
/// challenge-response login in which both ends prove that they know the shared key. Internal to the
/// library.
#ifndef SCA_CONTROL_SCA_NETLOGIN_H
#define SCA_CONTROL_SCA_NETLOGIN_H

#include "control/SCA_ControlKey.h"
#include "control/SCA_NetChannel.h"

/// Login modes.
constexpr unsigned long SCA_LoginNone = 0;  ///< no login; only on loopback or a Unix socket
constexpr unsigned long SCA_LoginKey = 1;   ///< challenge-response login with the shared key

/// Milliseconds that a login may take, greeting included.
constexpr unsigned long SCA_LoginTimeoutMs = 5000;

/// What a server says of itself, to clients that have passed its login where it asks for one.
struct SCA_NetGreeting {
  unsigned long loginMode = SCA_LoginNone;
  char version[64] = "";
  char hostName[260] = "";
  unsigned long long startTime = 0;    ///< of the server, absolute time
  unsigned long long connectTime = 0;  ///< of this connection, absolute time
};

/// The server's part.
/// @param greeting  Said in the first frame in mode 0, else with the answer to a right login.
/// @param key       Of this host; null in mode 0.
/// @return 1 when the peer may send requests.
int SCA_AcceptLogin(SCA_NetChannel* channel, const SCA_NetGreeting& greeting,
                    const SCA_ControlKey* key, unsigned long* error);

/// The client's part.
/// @param mayLackLogin  A server that asks for no login is believed, whether or not there is a key.
/// @param greeting      Receives what the server said.
int SCA_Login(SCA_NetChannel* channel, const char* host, unsigned short port, bool mayLackLogin,
              SCA_NetGreeting* greeting, unsigned long* error);

#endif  // SCA_CONTROL_SCA_NETLOGIN_H
