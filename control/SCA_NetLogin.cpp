#include "control/SCA_NetLogin.h"

#include <cerrno>
#include <cstring>

#include "platform/SCA_Deadline.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Hex.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kMode[] = "LoginMode";
constexpr char kVersion[] = "Version";
constexpr char kHostName[] = "HostName";
constexpr char kStartTime[] = "StartTime";
constexpr char kConnectTime[] = "ConnectTime";
constexpr char kNonce[] = "Nonce";
constexpr char kProof[] = "Proof";

// Both ends' random numbers of this connection.
struct Nonces {
  SCA_Digest client{};
  SCA_Digest server{};
};

// The label keeps one end's proof from passing for the other's, or for the key of the session.
SCA_Digest Prove(const SCA_ControlKey& key, const char* label, const Nonces& nonces) {
  SCA_HmacSha256 proof(key.bytes, key.length);
  proof.Update(label, std::strlen(label));
  proof.Update(nonces.client.data(), nonces.client.size());
  proof.Update(nonces.server.data(), nonces.server.size());
  return proof.Finish();
}
SCA_Digest ClientProof(const SCA_ControlKey& key, const Nonces& nonces) {
  return Prove(key, "client", nonces);
}
SCA_Digest ServerProof(const SCA_ControlKey& key, const Nonces& nonces) {
  return Prove(key, "server", nonces);
}
SCA_Digest SessionKey(const SCA_ControlKey& key, const Nonces& nonces) {
  return Prove(key, "session", nonces);
}

bool AddDigest(SCA_NetMessage* message, const char* name, const SCA_Digest& digest) {
  char text[2 * SCA_DigestSize + 1];
  SCA_ToHex(digest.data(), digest.size(), text);
  return message->GetData()->AddField(name, text, 0) != 0;
}

bool GetDigest(const SCA_NetMessage& message, const char* name, SCA_Digest* digest) {
  char text[2 * SCA_DigestSize + 2];
  return message.GetData()->GetField(name, text, sizeof text) != 0 &&
         std::strlen(text) == 2 * SCA_DigestSize &&
         SCA_FromHex(text, 2 * SCA_DigestSize, digest->data()) != 0;
}

// A frame of the kind that comes next, or the refusal that came in its place.
int Await(SCA_NetChannel* channel, SCA_FrameKind kind, const SCA_Deadline& end,
          SCA_NetMessage* message, unsigned long* error) {
  const unsigned long left = end.MsLeft();
  if (left == 0) return SCA_Fail(ETIMEDOUT, error);
  SCA_NetFrame frame;
  if (channel->Receive(left, SCA_Infinite, &frame, error) == 0) {
    return 0;
  }
  if (frame.kind == SCA_FrameKind::Refused) return SCA_Fail(SCA_NetChannel::CodeOf(frame), error);
  if (frame.kind != kind || SCA_NetChannel::Decode(frame, message) == 0) {
    return SCA_Fail(SCA_ErrorFrame, error);
  }
  return 1;
}

bool AddGreeting(SCA_NetMessage* message, const SCA_NetGreeting& greeting) {
  SCA_ConfigObj* data = message->GetData();
  return data->AddField(kVersion, greeting.version, 0) != 0 &&
         data->AddField(kHostName, greeting.hostName, 0) != 0 &&
         data->AddField(kStartTime, greeting.startTime, 0) != 0 &&
         data->AddField(kConnectTime, greeting.connectTime, 0) != 0;
}

void GetGreeting(const SCA_NetMessage& message, SCA_NetGreeting* greeting) {
  const SCA_ConfigObj& data = *message.GetData();
  data.GetField(kVersion, greeting->version, sizeof greeting->version);
  data.GetField(kHostName, greeting->hostName, sizeof greeting->hostName);
  data.GetField(kStartTime, &greeting->startTime);
  data.GetField(kConnectTime, &greeting->connectTime);
}

// Who has not logged in yet learns nothing of the host.
int SendHello(SCA_NetChannel* channel, const SCA_NetGreeting& greeting, const Nonces& nonces,
              unsigned long* error) {
  SCA_NetMessage hello;
  const bool isMade = hello.GetData()->AddField(kMode, greeting.loginMode, 0) != 0 &&
                      (greeting.loginMode != SCA_LoginNone || AddGreeting(&hello, greeting)) &&
                      AddDigest(&hello, kNonce, nonces.server);
  if (!isMade) return SCA_Fail(ENOMEM, error);
  return channel->Send(SCA_FrameKind::Hello, 0, hello, SCA_LoginTimeoutMs, error);
}

