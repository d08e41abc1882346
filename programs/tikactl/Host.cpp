#include "programs/tikactl/Host.h"

#include <cerrno>

#include "control/SCA_ControlKey.h"
#include "host/SCA_TikaConfig.h"
#include "platform/SCA_Error.h"
#include "programs/common/Advice.h"
#include "programs/common/Escape.h"
#include "programs/common/LocalHost.h"
#include "programs/tikactl/Fields.h"

namespace {

std::string keyFile;  // set before any thread is started

// Why this thread's last connect could not read the key: the code of a connect does not say that
// it was the key.
thread_local unsigned long keyError = 0;

std::string KeyFile() {
  if (!keyFile.empty()) return keyFile;
  char path[4096];
  return SCA_GetControlKeyFile(path, sizeof path) != 0 ? path : "";
}

int ReadKey(void* /*context*/, const char* /*host*/, unsigned short /*port*/, SCA_ControlKey* key,
            unsigned long* error) {
  const std::string file = KeyFile();
  *error = ENOENT;
  if (!file.empty() && SCA_LoadControlKey(file.c_str(), key, error) != 0) return 1;
  if (*error != ENOENT) keyError = *error;
  return 0;
}

std::string Ids(const SCA_ConfigObj& servers) {
  std::string ids;
  ForEachServer(servers, [&ids](const std::string& id, const Fields& /*server*/) {
    ids += (ids.empty() ? "" : ", ") + id;
  });
  return ids;
}

}  // namespace

std::string UseKeyFile(const std::string& file) {
  keyFile = file;
  SCA_SetControlKeyProvider(&ReadKey, nullptr);
  SCA_ControlKey key;
  unsigned long code = 0;
  if (file.empty() || SCA_LoadControlKey(file.c_str(), &key, &code) != 0) return {};
  return "--key " + Printable(file) + ": " + SCA_ErrorText(code);
}

Host::Host(const HostPort& address, unsigned long timeoutMs)
    : address_(address), name_(Printable(FormatServiceAddress(address))), timeoutMs_(timeoutMs) {
  client_.SetReplyTimeout(timeoutMs);
}

std::string Host::Hint(const std::string& command) const {
  const bool isDefault = address_.host == kLocalHost;
  return "'tikactl " + (isDefault ? "" : "-H " + name_ + " ") + command + "'";
}

bool Host::IsThisMachine() const {
  return IsLocalHost(address_.host) || address_.host == "localhost" || address_.host == "::1" ||
         address_.host.compare(0, 4, "127.") == 0;
}

void Host::ConnectLocally() {
  const std::string complaint = FindLocalHost(
      [this](const std::string& path) {
        unsigned long code = 0;
        return client_.Connect(path.c_str(), 0, timeoutMs_, &code) != 0 ? 0 : code;
      },
      &socket_);
  if (!complaint.empty())
    throw Failure{kNoConnection, SCA_ErrorNoLocalHost, complaint + " with -H"};
}

void Host::Connect() {
  unsigned long code = 0;
  keyError = 0;
  if (address_.host == kLocalHost && socket_.empty()) return ConnectLocally();
  const std::string& host = socket_.empty() ? address_.host : socket_;
  if (client_.Connect(host.c_str(), address_.port, timeoutMs_, &code) == 0) {
    throw ExplainConnect(code);
  }
}

Failure Host::ExplainConnect(unsigned long code) const {
  const std::string text = SCA_ErrorText(code);
  if (keyError != 0)
    return {kLoginRefused, code, "control key " + Printable(KeyFile()) + ": " + text};
  switch (code) {
    case SCA_ErrorNoKey:
      return {kLoginRefused, code,
              text + "; copy the host's control.key to " + Printable(KeyFile()) +
                  ", readable only by you, or name it with --key"};
    case SCA_ErrorLoginRefused:
      return {kLoginRefused, code,
              text + "; compare " + Printable(KeyFile()) + " with the host's control.key"};
    case SCA_ErrorLoginMissing:
      return {kLoginRefused, code, ::Explain(code, ErrorOf::ServiceHost)};
    default:
      return {kNoConnection, code, "cannot connect: " + ::Explain(code, ErrorOf::ServiceHost)};
  }
}

Failure Host::Explain(const std::string& what) {
  const unsigned long code = client_.GetLastStatusCode();
  if (code == 0) {
    return {kFailed, 0,
            "the service host refused to " + what + "; " + Hint("debug-log") + " may tell why"};
  }
  if (code == EINVAL) return {kFailed, code, "cannot ask to " + what + ": the text cannot be sent"};
  if (code == ETIMEDOUT) {
    return {kNoConnection, code,
            "no answer within " + std::to_string(timeoutMs_ / 1000) + " s when asked to " + what +
                "; the host may still do it"};
  }
  return {kNoConnection, code,
          "the connection broke when asked to " + what + ": " + SCA_ErrorText(code)};
}

Failure Host::ExplainServer(unsigned long serverId, const std::string& what) {
  Failure failure = Explain(what);
  if (failure.code != 0) return failure;
  try {
    const ConfigObject servers = GetServiceStatus();
    if (FindServer(*servers, serverId) != nullptr) return failure;
    const std::string ids = Ids(*servers);
    failure.text = "there is no server " + std::to_string(serverId) +
                   (ids.empty() ? "; there are none" : "; there are: " + ids);
  } catch (const Failure&) {
    // The first refusal is what counts.
  }
  return failure;
}

void Host::GetStatus(ConfigObject* service, ConfigObject* servers) {
  SCA_ConfigObj* objects[2] = {};
  Ask("report its status", &Service::GetServiceStatusEx, &objects[0], &objects[1]);
  service->reset(objects[0]);
  servers->reset(objects[1]);
}

ConfigObject Host::GetServiceStatus() {
  unsigned long numbers[3] = {};
  unsigned long long figures[2] = {};
  return Get("report its servers' status", &Service::GetServiceStatus, &numbers[0], &numbers[1],
             &numbers[2], &figures[0], &figures[1]);
}

ConfigObject Host::GetServerStatus(unsigned long serverId) {
  return GetOfServer("report the status of server " + std::to_string(serverId),
                     &Service::GetServerStatusEx, serverId);
}
