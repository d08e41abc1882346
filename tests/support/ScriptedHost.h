/// A service host whose Tika servers are those of the fault lab.
#ifndef SCA_TESTS_SUPPORT_SCRIPTEDHOST_H
#define SCA_TESTS_SUPPORT_SCRIPTEDHOST_H

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "control/SCA_ServiceStatusNames.h"
#include "control/SCA_TikaServiceServer.h"
#include "faultlab/FaultServer.h"
#include "host/SCA_TikaServerList.h"
#include "platform/SCA_Error.h"
#include "platform/SCA_Text.h"
#include "tests/control/fake_service.h"
#include "tests/support/Timing.h"

/// Deletes for a connection what it has added, as a service host does; one connection at a time.
class ScriptedHost : public FakeService {
 public:
  static constexpr int kNoLimit = 1 << 30;

  /// @param address    Of its servers; without a key, its control port is on 127.0.0.1 alone.
  /// @param loginMode  1 asks for a key.
  explicit ScriptedHost(const char* address, unsigned long loginMode = 0)
      : address_(address), factory_(this, loginMode) {
    factory_.onDisconnect = [this] { TakeAdded(); };
    fill = [](SCA_ConfigObj* status) {
      status->AddField(SCA_ServerFields::StatusText, "in words", 0);
      status->AddField(SCA_ServerFields::LastDeath, "heap exhausted", 0);
    };
    Open();
  }
  ~ScriptedHost() override { Die(); }

  void Open() {
    Exchange(nullptr);
    unsigned long error = 0;
    auto port = std::make_unique<SCA_TikaServiceServer>(&factory_, controlPort_, &error);
    ASSERT_EQ(port->IsValid(), 1) << SCA_ErrorText(error);
    controlPort_ = port->GetPort();
    Exchange(std::move(port));
  }
  /// The control port is gone; the servers stay.
  void Close() { Exchange(nullptr); }
  /// As SIGKILL does it: nothing is left.
  void Die() {
    isDying_.store(true);
    Exchange(nullptr);
    running_.clear();
    list_.ClearAll();
    isDying_.store(false);
  }
  void OpenLocal(const std::string& path) {
    unsigned long error = 0;
    EXPECT_EQ(port_->OpenLocal(path.c_str(), nullptr, &error), 1) << SCA_ErrorText(error);
  }
  const char* Address() const { return address_; }
  std::string Service() const { return address_ + (":" + std::to_string(controlPort_)); }
  unsigned short ControlPort() const { return controlPort_; }

  /// A server that is there before the run.
  unsigned short Keep(unsigned long status) {
    const unsigned short port = Listener(address_, 0, 1).Port();
    unsigned long ignored = 0;
    AddServer("kept.jar", port, 1, "", &ignored, &ignored, &ignored);
    TakeAdded();
    SetStatus(port, status);
    return port;
  }
  /// A server with the status `SCA_ServerActive` runs.
  void SetStatus(unsigned short port, unsigned long status) {
    const std::lock_guard<std::mutex> guard(mutex_);
    SCA_TikaServer* server = nullptr;
    ASSERT_EQ(list_.GetServerByPort(port, &server), 1);
    server->SetProcessStatus(status);
    running_.erase(port);
    if (status == SCA_ServerActive) running_.emplace(port, TikaOn(port));
  }
  bool Has(unsigned short port) {
    const std::lock_guard<std::mutex> guard(mutex_);
    SCA_TikaServer* ignored = nullptr;
    return list_.GetServerByPort(port, &ignored) != 0;
  }

  std::atomic<int> asked{0};  ///< for documents, served or waiting
  std::atomic<int> served{0};
  std::atomic<int> limit{kNoLimit};  ///< of documents served; the next ones wait
  std::atomic<unsigned long> addCode{0};
  std::atomic<unsigned long> startCode{0};
  std::atomic<bool> closesAfterAdd{false};

  int GetServerInfo(char* version, char* host) override {
    SCA_CopyText(version, SCA_ServiceTextSize, "1", SCA_TextFit::Cut);
    SCA_CopyText(host, SCA_ServiceTextSize, address_, SCA_TextFit::Cut);
    return 1;
  }
  int GetServerList(SCA_ConfigObj** list) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    *list = new SCA_ConfigObj("Servers", nullptr);
    return list_.Serialize(*list);
  }
  int AddServer(const char* jar, unsigned short port, unsigned long heap, const char* options,
                unsigned long* id, unsigned long* status, unsigned long* code) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    *code = addCode;
    SCA_TikaServer* server = nullptr;
    if (*code == 0 && list_.GetServerByPort(port, &server) == 0) {
      list_.AddServer(nullptr, jar, port, heap, options, &server, code);
      added_.insert(server->GetServerId());
    }
    *id = server != nullptr ? server->GetServerId() : SCA_NoServerId;
    *status = server != nullptr ? server->GetProcessStatus() : SCA_ServerError;
    if (closesAfterAdd.exchange(false)) port_->StopAll();  // behind the reply
    return Record(std::string("AddServer ") + jar + "|" + options, {port, heap});
  }
  int StartServer(unsigned long id, unsigned long* status, unsigned long* code) override {
    *status = SCA_ServerActive;
    *code = startCode;
    SCA_TikaServer* server = nullptr;
    if (*code == 0 && list_.GetServer(id, &server) != 0)
      SetStatus(server->GetPortNumber(), *status);
    return 1;
  }
  int DeleteServer(unsigned long id) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    SCA_TikaServer* server = nullptr;
    if (list_.GetServer(id, &server) != 0) running_.erase(server->GetPortNumber());
    list_.DeleteServer(id);
    added_.erase(id);
    return 1;
  }
  int DeleteAllServers() override {
    for (const unsigned long id : TakeAdded()) DeleteServer(id);
    return 1;
  }

 private:
  // What the connection has added, which is then nobody's.
  std::set<unsigned long> TakeAdded() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return std::exchange(added_, {});
  }
  // The former one ends outside of the lock, which its connections may be waiting for.
  void Exchange(std::unique_ptr<SCA_TikaServiceServer> port) {
    const std::lock_guard<std::mutex> guard(mutex_);
    std::swap(port_, port);
  }
  FaultServerOptions TikaOn(unsigned short port) {
    FaultServerOptions options;
    options.address = address_;
    options.port = port;
    options.choose = [this](const DocumentHead&) {
      asked.fetch_add(1);
      EXPECT_TRUE(Eventually([this] { return isDying_.load() || served.load() < limit.load(); }));
      if (!isDying_.load()) served.fetch_add(1);
      FaultSpec fault;
      if (isDying_.load()) ParseFault("close", &fault);
      return fault;
    };
    return options;
  }

  const char* const address_;
  unsigned short controlPort_ = 0;
  FakeFactory factory_;
  std::mutex mutex_;
  SCA_TikaServerList list_;
  std::set<unsigned long> added_;
  std::atomic<bool> isDying_{false};
  std::map<unsigned short, FaultServer> running_;  // by port
  std::unique_ptr<SCA_TikaServiceServer> port_;
};

#endif  // SCA_TESTS_SUPPORT_SCRIPTEDHOST_H