// What the server proves in return.
int SendWelcome(SCA_NetChannel* channel, const SCA_NetGreeting& greeting, const SCA_Digest& proof,
                unsigned long* error) {
  SCA_NetMessage welcome;
  if (!AddGreeting(&welcome, greeting) || !AddDigest(&welcome, kProof, proof)) {
    return SCA_Fail(ENOMEM, error);
  }
  return channel->Send(SCA_FrameKind::Welcome, 0, welcome, SCA_LoginTimeoutMs, error);
}

// The client's answer to a challenge, and the server's proof in return.
int ExchangeProofs(SCA_NetChannel* channel, const SCA_ControlKey& key, const SCA_Deadline& end,
                   Nonces* nonces, SCA_NetGreeting* greeting, unsigned long* error) {
  if (SCA_RandomBytes(nonces->client.data(), nonces->client.size()) == 0) {
    return SCA_Fail(ENOSYS, error);
  }
  SCA_NetMessage login;
  if (!AddDigest(&login, kNonce, nonces->client) ||
      !AddDigest(&login, kProof, ClientProof(key, *nonces))) {
    return SCA_Fail(ENOMEM, error);
  }
  SCA_NetMessage welcome;
  SCA_Digest proof{};
  if (channel->Send(SCA_FrameKind::Login, 0, login, SCA_LoginTimeoutMs, error) == 0 ||
      Await(channel, SCA_FrameKind::Welcome, end, &welcome, error) == 0) {
    return 0;
  }
  if (!GetDigest(welcome, kProof, &proof) || !SCA_EqualDigests(proof, ServerProof(key, *nonces))) {
    return SCA_Fail(SCA_ErrorLoginRefused, error);
  }
  GetGreeting(welcome, greeting);
  channel->Authenticate(SessionKey(key, *nonces));
  return 1;
}

}  // namespace

int SCA_AcceptLogin(SCA_NetChannel* channel, const SCA_NetGreeting& greeting,
                    const SCA_ControlKey* key, unsigned long* error) {
  Nonces nonces;
  if (SCA_RandomBytes(nonces.server.data(), nonces.server.size()) == 0) {
    return SCA_Fail(ENOSYS, error);
  }
  if (SendHello(channel, greeting, nonces, error) == 0) return 0;
  if (key != nullptr) {
    SCA_NetMessage login;
    SCA_Digest proof{};
    if (Await(channel, SCA_FrameKind::Login, SCA_Deadline(SCA_LoginTimeoutMs), &login, error) == 0)
      return 0;
    if (!GetDigest(login, kNonce, &nonces.client) || !GetDigest(login, kProof, &proof) ||
        !SCA_EqualDigests(proof, ClientProof(*key, nonces))) {
      return SCA_Fail(SCA_ErrorLoginRefused, error);
    }
    if (SendWelcome(channel, greeting, ServerProof(*key, nonces), error) == 0) return 0;
    channel->Authenticate(SessionKey(*key, nonces));
  }
  channel->AllowLargeFrames();
  return 1;
}

int SCA_Login(SCA_NetChannel* channel, const char* host, unsigned short port, bool mayLackLogin,
              SCA_NetGreeting* greeting, unsigned long* error) {
  const SCA_Deadline end(SCA_LoginTimeoutMs);
  SCA_NetMessage hello;
  Nonces nonces;
  if (Await(channel, SCA_FrameKind::Hello, end, &hello, error) == 0) return 0;
  if (hello.GetData()->GetField(kMode, &greeting->loginMode) == 0 ||
      greeting->loginMode > SCA_LoginKey || !GetDigest(hello, kNonce, &nonces.server)) {
    return SCA_Fail(SCA_ErrorFrame, error);
  }
  GetGreeting(hello, greeting);
  // A client that has a key for a host would be talking to an impostor if it asked for no login: on
  // loopback too, where any account may take a port that is free.
  const bool asksForLogin = greeting->loginMode == SCA_LoginKey;
  if (asksForLogin || !mayLackLogin) {
    SCA_ControlKey key;
    unsigned long code = 0;
    const bool hasKey = SCA_GetControlKey(host, port, &key, &code) != 0;
    if (!hasKey && code != ENOENT) return SCA_Fail(code, error);
    if (hasKey != asksForLogin) {
      return SCA_Fail(hasKey ? SCA_ErrorLoginMissing : SCA_ErrorNoKey, error);
    }
    if (hasKey && ExchangeProofs(channel, key, end, &nonces, greeting, error) == 0) return 0;
  }
  channel->AllowLargeFrames();
  return 1;
}
