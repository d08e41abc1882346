#include "control/SCA_TikaServiceClient.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "platform/SCA_Text.h"

namespace {

// What becomes of an operation's parameter, by its type: values go into the request, pointers are
// filled from the reply, objects after everything else.
template <class T>
bool Ask(SCA_ConfigObj* request, const char* name, T value) {
  return request->AddField(name, value, 0) != 0;
}
template <class T>
bool Ask(SCA_ConfigObj* /*request*/, const char* /*name*/, T* /*output*/) {
  return true;
}
bool Ask(SCA_ConfigObj* request, const char* name, const char* text) {
  return text != nullptr && request->AddField(name, text, 0) != 0;
}

template <class T>
bool Take(const SCA_ConfigObj& /*reply*/, const char* /*name*/, T /*input*/) {
  return true;
}
template <class T>
bool Take(const SCA_ConfigObj& reply, const char* name, T* output) {
  return reply.GetField(name, output) != 0;
}
bool Take(const SCA_ConfigObj& /*reply*/, const char* /*name*/, const char* /*input*/) {
  return true;
}
bool Take(const SCA_ConfigObj& reply, const char* name, char* text) {
  return reply.GetField(name, text, SCA_ServiceTextSize) != 0;
}
bool Take(const SCA_ConfigObj& reply, const char* name, SCA_ConfigObj** /*object*/) {
  return reply.GetConfigObj(name) != nullptr;
}

template <class T>
void HandOver(SCA_ConfigObj* /*reply*/, const char* /*name*/, T /*other*/) {}
void HandOver(SCA_ConfigObj* reply, const char* name, SCA_ConfigObj** object) {
  *object = reply->GetConfigObj(name);
  reply->RemoveField(name);
}

}  // namespace

SCA_TikaServiceClient::SCA_TikaServiceClient() : transport_(nullptr) {
  SetValid(1);
}

SCA_TikaServiceClient::~SCA_TikaServiceClient() = default;

int SCA_TikaServiceClient::Connect(const char* host, unsigned short port, unsigned long timeoutMs,
                                   unsigned long* error) {
  if (transport_.Connect(host, port, timeoutMs, error) == 0) return 0;
  port_ = port;
  SCA_CopyText(name_, host, SCA_TextFit::Cut);
  std::snprintf(fullName_, sizeof fullName_, "%s:%u", host, static_cast<unsigned>(port));
  return 1;
}

void SCA_TikaServiceClient::SetReplyTimeout(unsigned long timeoutMs) {
  replyTimeout_ = static_cast<std::uint32_t>(std::min(timeoutMs, SCA_MaxReplyTimeoutMs));
}

// @return What makes the call, with the operation's arguments.
template <class... Args>
auto SCA_TikaServiceClient::Call(const SCA_ServiceCommand<Args...>& command) {
  return [this, &command](Args... arguments) {
    request_.Init(command.name);
    reply_.Init("ERR");
    // Unused for a command without fields.
    [[maybe_unused]] auto field = command.fields.begin();
    lastStatusCode_ = 0;
    if (!(Ask(request_.GetData(), *field++, arguments) && ...)) {
      lastStatusCode_ = EINVAL;
      return 0;
    }
    unsigned long code = 0;
    if (transport_.SendMessage(0, &request_, &code) == 0 ||
        transport_.WaitForMessage(replyTimeout_, &reply_, &code) == 0) {
      SetLastStatusCode(code);
      return 0;
    }
    if (std::strcmp(reply_.GetCommandName(), "ERR") == 0) return 0;
    field = command.fields.begin();
    if (!(Take(*reply_.GetData(), *field++, arguments) && ...)) return 0;
    field = command.fields.begin();
    (HandOver(reply_.GetData(), *field++, arguments), ...);
    return 1;
  };
}

// NOLINTBEGIN(bugprone-macro-parentheses): names and lists in brackets of their own
#define SCA_DEFINE_OPERATION(name, parameters, arguments, fields) \
  int SCA_TikaServiceClient::name parameters {                    \
    return Call(SCA_Commands::name) arguments;                    \
  }
// NOLINTEND(bugprone-macro-parentheses)
SCA_SERVICE_COMMANDS(SCA_DEFINE_OPERATION)
