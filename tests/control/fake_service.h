/// A service host that records its calls and answers with marked values.
#ifndef SCA_TESTS_CONTROL_FAKE_SERVICE_H
#define SCA_TESTS_CONTROL_FAKE_SERVICE_H

#include <atomic>
#include <cstdio>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "control/SCA_NetServerAgent.h"
#include "control/SCA_TikaServiceVirtual.h"
#include "platform/SCA_Text.h"

class FakeService : public SCA_TikaServiceVirtual {
 public:
  bool fails = false;                        ///< every operation gives 0, after filling its outputs
  std::function<void(SCA_ConfigObj*)> fill;  ///< what fills each object that is handed out, or ...
  std::size_t objectFields = 1;              ///< in each object that is handed out
  std::function<void()> onGetStatus;

  std::vector<std::string> Calls() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return calls_;
  }

  int GetVersionInfo(char* text) override { return Record("GetVersionInfo", {}, {}, {text}); }
  int GetDebugLog(unsigned long last, unsigned long count, SCA_ConfigObj** log) override {
    return Record("GetDebugLog", {last, count}, {log});
  }
  int ClearDebugLog() override { return Record("ClearDebugLog"); }
  int GetStatus(unsigned long* status) override {
    *status = 11;
    if (onGetStatus) onGetStatus();
    return Record("GetStatus");
  }
  int GetStatusObj(SCA_ConfigObj** status) override { return Record("GetStatusObj", {}, {status}); }
  int GetServerInfo(char* version, char* host) override {
    return Record("GetServerInfo", {}, {}, {version, host});
  }
  int GetServiceStatus(unsigned long* status, unsigned long* errors, unsigned long* active,
                       unsigned long long* memory, unsigned long long* upTime,
                       SCA_ConfigObj** servers) override {
    *status = 1;
    *errors = 2;
    *active = 0xFFFFFFFF;
    *memory = (1ULL << 32) + 1;
    *upTime = ~0ULL;
    return Record("GetServiceStatus", {}, {servers});
  }
  int GetServiceStatusEx(SCA_ConfigObj** service, SCA_ConfigObj** servers) override {
    return Record("GetServiceStatusEx", {}, {service, servers});
  }
  int StopServer() override { return Record("StopServer"); }
  int Suspend() override { return Record("Suspend"); }
  int GetServerList(SCA_ConfigObj** list) override { return Record("GetServerList", {}, {list}); }
  int GetServer(unsigned long id, SCA_ConfigObj** server) override {
    return Record("GetServer", {id}, {server});
  }
  int GetServerStatusEx(unsigned long id, SCA_ConfigObj** status) override {
    return Record("GetServerStatusEx", {id}, {status});
  }
  int SaveTikaLog(unsigned long status, const char* dir, unsigned long* code) override {
    *code = 13;
    return Record("SaveTikaLog " + std::string(dir), {status});
  }
  int GetServerLog(unsigned long id, unsigned long last, unsigned long count,
                   SCA_ConfigObj** log) override {
    return Record("GetServerLog", {id, last, count}, {log});
  }
  int ClearServerLog(unsigned long id) override { return Record("ClearServerLog", {id}); }
  int AddServer(const char* file, unsigned short port, unsigned long heap, const char* options,
                unsigned long* id, unsigned long* status, unsigned long* code) override {
    *id = 21;
    *status = 22;
    *code = 23;
    return Record("AddServer " + std::string(file) + "|" + options, {port, heap});
  }
  int StartServer(unsigned long id, unsigned long* status, unsigned long* code) override {
    *status = 31;
    *code = 32;
    return Record("StartServer", {id});
  }
  int DeleteServer(unsigned long id) override { return Record("DeleteServer", {id}); }
  int DeleteAllServers() override { return Record("DeleteAllServers"); }

 protected:
  int Record(std::string call, const std::vector<unsigned long>& numbers = {},
             const std::vector<SCA_ConfigObj**>& objects = {},
             const std::vector<char*>& texts = {}) {
    for (const unsigned long number : numbers) call += " " + std::to_string(number);
    int mark = 0;
    for (SCA_ConfigObj** object : objects) {
      *object = new SCA_ConfigObj("Another name", nullptr);
      if (fill) {
        fill(*object);
        continue;
      }
      for (std::size_t i = 0; i < objectFields; ++i) (*object)->AddField("Mark", ++mark, 0);
    }
    for (char* text : texts) {
      std::snprintf(text, SCA_ServiceTextSize, "text %d of %s", ++mark, call.c_str());
    }
    const std::lock_guard<std::mutex> guard(mutex_);
    calls_.push_back(call);
    return fails ? 0 : 1;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
};

/// Gives every connection the one service, and keeps who is there.
class FakeFactory : public SCA_TikaServiceVirtualFactory {
 public:
  explicit FakeFactory(SCA_TikaServiceVirtual* service, unsigned long mode = 0)
      : service_(service), mode_(mode) {}

  int OnConnect(SCA_NetServerAgent* agent) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    agents_.insert(agent->GetId());
    if (agent->IsAuthenticated() != 0) ++authenticated_;
    ++connects_;
    return 0;  // not looked at
  }
  SCA_TikaServiceVirtual* GetServiceObject(unsigned long agentId) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    return agents_.count(agentId) != 0 ? service_ : nullptr;
  }
  int OnDisconnect(unsigned long agentId) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    agents_.erase(agentId);
    return 0;
  }
  unsigned long GetLoginMode() override { return mode_; }

  std::size_t Connected() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return agents_.size();
  }
  int Connects() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return connects_;
  }
  int Authenticated() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return authenticated_;
  }

 private:
  SCA_TikaServiceVirtual* service_;
  const unsigned long mode_;
  mutable std::mutex mutex_;
  std::set<unsigned long> agents_;
  int connects_ = 0;
  int authenticated_ = 0;
};

#endif  // SCA_TESTS_CONTROL_FAKE_SERVICE_H
