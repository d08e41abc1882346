#include "programs/tikaextract/Setup.h"

#include <sstream>

#include "foundation/SCA_ConfigFile.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_TcpSock.h"
#include "platform/SCA_Text.h"
#include "programs/common/Escape.h"
#include "programs/common/LocalHost.h"
#include "programs/tikaextract/ReadyHost.h"

namespace {

constexpr unsigned long kMaxServers = 256;
constexpr unsigned long kMaxPort = 65535;
constexpr std::size_t kMaxHostName = 259;
constexpr std::size_t kMaxExtensions = 519;
constexpr unsigned long kLocalConnectMs = 5000;
// Version 2 may hold service hosts. What holds none is saved as version 1, for who knows no other.
constexpr unsigned long kSettingsVersion = 2;
constexpr unsigned long kServersVersion = 1;

template <class Visit>
void ForEachService(SCA_TikaConfigOrv* settings, Visit visit) {
  for (const auto* node = settings->GetServiceList()->GetHead(); node != nullptr;
       node = node->GetNext()) {
    visit(node->GetItem());
  }
}

template <class Visit>
void ForEachWord(const std::string& text, Visit visit) {
  std::istringstream words(text);
  for (std::string word; words >> word;) visit(word);
}

// Both would bind the ports of one machine, and the settings keep one service for each host.
// @param other  0 for servers that are used directly.
std::string ComplainAboutPorts(const std::string& host, unsigned short one, unsigned short other) {
  if (other == 0) return Quoted(host) + " is given with --server and with --service: choose one";
  return Quoted(host) + " has two control ports, " + std::to_string(one) + " and " +
         std::to_string(other) +
         ": two service hosts on one machine would compete for the ports of their servers; leave "
         "one out";
}

}  // namespace

std::string Setup::Prepare() {
  settings_.SetMode(SCA_TikaModeEnabled);
  settings_.SetNetworkTimeout(kDefaultTimeoutMs);
  std::string complaint = options_.settingsFile.empty() ? std::string() : Load();
  if (!complaint.empty()) return complaint;
  if (options_.timeoutMs) settings_.SetNetworkTimeout(*options_.timeoutMs);
  complaint = UseExtensions();
  if (!complaint.empty()) return complaint;
  const bool isAlwaysPrivate = options_.privateUse == PrivateServerUse::Always;
  if (!AreServersGiven()) {
    if (!isAlwaysPrivate) complaint = UseSavedServers();
  } else {
    settings_.ClearAll();
    complaint = UseGivenServers();
    if (complaint.empty()) complaint = UseGivenServices();
  }
  if (complaint.empty() && !options_.saveSettingsFile.empty()) complaint = Save();
  return complaint.empty() && !isAlwaysPrivate ? UseServices() : complaint;
}

std::string Setup::Load() {
  const std::string& file = options_.settingsFile;
  SCA_ConfigObj object;
  SCA_ConfigFileInfo info;
  unsigned long error = 0;
  if (SCA_LoadConfigFile(file.c_str(), &object, &info, &error) == 0) {
    return "cannot load the settings " + Quoted(file) + ": " + SCA_ErrorText(error);
  }
  if (info.fileType != SCA_FileTypeSettings)
    return "the file " + Quoted(file) + " holds no settings";
  if (info.formatVersion > kSettingsVersion) {
    return "cannot load the settings " + Quoted(file) + ": " + SCA_ErrorText(SCA_ErrorFileNewer);
  }
  if (settings_.Deserialize(&object) == 0) {
    return "the services in the settings " + Quoted(file) + " cannot be read";
  }
  if (info.formatVersion <= kServersVersion) {
    ForEachService(&settings_, [](SCA_TikaService* service) { service->SetControlPort(0); });
  }
  if (settings_.IsEnabled() == 0) {
    return "text extraction is switched off in the settings " + Quoted(file);
  }
  if (settings_.GetMaxPendingRequests() == 0) {
    return "the settings " + Quoted(file) + " allow no pending requests";
  }
  return {};
}

