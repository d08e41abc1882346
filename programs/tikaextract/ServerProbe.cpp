#include "programs/tikaextract/ServerProbe.h"

#include "client/SCA_TikaClient.h"

namespace {

constexpr unsigned long kAnswerMs = 2000;

}  // namespace

std::string AskTikaVersion(const char* host, unsigned short port, SCA_Event* cancel) {
  SCA_TikaConfigOrv settings;
  settings.SetNetworkTimeout(kAnswerMs);
  SCA_TikaClient client(&settings, host, port);
  client.SetCancelEvent(cancel);
  char version[101];
  unsigned long error = 0;
  if (client.Connect(kAnswerMs, &error) == 0) return {};
  if (client.GetVersion(version, sizeof version, &error) == 0) return {};
  return version;
}
