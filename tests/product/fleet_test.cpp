#include "product/SCA_TikaFleet.h"

#include <gtest/gtest.h>

#include <mutex>

#include "tests/support/ScriptedHost.h"
#include "tests/support/TempDir.h"

namespace {

// Keeps the texts of all news, one after the other.
class Chronicle : public SCA_TikaFleetObserver {
 public:
  void OnHost(const SCA_TikaHostNews& news) override { Add("host", news.text); }
  void OnServer(const SCA_TikaServerNews& news) override {
    Add("server " + std::to_string(static_cast<int>(news.state)), news.text);
  }
  bool Has(const std::string& text) const {
    const std::lock_guard<std::mutex> guard(mutex_);
    return text_.find(text) != std::string::npos;
  }

 private:
  void Add(const std::string& subject, const char* text) {
    const std::lock_guard<std::mutex> guard(mutex_);
    text_ += subject + ": " + text + "\n";
  }

  mutable std::mutex mutex_;
  std::string text_;
};

struct NoSink : SCA_TikaTextSink {
  int Write(const char*, unsigned long, unsigned long) override { return 1; }
  int Restart() override { return 1; }
};

class Fleet : public ::testing::Test {
 protected:
  Fleet() {
    limits_.noServerMs = 0;
    settings_.SetMode(SCA_TikaModeEnabled);
    settings_.GetServiceList()->AddService(host_.Address().c_str(), &service_);
    service_->SetControlPort(host_.ControlPort());
    service_->SetNumOfServers(0);
    dispatcher_.reset(new SCA_TikaDispatcher(&settings_, limits_));
    fleet_.reset(new SCA_TikaFleet(dispatcher_.get(), &chronicle_));
  }

  SCA_TikaOutcome Extract() {
    const SCA_Owned<SCA_TikaExtractRequest> request(
        new SCA_TikaExtractRequest(file_.c_str(), "pdf", "Default", new NoSink));
    EXPECT_EQ(dispatcher_->Submit(request.get(), 1, &error_), 1) << SCA_ErrorText(error_);
    EXPECT_EQ(request->GetReady()->Wait(kDeadlineMs), 1);
    return request->GetOutcome();
  }

  const TempDir dir_;
  const std::string file_ = dir_.Write("x.pdf", "x");
  ScriptedHost host_{"127.0.0.1", 0};
  Chronicle chronicle_;
  unsigned long error_ = 0;
  SCA_TikaConfigOrv settings_;
  SCA_TikaService* service_ = nullptr;
  SCA_TikaDispatchLimits limits_;
  SCA_Owned<SCA_TikaDispatcher> dispatcher_;
  SCA_Owned<SCA_TikaFleet> fleet_;
};

TEST_F(Fleet, ServersAreUsedOnlyWhileTheHostRunsThem) {
  const unsigned short port = host_.Keep(SCA_ServerActive);
  ASSERT_EQ(fleet_->Follow(service_, "", &error_), 1);
  EXPECT_EQ(fleet_->Follow(service_, "", &error_), 0) << "is followed already";
  ASSERT_EQ(fleet_->WaitForServer(SCA_Infinite, nullptr), 1);
  EXPECT_EQ(fleet_->IsReady(service_->GetServiceId(), port), 1);
  EXPECT_EQ(Extract(), SCA_TikaOutcome::Extracted);
  host_.SetStatus(port, SCA_ServerInactive);
  ASSERT_TRUE(Eventually([&] { return chronicle_.Has("is stopped there"); }));
  EXPECT_EQ(fleet_->WaitForServer(SCA_Infinite, nullptr), 0);
  EXPECT_EQ(Extract(), SCA_TikaOutcome::NoServer);
  host_.SetStatus(port, SCA_ServerActive);
  ASSERT_TRUE(Eventually([&] { return fleet_->WaitForServer(SCA_Infinite, nullptr) != 0; }));
  EXPECT_EQ(Extract(), SCA_TikaOutcome::Extracted);
  // A host that comes back without the server.
  host_.Die();
  host_.Open();
  ASSERT_TRUE(Eventually([&] { return chronicle_.Has("was deleted there"); }));
  EXPECT_EQ(Extract(), SCA_TikaOutcome::NoServer);
  fleet_->Leave();
  EXPECT_EQ(fleet_->Follow(service_, "", &error_), 0);
  EXPECT_EQ(error_, SCA_ErrorStopping);
}

TEST_F(Fleet, WaitEndsInTimeAndWhenNothingCanCome) {
  SCA_Event cancel(1, 1);
  host_.Keep(SCA_ServerPending);  // never answers
  ASSERT_EQ(fleet_->Follow(service_, "", &error_), 1);
  EXPECT_EQ(fleet_->WaitForServer(10, nullptr), 0);
  EXPECT_EQ(fleet_->WaitForServer(SCA_Infinite, &cancel), 0);
  host_.Die();
  EXPECT_EQ(fleet_->WaitForServer(SCA_Infinite, nullptr), 0);
  EXPECT_TRUE(Eventually([&] { return chronicle_.Has("no connection: "); }));
}

}  // namespace
