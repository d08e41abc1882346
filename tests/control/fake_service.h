/// A service host that records its calls and answers with marked values.
#ifndef SCA_TESTS_CONTROL_FAKE_SERVICE_H
#define SCA_TESTS_CONTROL_FAKE_SERVICE_H

#include <atomic>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "control/SCA_NetServerAgent.h"
#include "control/SCA_ServiceCommands.h"

/// Each operation records its call, "NAME VALUE VALUE", and marks what it gives: the n-th number is
/// n below the largest of its type, the n-th text "text n of NAME", the n-th object has the field
/// "Mark" with n.
class FakeService : public SCA_TikaServiceVirtual {
 public:
  bool fails = false;                        ///< every operation gives 0, after filling its outputs
  std::function<void(SCA_ConfigObj*)> fill;  ///< fills each object that is handed out, instead
  std::function<void()> onGetStatus;

  std::vector<std::string> Calls() const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return calls_;
  }

 protected:
  int Record(std::string call, const std::vector<unsigned long>& numbers = {}) {
    for (const unsigned long number : numbers) call += " " + std::to_string(number);
    const std::lock_guard<std::mutex> guard(mutex_);
    calls_.push_back(call);
    return fails ? 0 : 1;
  }

 private:
  struct Marker {
    const std::string name;
    std::string call;
    unsigned mark;
    FakeService* service;

    void Take(const char* text) { call += std::string(" ") + text; }
    void Take(unsigned long number) { call += " " + std::to_string(number); }
    void Take(unsigned long* number) { *number = 0xFFFFFFFF - ++mark; }
    void Take(unsigned long long* number) { *number = ~0ULL - ++mark; }
    void Take(char* text) {
      std::snprintf(text, SCA_ServiceTextSize, "text %u of %s", ++mark, name.c_str());
    }
    void Take(SCA_ConfigObj** object) {
      *object = new SCA_ConfigObj("Another name", nullptr);
      ++mark;
      if (service->fill) return service->fill(*object);
      (*object)->AddField("Mark", mark, 0);
    }
  };
  auto Answer(const char* name) {
    return [this, name](auto... arguments) {
      if (onGetStatus && std::string("GetStatus") == name) onGetStatus();
      Marker marker{name, name, 0, this};
      (marker.Take(arguments), ...);
      return Record(marker.call);
    };
  }

 public:
#define SCA_FAKE(name, parameters, arguments, fields) \
  int name parameters override {                      \
    return Answer(#name) arguments;                   \
  }
  SCA_SERVICE_COMMANDS(SCA_FAKE)
#undef SCA_FAKE

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> calls_;
};

/// Gives every connection the one service, and counts who is there.
class FakeFactory : public SCA_TikaServiceVirtualFactory {
 public:
  explicit FakeFactory(SCA_TikaServiceVirtual* service, unsigned long mode = 0)
      : service_(service), mode_(mode) {}

  int OnConnect(SCA_NetServerAgent* agent) override {
    authenticated += agent->IsAuthenticated();
    ++connects;
    return 0;  // not looked at
  }
  SCA_TikaServiceVirtual* GetServiceObject(unsigned long /*agentId*/) override {
    return connects > disconnects ? service_ : nullptr;
  }
  int OnDisconnect(unsigned long /*agentId*/) override {
    if (onDisconnect) onDisconnect();
    ++disconnects;
    return 0;
  }
  unsigned long GetLoginMode() override { return mode_; }

  std::function<void()> onDisconnect;

  std::atomic<int> connects{0};
  std::atomic<int> disconnects{0};
  std::atomic<int> authenticated{0};

 private:
  SCA_TikaServiceVirtual* service_;
  const unsigned long mode_;
};

#endif  // SCA_TESTS_CONTROL_FAKE_SERVICE_H
