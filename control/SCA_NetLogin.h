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

/// Both ends' random numbers of a connection.
struct SCA_LoginNonces {
  SCA_Digest client{};
  SCA_Digest server{};
};

/// The server's part, of which no step waits.
class SCA_ServerLogin {
 public:
  /// Writes the server's first frame.
  /// @param greeting  Told in it in mode 0, else with the answer to a right login.
  /// @return `ENOSYS` without random numbers, `ENOMEM`.
  SCA_Result Challenge(const SCA_NetGreeting& greeting, const SCA_NetFrames& frames,
                       std::vector<char>* output);
  /// Judges what a peer has answered and writes the server's proof, in mode 1. Frames are
  /// authenticated from then on.
  /// @return `SCA_ErrorLoginRefused`, `SCA_ErrorFrame`; the peer's reason when it refuses.
  SCA_Result Judge(const SCA_NetFrame& answer, const SCA_ControlKey& key,
                   const SCA_NetGreeting& greeting, SCA_NetFrames* frames,
                   std::vector<char>* output);

 private:
  SCA_LoginNonces nonces_;
};

/// The client's part, which waits for the server.
/// @param mayLackLogin  A server that asks for no login is believed, whether or not there is a key.
/// @param greeting      Receives what the server said.
SCA_Result SCA_Login(SCA_NetChannel* channel, const char* host, unsigned short port,
                     bool mayLackLogin, SCA_NetGreeting* greeting);

#endif  // SCA_CONTROL_SCA_NETLOGIN_H
