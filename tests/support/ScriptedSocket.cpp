#include "tests/support/ScriptedSocket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/SCA_Error.h"
#include "platform/SCA_TcpSockFactory.h"

namespace {

SocketScript* currentScript = nullptr;

int Fail(unsigned long code, unsigned long* error) {
  *error = code;
  return 0;
}

class ScriptedSocket final : public SCA_VirtualTcpSock {
 public:
  explicit ScriptedSocket(SocketScript* script) : script_(*script) { SetValid(1); }

  int Connect(const char* /*host*/, unsigned short /*port*/, unsigned long /*timeoutMs*/,
              unsigned long* error) override {
    ++script_.connects;
    return script_.failConnect ? Fail(ECONNREFUSED, error) : 1;
  }

  int WaitForData(unsigned long timeoutMs, unsigned long* error) override {
    script_.waitTimeouts.push_back(timeoutMs);
    const int number = waits_++;
    if (script_.onWait) script_.onWait(number);
    const bool looks = cancel_ != nullptr && !script_.ignoresCancel;
    if (looks && cancel_->Wait(0) != 0) return Fail(SCA_ErrorCancelled, error);
    if (number == script_.failWait) return Fail(script_.failCode, error);
    const bool isThere = taken_ > 0 || piece_ < script_.arrived;
    return timeoutMs == 0 && !isThere ? Fail(ETIMEDOUT, error) : 1;
  }

  int Receive(char* buffer, unsigned long length, unsigned long* received,
              unsigned long* error) override {
    script_.receiveSizes.push_back(length);
    const int number = receives_++;
    if (script_.onReceive) script_.onReceive(number);
    if (number == script_.failReceive) return Fail(script_.failCode, error);
    SkipTaken();
    if (piece_ == script_.pieces.size()) return Fail(ECONNRESET, error);
    const std::string& piece = script_.pieces[piece_];
    const std::size_t count = std::min<std::size_t>(length, piece.size() - taken_);
    std::memcpy(buffer, piece.data() + taken_, count);
    taken_ += count;
    SkipTaken();
    *received = count;
    return 1;
  }

  int Send(const char* buffer, unsigned long length, unsigned long* sent,
           unsigned long* error) override {
    script_.sendSizes.push_back(length);
    const int number = sends_++;
    if (script_.onSend) script_.onSend(number);
    const bool fails = number == script_.failSend;
    *sent = fails ? script_.sendTakes : length;
    script_.sent.append(buffer, *sent);
    return fails ? Fail(script_.failCode, error) : 1;
  }

  int SetOption(int option, int value) override {
    script_.options.emplace_back(option, value);
    return 1;
  }
  void SetCancelEvent(SCA_Event* cancel) override { cancel_ = cancel; }
  void SetIdleTimeout(unsigned long /*timeoutMs*/) override {}
  void Shutdown() override {}

 private:
  void SkipTaken() {
    while (piece_ < script_.pieces.size() && taken_ == script_.pieces[piece_].size()) {
      ++piece_;
      taken_ = 0;
    }
  }

  SocketScript& script_;
  SCA_Event* cancel_ = nullptr;
  std::size_t piece_ = 0;
  std::size_t taken_ = 0;
  int waits_ = 0;
  int receives_ = 0;
  int sends_ = 0;
};

}  // namespace

ScriptedSockets::ScriptedSockets(SocketScript* script) {
  currentScript = script;
  SCA_SetTcpSockFactory(
      [](int) -> SCA_VirtualTcpSock* { return new ScriptedSocket(currentScript); });
}

ScriptedSockets::~ScriptedSockets() {
  SCA_SetTcpSockFactory(nullptr);
}

std::vector<std::string> InPieces(const std::string& text, std::size_t size) {
  std::vector<std::string> pieces;
  for (std::size_t begin = 0; begin < text.size(); begin += size) {
    pieces.push_back(text.substr(begin, size));
  }
  return pieces;
}

std::vector<std::string> CutAt(const std::string& text, const std::vector<std::size_t>& positions) {
  std::vector<std::string> pieces;
  std::size_t begin = 0;
  for (const std::size_t position : positions) {
    pieces.push_back(text.substr(begin, position - begin));
    begin = position;
  }
  pieces.push_back(text.substr(begin));
  return pieces;
}
