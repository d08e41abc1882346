// Arbitrary bytes for the reader of control frames, at both ends: as a server that has accepted its
// peer gets them, as it gets them before, and as a client gets them after its first request. The
// first byte chooses, and cuts the others into pieces.

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "control/SCA_NetLogin.h"
#include "control/SCA_NetTransport.h"
#include "tests/support/ScriptedSocket.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

void Serve(bool isAccepted) {
  const SCA_Owned<SCA_VirtualTcpSock> socket(SCA_CreateTcpSock(-1));
  SCA_NetChannel channel(socket.get(), SCA_NetSide::Server);
  unsigned long error = 0;
  if (!isAccepted) {
    const SCA_ControlKey key{{1}, SCA_ControlKeySize};
    Require(SCA_AcceptLogin(&channel, SCA_NetGreeting(), &key, &error) == 0 && error != 0);
    return;
  }
  channel.AllowLargeFrames();
  SCA_NetFrame frame;
  while (channel.Receive(1000, SCA_Infinite, &frame, &error) != 0) {
    SCA_NetMessage message;
    if (SCA_NetChannel::Decode(frame, &message) == 0) continue;
    SCA_NetChannel::CodeOf(frame);
  }
  Require(error != 0);
}

void Ask() {
  SCA_NetTransport transport(nullptr);
  unsigned long error = 0;
  if (transport.Connect("h", 1, 0, &error) == 0) return Require(error != 0);
  SCA_NetMessage message;
  Require(transport.SendMessage(0, &message, &error) == 1);
  for (int i = 0; i < 3; ++i) transport.WaitForMessage(1000, &message, &error);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string bytes(data + 1, data + size);
  SocketScript script;
  script.pieces = InPieces(bytes, 1 + data[0] / 3U * 7);
  const ScriptedSockets sockets(&script);
  SCA_SetControlKeyProvider(
      [](void*, const char*, unsigned short, SCA_ControlKey*, unsigned long* error) {
        *error = ENOENT;
        return 0;
      },
      nullptr);
  if (data[0] % 3 == 2) {
    Ask();
  } else {
    Serve(data[0] % 3 == 1);
  }
  return 0;
}
