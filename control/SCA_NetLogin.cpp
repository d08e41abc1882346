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

// The label keeps one end's proof from passing for the other's, or for the key of the session.
SCA_Digest Prove(const SCA_ControlKey& key, const char* label, const SCA_LoginNonces& nonces) {
  SCA_HmacSha256 proof(key.bytes, key.length);
  proof.Update(label, std::strlen(label));
  proof.Update(nonces.client.data(), nonces.client.size());
  proof.Update(nonces.server.data(), nonces.server.size());
  return proof.Finish();
}
SCA_Digest ClientProof(const SCA_ControlKey& key, const SCA_LoginNonces& nonces) {
  return Prove(key, "client", nonces);
}
SCA_Digest ServerProof(const SCA_ControlKey& key, const SCA_LoginNonces& nonces) {
  return Prove(key, "server", nonces);
}
SCA_Digest SessionKey(const SCA_ControlKey& key, const SCA_LoginNonces& nonces) {
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

// The message of the kind that comes next, or the refusal that came in its place.
SCA_Result Expect(SCA_FrameKind kind, const SCA_NetFrame& frame, SCA_NetMessage* message) {
  if (frame.kind == SCA_FrameKind::Refused) return SCA_Result(SCA_NetFrames::CodeOf(frame));
  const bool isExpected = frame.kind == kind && SCA_NetFrames::Decode(frame, message);
  return isExpected ? SCA_Done : SCA_Result(SCA_ErrorFrame);
}

SCA_Result Await(SCA_NetChannel* channel, SCA_FrameKind kind, const SCA_Deadline& end,
                 SCA_NetMessage* message) {
  const unsigned long left = end.MsLeft();
  if (left == 0) return SCA_Result(ETIMEDOUT);
  SCA_NetFrame frame;
  if (const SCA_Result received = channel->Receive(left, &frame); received.HasFailed()) {
    return received;
  }
  return Expect(kind, frame, message);
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

// The client's answer to a challenge, and the server's proof in return.
SCA_Result ExchangeProofs(SCA_NetChannel* channel, const SCA_ControlKey& key,
                          const SCA_Deadline& end, SCA_LoginNonces* nonces,
                          SCA_NetGreeting* greeting) {
  if (SCA_RandomBytes(nonces->client.data(), nonces->client.size()) == 0) {
    return SCA_Result(ENOSYS);
  }
  SCA_NetMessage login;
  if (!AddDigest(&login, kNonce, nonces->client) ||
      !AddDigest(&login, kProof, ClientProof(key, *nonces))) {
    return SCA_Result(ENOMEM);
  }
  if (const SCA_Result sent = channel->Send(SCA_FrameKind::Login, 0, login, SCA_LoginTimeoutMs);
      sent.HasFailed()) {
    return sent;
  }
  SCA_NetMessage welcome;
  if (const SCA_Result came = Await(channel, SCA_FrameKind::Welcome, end, &welcome);
      came.HasFailed()) {
    return came;
  }
  SCA_Digest proof{};
  if (!GetDigest(welcome, kProof, &proof) || !SCA_EqualDigests(proof, ServerProof(key, *nonces))) {
    return SCA_Result(SCA_ErrorLoginRefused);
  }
  GetGreeting(welcome, greeting);
  channel->Frames()->Authenticate(SessionKey(key, *nonces));
  return SCA_Done;
}

}  // namespace

// Who has not logged in yet learns nothing of the host.
SCA_Result SCA_ServerLogin::Challenge(const SCA_NetGreeting& greeting, const SCA_NetFrames& frames,
                                      std::vector<char>* output) {
  if (SCA_RandomBytes(nonces_.server.data(), nonces_.server.size()) == 0) {
    return SCA_Result(ENOSYS);
  }
  SCA_NetMessage hello;
  const bool isMade = hello.GetData()->AddField(kMode, greeting.loginMode, 0) != 0 &&
                      (greeting.loginMode != SCA_LoginNone || AddGreeting(&hello, greeting)) &&
                      AddDigest(&hello, kNonce, nonces_.server);
  if (!isMade) return SCA_Result(ENOMEM);
  return frames.Write(SCA_FrameKind::Hello, 0, hello, output);
}

SCA_Result SCA_ServerLogin::Judge(const SCA_NetFrame& answer, const SCA_ControlKey& key,
                                  const SCA_NetGreeting& greeting, SCA_NetFrames* frames,
                                  std::vector<char>* output) {
  SCA_NetMessage login;
  if (const SCA_Result read = Expect(SCA_FrameKind::Login, answer, &login); read.HasFailed()) {
    return read;
  }
  SCA_Digest proof{};
  if (!GetDigest(login, kNonce, &nonces_.client) || !GetDigest(login, kProof, &proof) ||
      !SCA_EqualDigests(proof, ClientProof(key, nonces_))) {
    return SCA_Result(SCA_ErrorLoginRefused);
  }
  SCA_NetMessage welcome;
  if (!AddGreeting(&welcome, greeting) || !AddDigest(&welcome, kProof, ServerProof(key, nonces_))) {
    return SCA_Result(ENOMEM);
  }
  if (const SCA_Result written = frames->Write(SCA_FrameKind::Welcome, 0, welcome, output);
      written.HasFailed()) {
    return written;
  }
  frames->Authenticate(SessionKey(key, nonces_));
  return SCA_Done;
}

SCA_Result SCA_Login(SCA_NetChannel* channel, const char* host, unsigned short port,
                     bool mayLackLogin, SCA_NetGreeting* greeting) {
  const SCA_Deadline end(SCA_LoginTimeoutMs);
  SCA_NetMessage hello;
  SCA_LoginNonces nonces;
  if (const SCA_Result came = Await(channel, SCA_FrameKind::Hello, end, &hello); came.HasFailed()) {
    return came;
  }
  if (hello.GetData()->GetField(kMode, &greeting->loginMode) == 0 ||
      greeting->loginMode > SCA_LoginKey || !GetDigest(hello, kNonce, &nonces.server)) {
    return SCA_Result(SCA_ErrorFrame);
  }
  GetGreeting(hello, greeting);
  // A client that has a key for a host would be talking to an impostor if it asked for no login: on
  // loopback too, where any account may take a port that is free.
  const bool asksForLogin = greeting->loginMode == SCA_LoginKey;
  if (asksForLogin || !mayLackLogin) {
    SCA_ControlKey key;
    unsigned long code = 0;
    const bool hasKey = SCA_GetControlKey(host, port, &key, &code) != 0;
    if (!hasKey && code != ENOENT) return SCA_Result(code);
    if (hasKey != asksForLogin) {
      return SCA_Result(hasKey ? SCA_ErrorLoginMissing : SCA_ErrorNoKey);
    }
    if (hasKey) {
      const SCA_Result passed = ExchangeProofs(channel, key, end, &nonces, greeting);
      if (passed.HasFailed()) return passed;
    }
  }
  channel->Frames()->AllowLargeFrames();
  channel->Drop();
  return SCA_Done;
}
