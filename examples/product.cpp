// A product in little: connects to the service host whose control port is given, adds a server,
// shows what the host has, and asks the host to end.

#include <cstdio>
#include <cstdlib>

#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Error.h"
#include "product/SCA_TikaStatusList.h"

static int Fail(const char* what, unsigned long error) {
  std::fprintf(stderr, "product: %s: %s\n", what, SCA_ErrorText(error));
  return 1;
}

static int Run(SCA_TikaStatusList* services, unsigned short port) {
  SCA_TikaService record;
  record.SetHostName("127.0.0.1");
  record.SetControlPort(port);
  SCA_TikaServiceStatus* status = nullptr;
  if (services->AddStatus(&record, &status) == 0) return Fail("no memory", 0);
  unsigned long error = 0;
  if (status->DoConnect(&error) == 0) return Fail("cannot connect", error);

  SCA_TikaInterface* host = status->GetInterface();
  unsigned long state = 0;
  if (host->GetStatus(&state) == 0) return Fail("no answer", host->GetLastStatusCode());
  std::printf("the host is in state %lu\n", state);

  unsigned long id = 0;
  unsigned long serverState = 0;
  if (host->AddServer("tika-server.jar", 9980, 512, "", &id, &serverState, &error) == 0) {
    return Fail("cannot add a server", host->GetLastStatusCode());
  }
  SCA_TikaServerList servers;  // copies, which run nothing
  if (host->GetServerList(&servers) == 0) return Fail("no list", host->GetLastStatusCode());
  for (const auto* node = servers.GetHead(); node != nullptr; node = node->GetNext()) {
    std::printf("server %lu: %s on port %u\n", node->GetItem()->GetServerId(),
                node->GetItem()->GetFileName(), node->GetItem()->GetPortNumber());
  }
  char version[SCA_ServiceTextSize];
  if (host->GetVersionInfo(version) == 0) std::printf("this host tells no version\n");
  return host->StopServer() != 0 ? 0 : Fail("cannot stop", host->GetLastStatusCode());
}

int main(int argc, char** argv) {
  SCA_TikaStatusList services;
  const int result =
      Run(&services, static_cast<unsigned short>(argc > 1 ? std::atoi(argv[1]) : 9500));
  services.ClearAll();  // takes leave: the host deletes the servers
  return result;
}
