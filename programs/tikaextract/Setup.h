/// The settings of a run and the servers that it uses.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_SETUP_H
#define SCA_PROGRAMS_TIKAEXTRACT_SETUP_H

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

  SCA_TikaConfigOrv& Settings() { return settings_; }
  const SCA_TikaConfigOrv& Settings() const { return settings_; }
  /// Empty when the run is to have a server of its own, of the service `PrivateService()`.
  const std::vector<ServerOfService>& Servers() const { return servers_; }
  unsigned long PrivateService();

 private:
  std::string Load();
  std::string Save();
  std::string UseGivenServers();
  std::string UseSavedServers();

  const Options& options_;
  SCA_TikaConfigOrv settings_;
  std::vector<ServerOfService> servers_;
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_SETUP_H
