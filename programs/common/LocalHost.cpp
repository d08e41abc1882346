#include "programs/common/LocalHost.h"

#include <cerrno>
#include <vector>

#include "foundation/SCA_ConfigFile.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Path.h"
#include "programs/common/Escape.h"

namespace {

// Where the service of the packages has its socket: its operators' group can only enter the first.
constexpr const char* kInstalled[] = {"/run/tikasvc/control.socket",
                                      "/var/lib/tikasvc/.config/Tika Service/data/control.socket"};

// The data directory of a host that this account runs.
std::string OwnDataDirectory() {
  char settings[SCA_MaxPath];
  if (SCA_GetUserAppConfDir(settings, sizeof settings) == 0) return {};
  const std::string home = std::string(settings) + "/Tika Service";
  SCA_ConfigObj object;
  SCA_ConfigFileInfo info;
  unsigned long error = 0;
  char configured[SCA_MaxPath] = "";
  const bool isRead =
      SCA_LoadConfigFile((home + "/tika_service.trv").c_str(), &object, &info, &error) != 0 &&
      object.GetField("DataDirectory", configured, sizeof configured) != 0;
  char directory[SCA_MaxPath];
  return isRead && SCA_NormalizePath(configured, directory, sizeof directory) != 0 &&
                 *directory == '/'
             ? directory
             : home + "/data";
}

// Whether a socket may be passed over for the next place. A host that is there and cannot answer
// may not: what it was asked would be done by another one.
bool IsNobodyThere(unsigned long code) {
  return code == ENOENT || code == ENOTDIR || code == ECONNREFUSED || code == EACCES ||
         code == SCA_ErrorSocketPath || code == SCA_ErrorPeerAccount;
}

}  // namespace

bool IsLocalHost(const std::string& host) {
  return host == kLocalHost || (!host.empty() && host.front() == '/');
}

std::string ParseServiceAddress(const std::string& text, unsigned short defaultPort,
                                HostPort* address) {
  if (!IsLocalHost(text)) return ParseHostPort(text, defaultPort, address);
  // As long as the record of a service takes it.
  if (text.size() > 259) return "the socket's path '" + text + "' is longer than 259 bytes";
  *address = {text, defaultPort};
  return {};
}

std::string FormatServiceAddress(const HostPort& address) {
  return IsLocalHost(address.host) ? address.host : FormatHostPort(address);
}

std::string FindLocalHost(const std::function<unsigned long(const std::string& path)>& connect,
                          std::string* path) {
  std::vector<std::string> places;
  const std::string own = OwnDataDirectory();
  if (!own.empty()) places.push_back(own + "/" + kControlSocket);
  places.insert(places.end(), std::begin(kInstalled), std::end(kInstalled));
  std::string tried;
  for (const std::string& place : places) {
    const unsigned long code = connect(place);
    if (code == 0) {
      *path = place;
      return {};
    }
    if (!IsNobodyThere(code)) {
      return "the service host at " + Printable(place) +
             " cannot be asked: " + SCA_ErrorText(code) +
             "; see whether it hangs or has too many connections, or name another host";
    }
    tried += (tried.empty() ? "" : ", ") + Printable(place) + " (" + SCA_ErrorText(code) + ")";
  }
  return std::string(SCA_ErrorText(SCA_ErrorNoLocalHost)) + ": tried " + tried +
         "; start tikasvc, run this as root or as its account, or name a host";
}