std::string Setup::UseExtensions() {
  const bool isChanged = !options_.extensions.empty() || !options_.addedExtensions.empty() ||
                         !options_.removedExtensions.empty();
  if (!isChanged) return {};
  const std::string base =
      options_.extensions.empty() ? settings_.GetFileExtensions() : options_.extensions;
  std::string list;
  ForEachWord(base + " " + options_.addedExtensions, [&](const std::string& word) {
    const bool isKnown = SCA_HasToken(list.c_str(), word.c_str()) != 0;
    if (isKnown || SCA_HasToken(options_.removedExtensions.c_str(), word.c_str()) != 0) return;
    list += (list.empty() ? "" : " ") + word;
  });
  if (list.empty()) return "--remove-ext leaves no extension: name others with --add-ext";
  if (list.size() > kMaxExtensions) {
    return "the list of extensions is longer than " + std::to_string(kMaxExtensions) + " bytes";
  }
  settings_.SetFileExtensions(list.c_str());
  return {};
}

std::string Setup::Save() {
  SCA_ConfigObj object(SCA_SettingsName, nullptr);
  unsigned long error = SCA_ErrorInvalidData;
  unsigned long version = kServersVersion;
  ForEachService(&settings_, [&version](const SCA_TikaService* service) {
    if (service->GetControlPort() != 0) version = kSettingsVersion;
  });
  if (settings_.Serialize(&object) != 0 &&
      object.Save(options_.saveSettingsFile.c_str(), SCA_FileTypeSettings, version, &error) != 0) {
    return {};
  }
  return "cannot save the settings " + Quoted(options_.saveSettingsFile) + ": " +
         SCA_ErrorText(error);
}

// A host is one service; its servers take the ports from the service's data port on.
std::string Setup::UseGivenServers() {
  SCA_TikaServiceList& services = *settings_.GetServiceList();
  for (const HostPort& address : options_.servers) {
    SCA_TikaService* service = nullptr;
    if (services.GetService(address.host.c_str(), &service) == 0) {
      if (services.AddService(address.host.c_str(), &service) == 0) return "not enough memory";
      service->SetControlPort(0);
      service->SetDataPort(address.port);
      service->SetNumOfServers(0);
    }
    const unsigned long expected = service->GetDataPort() + service->GetNumOfServers();
    if (address.port != expected && !options_.saveSettingsFile.empty()) {
      return "the servers of " + Quoted(address.host) + " can be saved only with consecutive ports";
    }
    service->SetNumOfServers(service->GetNumOfServers() + 1);
    servers_.push_back({address, service->GetServiceId()});
  }
  return {};
}

std::string Setup::UseGivenServices() {
  SCA_TikaServiceList& services = *settings_.GetServiceList();
  if (!options_.services.empty()) settings_.SetJavaOptions(options_.serviceJavaOptions.c_str());
  for (const HostPort& address : options_.services) {
    SCA_TikaService* service = nullptr;
    if (services.GetService(address.host.c_str(), &service) != 0) {
      if (service->GetControlPort() == address.port) continue;
      return ComplainAboutPorts(address.host, address.port, service->GetControlPort());
    }
    if (services.AddService(address.host.c_str(), &service) == 0) return "not enough memory";
    service->SetControlPort(address.port);
    service->SetNumOfServers(options_.serviceServers);
    service->SetDataPort(options_.serviceFirstPort);
    service->SetHeapSize(options_.serviceHeapMb);
    if (!options_.serviceJar.empty()) service->SetFileName(options_.serviceJar.c_str());
  }
  return {};
}

std::string Setup::UseSavedServers() {
  const SCA_TikaServiceList& services = *settings_.GetServiceList();
  for (const auto* node = services.GetHead(); node != nullptr; node = node->GetNext()) {
    const SCA_TikaService& service = *node->GetItem();
    if (service.IsEnabled() == 0 || service.GetControlPort() != 0) continue;
    const unsigned long count = service.GetNumOfServers();
    if (count > kMaxServers - servers_.size() || service.GetDataPort() + count > kMaxPort + 1) {
      return "the settings name too many servers of " + Quoted(service.GetHostName());
    }
    for (unsigned long i = 0; i < count; ++i) {
      const auto port = static_cast<unsigned short>(service.GetDataPort() + i);
      servers_.push_back({{service.GetHostName(), port}, service.GetServiceId()});
    }
  }
  return {};
}

// What a host name stands for is known now and not when the settings are saved.
std::string Setup::UseServices() {
  std::vector<SCA_TikaService*> records;
  ForEachService(&settings_, [&records](SCA_TikaService* service) {
    if (service->IsEnabled() != 0 && service->GetControlPort() != 0) records.push_back(service);
  });
  std::string complaint;
  for (SCA_TikaService* record : records) {
    if (complaint.empty()) complaint = UseService(record);
  }
  return complaint;
}

