// Shows the Tika servers of service hosts and each change of their states, until all are lost:
// watch_hosts PORT HOST..., where a HOST may be the path of a control socket.

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "control/SCA_ServiceStatusNames.h"
#include "platform/SCA_Error.h"
#include "product/SCA_TikaStatusList.h"

static bool Show(SCA_TikaInterface* host, std::string* shown) {
  SCA_ConfigObj *service = nullptr, *servers = nullptr;
  if (!host->GetServiceStatusEx(&service, &servers)) return std::puts("a host is lost") < 0;
  const SCA_Owned<SCA_ConfigObj> ownsService(service), ownsServers(servers);
  std::string text = host->GetFullName();
  SCA_Field* field = nullptr;
  for (unsigned long i = 0; servers->GetFieldByIndex(i, &field); ++i) {
    const SCA_ConfigObj* server = servers->GetConfigObj(field->GetName());
    char port[6] = "", state[260] = "";
    if (!server || !server->GetField(SCA_ServerFields::Port, port, sizeof port)) continue;
    server->GetField(SCA_ServerFields::StatusText, state, sizeof state);
    text.append(" [").append(port).append(" ").append(state).append("]");
  }
  if (text != *shown) std::puts(text.c_str());
  *shown = text;
  return std::fflush(stdout) == 0;
}

int main(int argc, char** argv) {
  SCA_TikaStatusList hosts;
  std::map<SCA_TikaServiceStatus*, std::string> shown;
  unsigned long error = SCA_ErrorCannotCreate;
  for (int i = 2; i < argc; ++i) {
    SCA_TikaService record;
    SCA_TikaServiceStatus* host = nullptr;
    record.SetHostName(argv[i]);
    record.SetControlPort(static_cast<unsigned short>(std::atoi(argv[1])));
    if (hosts.AddStatus(&record, &host) && host->DoConnect(&error)) shown[host] = "";
    if (!host || !host->IsConnected()) std::printf("%s: %s\n", argv[i], SCA_ErrorText(error));
  }
  for (SCA_Event pause; !shown.empty(); pause.Wait(200)) {
    for (auto host = shown.begin(); host != shown.end();) {
      host = Show(host->first->GetInterface(), &host->second) ? std::next(host) : shown.erase(host);
    }
  }
  hosts.ClearAll();  // disconnects from them
}
