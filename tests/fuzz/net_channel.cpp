// Arbitrary bytes for the reader of control frames, at both ends: as a server that has accepted its
// peer gets them, as it gets them before, and as a client gets them. The first byte chooses, and
// cuts the others into pieces.

#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "control/SCA_NetConnection.h"
#include "control/SCA_NetLogin.h"
#include "control/SCA_NetTransport.h"
#include "platform/SCA_Listener.h"
#include "tests/support/ScriptedSocket.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// A connection of a server, whose peer says what the pieces hold and reads nothing.
void Serve(const std::vector<std::string>& pieces, bool isAccepted) {
  class Gate final : public SCA_CommandGate {
   public:
    explicit Gate(bool hasKey) : hasKey_(hasKey) {}
    const SCA_ControlKey* Key() const override { return hasKey_ ? &key_ : nullptr; }
    SCA_NetGreeting Greeting(const SCA_ControlKey*) const override { return {}; }
    void NoteRefusal(const SCA_AcceptedPeer&, unsigned long error) override { Require(error != 0); }
    unsigned long NextAgentId() override { return 1; }
    SCA_Event* StopEvent() const override { return nullptr; }
    void Connected(SCA_NetServerAgent*) override { Require(!hasKey_ && connections_++ == 0); }
    void Disconnected(SCA_NetServerAgent*) override { Require(connections_-- == 1); }
    bool Execute(SCA_NetServerAgent*, SCA_NetMessage* request, SCA_NetMessage* reply) override {
      Require(connections_ == 1);
      *reply = *request;
      return true;
    }

   private:
    const bool hasKey_;
    const SCA_ControlKey key_{{1}, SCA_ControlKeySize};
    int connections_ = 0;
  };
  int fds[2];
  Require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, fds) == 0);
  SCA_PolledSock peer(fds[1]);
  Gate gate(!isAccepted);
  SCA_AcceptedPeer accepted;
  accepted.handle = fds[0];
  SCA_NetConnection::Memory shared;
  SCA_NetConnection connection(&gate, accepted, &shared);
  SCA_NetNext next = connection.Begin(0);
  auto piece = pieces.begin();
  while (next != SCA_NetNext::End) {
    if (next == SCA_NetNext::Call) {
      connection.Call();
      next = connection.AfterCall();
    } else if (next == SCA_NetNext::Output) {
      next = connection.OnOutput(true);
    } else if (piece != pieces.end()) {
      std::size_t sent = 0;
      const SCA_Result result = peer.Send(piece->data(), piece->size(), &sent);
      next = result.HasFailed() ? connection.OnLimit(ETIMEDOUT) : connection.OnInput();
      ++piece;
    } else {
      next = connection.IsOpen() ? connection.OnLimit(ETIMEDOUT) : connection.Stop();
    }
  }
  Require(!connection.IsOpen());
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
    Serve(script.pieces, data[0] % 3 == 1);
  }
  return 0;
}