// Found now and not when the settings are saved, for the same reason.
std::string Setup::UseLocalHost(SCA_TikaService* record) {
  std::string path = record->GetHostName();
  if (path == kLocalHost) {
    const std::string complaint = FindLocalHost(
        [](const std::string& place) {
          SCA_TcpSock socket;
          unsigned long error = SCA_ErrorCannotCreate;
          return socket.IsValid() != 0 &&
                         socket.Connect(place.c_str(), 0, kLocalConnectMs, &error) != 0
                     ? 0
                     : error;
        },
        &path);
    lacksLocalHost_ = !complaint.empty();
    if (lacksLocalHost_) return complaint + " with --service";
    if (path.size() > kMaxHostName) return "the socket's path '" + path + "' is too long";
    record->SetHostName(path.c_str());
  }
  bool isNew = false;
  const std::string complaint = Claim(path, record->GetControlPort(), &isNew);
  if (!isNew) record->SetEnabled(0);
  if (isNew) services_.push_back(record);
  return complaint;
}

std::string Setup::UseService(SCA_TikaService* record) {
  SCA_TikaServiceList& services = *settings_.GetServiceList();
  const unsigned short port = record->GetControlPort();
  if (record->GetNumOfServers() > kMaxServers ||
      record->GetDataPort() + record->GetNumOfServers() > kMaxPort + 1) {
    return "the settings ask for too many servers of " + Quoted(record->GetHostName());
  }
  if (IsLocalHost(record->GetHostName())) return UseLocalHost(record);
  std::vector<std::string> addresses = ResolveHost(record->GetHostName());
  // Who tries to connect finds out why.
  if (addresses.empty()) addresses.emplace_back(record->GetHostName());
  if (addresses.size() == 1) {
    bool isNew = false;
    const std::string complaint = Claim(addresses.front(), port, &isNew);
    if (!isNew) record->SetEnabled(0);
    if (isNew) services_.push_back(record);
    return complaint;
  }
  // The name's record is one service no more.
  record->SetEnabled(0);
  for (const std::string& address : addresses) {
    SCA_TikaService* service = nullptr;
    bool isNew = false;
    if (services.GetService(address.c_str(), &service) != 0) {
      // Named itself; its own record counts.
      if (service->GetControlPort() == port) continue;
      return ComplainAboutPorts(address, port, service->GetControlPort());
    }
    const std::string complaint = Claim(address, port, &isNew);
    if (!complaint.empty()) return complaint;
    if (!isNew) continue;
    if (services.AddService(address.c_str(), &service) == 0) return "not enough memory";
    const unsigned long id = service->GetServiceId();
    service->SetContent(record, 0);
    service->SetServiceId(id);
    service->SetHostName(address.c_str());
    service->SetEnabled(1);
    services_.push_back(service);
  }
  return {};
}

// @param isNew  Whether the address has no service yet.
std::string Setup::Claim(const std::string& address, unsigned short port, bool* isNew) {
  const auto [entry, isInserted] = ports_.insert({address, port});
  *isNew = isInserted;
  return entry->second == port ? std::string() : ComplainAboutPorts(address, entry->second, port);
}

std::string Setup::UseReadyHost() {
  if (!IsPrivate() || options_.privateUse != PrivateServerUse::WithoutHost) return {};
  std::string path;
  const std::string complaint = FindReadyHost(&path);
  SCA_TikaServiceList& services = *settings_.GetServiceList();
  SCA_TikaService* service = nullptr;
  if (!complaint.empty() || path.size() > kMaxHostName) {
    return "using a private server; " + complaint;
  }
  services.ClearAll();
  if (services.AddService(path.c_str(), &service) == 0) return "not enough memory";
  service->SetControlPort(kDefaultControlPort);
  service->SetNumOfServers(0);
  services_.push_back(service);
  isHostFound_ = true;
  return "using the service host at " + Printable(path);
}

unsigned long Setup::MakePrivateService() {
  SCA_TikaService* service = nullptr;
  settings_.GetServiceList()->ClearAll();
  settings_.GetServiceList()->AddService("127.0.0.1", &service);
  return service != nullptr ? service->GetServiceId() : 0;
}
