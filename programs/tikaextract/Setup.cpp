#include "programs/tikaextract/Setup.h"

#include "foundation/SCA_ConfigFile.h"
#include "platform/SCA_Error.h"

namespace {

constexpr unsigned long kMaxServers = 256;
constexpr unsigned long kMaxPort = 65535;
constexpr unsigned long kSettingsVersion = 1;

}  // namespace

std::string Setup::Prepare() {
  settings_.SetMode(SCA_TikaModeEnabled);
  settings_.SetNetworkTimeout(kDefaultTimeoutMs);
  std::string complaint = options_.settingsFile.empty() ? std::string() : Load();
  if (!complaint.empty()) return complaint;
  if (options_.timeoutMs) settings_.SetNetworkTimeout(*options_.timeoutMs);
  if (!options_.extensions.empty()) settings_.SetFileExtensions(options_.extensions.c_str());
  complaint = options_.servers.empty() ? UseSavedServers() : UseGivenServers();
  if (complaint.empty() && !options_.saveSettingsFile.empty()) complaint = Save();
  return complaint;
}

std::string Setup::Load() {
  const std::string& file = options_.settingsFile;
  SCA_ConfigObj object;
  SCA_ConfigFileInfo info;
  unsigned long error = 0;
  if (SCA_LoadConfigFile(file.c_str(), &object, &info, &error) == 0) {
    return "cannot load the settings '" + file + "': " + SCA_ErrorText(error);
  }
  if (info.fileType != SCA_FileTypeSettings) return "the file '" + file + "' holds no settings";
  if (info.formatVersion > kSettingsVersion) {
    return "cannot load the settings '" + file + "': " + SCA_ErrorText(SCA_ErrorFileNewer);
  }
  if (settings_.Deserialize(&object) == 0) {
    return "the services in the settings '" + file + "' cannot be read";
  }
  if (settings_.IsEnabled() == 0) {
    return "text extraction is switched off in the settings '" + file + "'";
  }
  if (settings_.GetMaxPendingRequests() == 0) {
    return "the settings '" + file + "' allow no pending requests";
  }
  return {};
}

std::string Setup::Save() {
  SCA_ConfigObj object(SCA_SettingsName, nullptr);
  unsigned long error = SCA_ErrorInvalidData;
  if (settings_.Serialize(&object) != 0 &&
      object.Save(options_.saveSettingsFile.c_str(), SCA_FileTypeSettings, kSettingsVersion,
                  &error) != 0) {
    return {};
  }
  return "cannot save the settings '" + options_.saveSettingsFile + "': " + SCA_ErrorText(error);
}

// A host is one service; its servers take the ports from the service's data port on.
std::string Setup::UseGivenServers() {
  SCA_TikaServiceList& services = *settings_.GetServiceList();
  services.ClearAll();
  for (const HostPort& address : options_.servers) {
    SCA_TikaService* service = nullptr;
    if (services.GetService(address.host.c_str(), &service) == 0) {
      if (services.AddService(address.host.c_str(), &service) == 0) return "not enough memory";
      service->SetDataPort(address.port);
      service->SetNumOfServers(0);
    }
    const unsigned long expected = service->GetDataPort() + service->GetNumOfServers();
    if (address.port != expected && !options_.saveSettingsFile.empty()) {
      return "the servers of '" + address.host +
             "' must be given with ports that follow one another to be saved";
    }
    service->SetNumOfServers(service->GetNumOfServers() + 1);
    servers_.push_back({address, service->GetServiceId()});
  }
  return {};
}

std::string Setup::UseSavedServers() {
  const SCA_TikaServiceList& services = *settings_.GetServiceList();
  for (const auto* node = services.GetHead(); node != nullptr; node = node->GetNext()) {
    const SCA_TikaService& service = *node->GetItem();
    if (service.IsEnabled() == 0) continue;
    const unsigned long count = service.GetNumOfServers();
    if (count > kMaxServers - servers_.size() || service.GetDataPort() + count > kMaxPort + 1) {
      return std::string("the settings name too many servers of '") + service.GetHostName() + "'";
    }
    for (unsigned long i = 0; i < count; ++i) {
      const auto port = static_cast<unsigned short>(service.GetDataPort() + i);
      servers_.push_back({{service.GetHostName(), port}, service.GetServiceId()});
    }
  }
  return {};
}

unsigned long Setup::PrivateService() {
  SCA_TikaService* service = nullptr;
  settings_.GetServiceList()->ClearAll();
  settings_.GetServiceList()->AddService("127.0.0.1", &service);
  return service != nullptr ? service->GetServiceId() : 0;
}
