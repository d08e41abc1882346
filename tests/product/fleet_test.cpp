#include "product/SCA_TikaFleet.h"

#include <gtest/gtest.h>

#include "tests/support/ScriptedHost.h"
#include "tests/support/TempDir.h"

namespace {

struct NoSink : SCA_TikaTextSink {
  int Write(const char*, unsigned long, unsigned long) override { return 1; }
  int Restart() override { return 1; }
};

// The last state of the only server.
struct Watcher : SCA_TikaFleetObserver {
  void OnServer(const SCA_TikaServerNews& news) override { state.store(news.state); }
  std::atomic<SCA_TikaServerState> state{SCA_TikaServerState::Wanted};
};

TEST(Fleet, ServersAreUsedOnlyWhileTheHostRunsThem) {
  using State = SCA_TikaServerState;
  const TempDir dir;
  const std::string file = dir.Write("x.pdf", "x");
  ScriptedHost host("127.0.0.1");
  SCA_TikaConfigOrv settings;
  SCA_TikaService* service = nullptr;
  settings.SetMode(SCA_TikaModeEnabled);
  ASSERT_EQ(settings.GetServiceList()->AddService(host.Address(), &service), 1);
  service->SetControlPort(host.ControlPort());
  service->SetNumOfServers(0);
  SCA_TikaDispatchLimits limits;
  limits.noServerMs = 0;
  limits.idleMs = 1;  // each document needs a connection of its own
  SCA_TikaDispatcher dispatcher(&settings, limits);
  Watcher watcher;
  SCA_TikaFleet fleet(&dispatcher, &watcher);
  unsigned long error = 0;
  const unsigned short port = host.Keep(SCA_ServerPending);  // answers nobody so far
  const auto extract = [&] {
    const SCA_Owned<SCA_TikaExtractRequest> request(
        new SCA_TikaExtractRequest(file.c_str(), "pdf", "Default", new NoSink));
    EXPECT_EQ(dispatcher.Submit(request.get(), 1, &error), 1) << SCA_ErrorText(error);
    EXPECT_EQ(request->GetReady()->Wait(kDeadlineMs), 1);
    return request->GetOutcome();
  };
  const auto becomes = [&](State state, SCA_TikaOutcome outcome) {
    // The observer is told before the others.
    EXPECT_TRUE(Eventually([&] {
      return watcher.state.load() == state &&
             fleet.IsReady(service->GetServiceId(), port) == (state == State::Ready ? 1 : 0);
    }));
    EXPECT_EQ(fleet.WaitForServer(SCA_Infinite, nullptr), state == State::Ready ? 1 : 0);
    EXPECT_EQ(extract(), outcome);
  };
  ASSERT_EQ(fleet.Follow(service, "", &error), 1);
  EXPECT_EQ(fleet.Follow(service, "", &error), 0) << "is followed already";
  EXPECT_EQ(fleet.WaitForServer(10, nullptr), 0);
  SCA_Event cancel(1, 1);
  EXPECT_EQ(fleet.WaitForServer(SCA_Infinite, &cancel), 0);
  for (int i = 0; i < 2; ++i) {
    host.SetStatus(port, SCA_ServerActive);
    becomes(State::Ready, SCA_TikaOutcome::Extracted);
    host.SetStatus(port, SCA_ServerInactive);
    becomes(State::Stopped, SCA_TikaOutcome::NoServer);
  }
  host.SetStatus(port, SCA_ServerActive);
  becomes(State::Ready, SCA_TikaOutcome::Extracted);
  host.Close();
  EXPECT_TRUE(Eventually([&] { return fleet.IsReady(service->GetServiceId(), port) == 0; }));
  EXPECT_EQ(extract(), SCA_TikaOutcome::Extracted) << "a server lives on without its host";
  host.Die();
  host.Open();  // without the server
  becomes(State::Deleted, SCA_TikaOutcome::NoServer);
  fleet.Leave();
  EXPECT_EQ(fleet.Follow(service, "", &error), 0);
  EXPECT_EQ(error, SCA_ErrorStopping);
}

}  // namespace
