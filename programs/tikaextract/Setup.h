/// The settings of a run with the servers and services that it uses.
///
/// A record of the settings is one host. With a control port it is a service host, and its other
/// fields are the servers that it is to run; 0 servers means those that it has. With the control
/// port 0 its servers are used directly. Settings of format version 1 know only the latter.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SETUP_H
#define SCA_PROGRAMS_TIKAEXTRACT_SETUP_H

#include <map>
#include <string>
#include <vector>

#include "programs/tikaextract/Options.h"
#include "settings/SCA_TikaConfigOrv.h"

/// A server with the service that it belongs to.
struct ServerOfService {
  HostPort address;
  unsigned long serviceId = 0;
};

class Setup {
 public:
  explicit Setup(const Options& options) : options_(options) {}

  /// Reads and completes the settings, and saves them if they are to be saved.
  /// @return A complaint, or nothing.
  std::string Prepare();
  /// @return The exit status that goes with a complaint.
  ExitStatus StatusOfComplaint() const { return lacksLocalHost_ ? kNoServer : kWrongUse; }

  SCA_TikaConfigOrv& Settings() { return settings_; }
  const SCA_TikaConfigOrv& Settings() const { return settings_; }
  /// @return Whether documents with this extension are taken from directories.
  bool IsTaken(const std::string& extension) const {
    return settings_.MatchExtension("*") != 0 || IsListed(extension);
  }
  /// @return Whether the settings name this extension, which chooses services.
  bool IsListed(const std::string& extension) const {
    return settings_.MatchExtension(extension.c_str()) != 0;
  }
  /// The servers that are used directly.
  const std::vector<ServerOfService>& Servers() const { return servers_; }
  /// The service hosts that are used by their control ports, one for each address; the settings
  /// own them.
  const std::vector<SCA_TikaService*>& Services() const { return services_; }
  /// The run is to have a server of its own, of the service `MakePrivateService()`.
  bool IsPrivate() const { return servers_.empty() && services_.empty(); }
  /// The servers are those of the settings, each of which takes its own kinds of documents.
  bool AreServersSaved() const { return !IsPrivate() && !isHostFound_ && !AreServersGiven(); }
  /// Uses this machine's service host for a run that would be private, if it may and can be used.
  /// @return What the run uses, for people; nothing when that was said before.
  std::string UseReadyHost();
  unsigned long MakePrivateService();

 private:
  bool AreServersGiven() const { return !options_.servers.empty() || !options_.services.empty(); }
  std::string Load();
  std::string Save();
  std::string UseExtensions();
  std::string UseGivenServers();
  std::string UseGivenServices();
  std::string UseSavedServers();
  std::string UseServices();
  std::string UseService(SCA_TikaService* record);
  std::string UseLocalHost(SCA_TikaService* record);
  std::string Claim(const std::string& address, unsigned short port, bool* isNew);

  const Options& options_;
  SCA_TikaConfigOrv settings_;
  bool lacksLocalHost_ = false;  // which is wanted
  bool isHostFound_ = false;     // and used, although nothing names it
  std::vector<ServerOfService> servers_;
  std::vector<SCA_TikaService*> services_;
  std::map<std::string, unsigned short> ports_;  // control ports in use, by address
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SETUP_H
