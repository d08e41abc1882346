// A service host in little: a control port that tells how it is and lists its servers. Prints the
// port, and ends when a product asks it to.

#include <cstdio>

#include "control/SCA_TikaServiceServer.h"
#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Sync.h"

class Service : public SCA_TikaServiceVirtual {
 public:
  int GetStatus(unsigned long* status) override { return (*status = SCA_ServerActive) != 0; }
  int GetServerList(SCA_ConfigObj** list) override {
    *list = new SCA_ConfigObj("Servers", nullptr);
    return servers.Serialize(*list);
  }
  int DeleteAllServers() override { return servers.ClearAll(); }
  int StopServer() override { return stop.Set(), 1; }
  // What this host does not do fails, and the product is told so.
  int GetVersionInfo(char*) override { return 0; }
  int GetDebugLog(unsigned long, unsigned long, SCA_ConfigObj**) override { return 0; }
  int ClearDebugLog() override { return 0; }
  int GetStatusObj(SCA_ConfigObj**) override { return 0; }
  int GetServerInfo(char*, char*) override { return 0; }
  int GetServiceStatus(unsigned long*, unsigned long*, unsigned long*, unsigned long long*,
                       unsigned long long*, SCA_ConfigObj**) override {
    return 0;
  }
  int GetServiceStatusEx(SCA_ConfigObj**, SCA_ConfigObj**) override { return 0; }
  int Suspend() override { return 0; }
  int GetServer(unsigned long, SCA_ConfigObj**) override { return 0; }
  int GetServerStatusEx(unsigned long, SCA_ConfigObj**) override { return 0; }
  int SaveTikaLog(unsigned long, const char*, unsigned long*) override { return 0; }
  int GetServerLog(unsigned long, unsigned long, unsigned long, SCA_ConfigObj**) override {
    return 0;
  }
  int ClearServerLog(unsigned long) override { return 0; }
  int AddServer(const char* jar, unsigned short port, unsigned long heap, const char* options,
                unsigned long* id, unsigned long* status, unsigned long* code) override {
    SCA_TikaServer* server = nullptr;
    if (servers.AddServer(nullptr, jar, port, heap, options, &server, code) == 0) return 0;
    *id = server->GetServerId();
    *status = server->GetProcessStatus();
    *code = 0;
    return 1;
  }
  int StartServer(unsigned long, unsigned long*, unsigned long*) override { return 0; }
  int DeleteServer(unsigned long id) override { return servers.DeleteServer(id); }

  SCA_TikaServerList servers;  // one connection at a time here; a real host guards it by a lock
  SCA_Event stop{1, 0};
};

class Factory : public SCA_TikaServiceVirtualFactory {
 public:
  int OnConnect(SCA_NetServerAgent*) override { return 1; }
  SCA_TikaServiceVirtual* GetServiceObject(unsigned long) override { return &service; }
  int OnDisconnect(unsigned long) override { return 1; }
  unsigned long GetLoginMode() override { return 0; }  // loopback alone, without a login
  Service service;
};

int main() {
  Factory factory;
  unsigned long error = 0;
  SCA_TikaServiceServer server(&factory, 0, &error);
  if (!server.IsValid()) return std::fprintf(stderr, "host: %s\n", SCA_ErrorText(error)), 1;
  std::printf("%u\n", server.GetPort());
  std::fflush(stdout);
  factory.service.stop.Wait(SCA_Infinite);
}
