// The recycler with an owner whose servers are only said to be there, and connections that are
// real.

#include "supervision/SCA_TikaRecycler.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cerrno>
#include <mutex>
#include <optional>

#include "faultlab/ServerConnection.h"
#include "platform/SCA_PortHolder.h"
#include "platform/SCA_TcpSock.h"
#include "tests/support/Timing.h"

namespace {

constexpr unsigned long kNone = 0xFFFFFFFF;

// Writes down what it is told, in lines.
class Owner : public SCA_TikaRecyclerOwner {
 public:
  explicit Owner(const SCA_TikaTenure& tenure) : tenures_{tenure} {}

  int GetTenures(std::vector<SCA_TikaTenure>* tenures) override {
    const std::lock_guard<std::mutex> guard(mutex_);
    *tenures = tenures_;
    return 1;
  }
  int StartSuccessor(unsigned long id, const char* why, unsigned long* successorId,
                     unsigned long* error) override {
    Note("start for " + std::to_string(id) + ": " + why);
    *error = static_cast<unsigned long>(ENOENT);
    if (!canStart) return 0;
    const std::lock_guard<std::mutex> guard(mutex_);
    SCA_TikaTenure successor;
    successor.serverId = *successorId = id + 1;
    successor.isReady = comesUp ? 1 : 0;
    tenures_.push_back(successor);
    return 1;
  }
  int Withdraw(unsigned long id, unsigned long successorId) override {
    Note("withdraw " + std::to_string(id) + " for " + std::to_string(successorId));
    const std::lock_guard<std::mutex> guard(mutex_);
    tenures_.erase(tenures_.begin());
    return 1;
  }
  void StopWithdrawn(unsigned long id, unsigned long connections) override {
    Note("stop " + std::to_string(id) + " with " + std::to_string(connections));
  }
  void AbandonSuccession(unsigned long, unsigned long successorId, const char* why,
                         unsigned long nextTryMs) override {
    const std::string whose = successorId != kNone ? "its" : "no";
    Note("abandon " + whose + " successor: " + why + ", " + std::to_string(nextTryMs));
    const std::lock_guard<std::mutex> guard(mutex_);
    if (successorId != kNone && tenures_.size() > 1) tenures_.pop_back();
  }

  template <class Change>
  void Set(Change change) {
    const std::lock_guard<std::mutex> guard(mutex_);
    change(&tenures_);
  }
  bool Comes(const std::string& line, std::size_t times = 1) {
    return Eventually([&] {
      const std::lock_guard<std::mutex> guard(mutex_);
      std::size_t count = 0;
      for (const std::string& said : said_) count += said.find(line) != std::string::npos ? 1 : 0;
      return count >= times;
    });
  }
  std::vector<std::string> Said() {
    const std::lock_guard<std::mutex> guard(mutex_);
    return said_;
  }

  bool canStart = true;
  bool comesUp = true;

 private:
  void Note(const std::string& line) {
    const std::lock_guard<std::mutex> guard(mutex_);
    said_.push_back(line);
  }

  std::mutex mutex_;
  std::vector<SCA_TikaTenure> tenures_;
  std::vector<std::string> said_;
};

SCA_TikaTenure Tenure() {
  SCA_TikaTenure tenure;
  tenure.isReady = 1;
  tenure.documents = 100;
  tenure.upTimeMs = 7200000;
  tenure.memoryBytes = 300 << 20;
  return tenure;
}

SCA_TikaRecycleRules Rules() {
  SCA_TikaRecycleRules rules;
  rules.lookMs = 5;
  rules.noticeMs = 20;
  rules.spareBytes = 1;
  return rules;
}

TEST(Recycler, LimitsOfAllKindsAreKept) {
  const struct {
    unsigned long long SCA_TikaRecycleRules::*limit;
    unsigned long long reached;
    const char* why;
  } rows[] = {
      {&SCA_TikaRecycleRules::documents, 100, "it has begun 100 documents"},
      {&SCA_TikaRecycleRules::upTimeMs, 7200000, "it has run for 2 h"},
      {&SCA_TikaRecycleRules::memoryBytes, 300 << 20, "it uses 300 MiB of memory"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.why);
    SCA_TikaRecycleRules rules = Rules();
    rules.*row.limit = row.reached + 1;
    Owner below(Tenure());
    {
      const SCA_TikaRecycler none(rules, &below);
      rules.*row.limit = row.reached;
      Owner at(Tenure());
      const SCA_TikaRecycler recycler(rules, &at);
      EXPECT_TRUE(at.Comes("stop 0 with 0"));
      EXPECT_EQ(at.Said(), (std::vector<std::string>{std::string("start for 0: ") + row.why,
                                                     "withdraw 0 for 1", "stop 0 with 0"}));
      EXPECT_EQ(recycler.GetCount(), 1ULL);
    }
    EXPECT_TRUE(below.Said().empty());
  }
}

TEST(Recycler, ServerFinishesWhatIsConnected) {
  for (const bool isPatient : {true, false}) {
    Listener listener("127.0.0.1", 0, 1);
    SCA_TikaTenure tenure = Tenure();
    tenure.port = listener.Port();
    SCA_TcpSock client;
    unsigned long error = 0;
    ASSERT_EQ(client.Connect("127.0.0.1", tenure.port, 5000, &error), 1);
    SCA_TikaRecycleRules rules = Rules();
    rules.documents = 1;
    if (!isPatient) rules.finishLimitMs = 50;
    Owner owner(tenure);
    const SCA_TikaRecycler recycler(rules, &owner);
    ASSERT_TRUE(owner.Comes("withdraw 0"));
    ASSERT_TRUE(Eventually(
        [&] { return !isPatient || recycler.GetSuccession() == SCA_TikaSuccession::Finishing; }));
    if (isPatient) {
      const auto isStopped = [&] { return owner.Said().size() > 2; };
      EXPECT_FALSE(Eventually(isStopped, 100)) << "stopped early";
      client.Shutdown();
      EXPECT_FALSE(Eventually(isStopped, 100)) << "a client that sends no more awaits its reply";
      listener.Close();
    }
    EXPECT_TRUE(owner.Comes(isPatient ? "stop 0 with 0" : "stop 0 with 1"));
  }
}

TEST(Recycler, UnreadableConnectionsAreNotNone) {
  const Listener listener("127.0.0.1", 0, 1);
  EXPECT_EQ(SCA_CountConnections(listener.Port()), 0UL);
  rlimit descriptors{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &descriptors), 0);
  const rlimit none{0, descriptors.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const std::optional<unsigned long> count = SCA_CountConnections(listener.Port());
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &descriptors), 0);
  EXPECT_FALSE(count.has_value());
}

TEST(Recycler, ServerStaysUntilASuccessorComesUp) {
  SCA_TikaRecycleRules rules = Rules();
  rules.documents = 1;
  rules.readyLimitMs = 10;
  rules.firstDelayMs = 10;
  rules.lastDelayMs = 40;
  Owner mute(Tenure());
  mute.comesUp = false;
  Owner refusing(Tenure());
  refusing.canStart = false;
  Owner poor(Tenure());
  {
    const SCA_TikaRecycler first(rules, &mute);
    const SCA_TikaRecycler second(rules, &refusing);
    rules.spareBytes = 1ULL << 60;
    const SCA_TikaRecycler third(rules, &poor);
    EXPECT_TRUE(mute.Comes("abandon its successor: it has not answered within 0 s, 40", 2));
    EXPECT_TRUE(refusing.Comes("abandon no successor: it cannot be started: No such file", 2));
    EXPECT_TRUE(poor.Comes("abandon no successor: only ", 4));
    EXPECT_EQ(first.GetCount() + second.GetCount() + third.GetCount(), 0ULL);
  }
  const char* const delays[] = {", 10", ", 20", ", 40", ", 40"};
  for (std::size_t i = 0; i < 4; ++i) {
    const std::string said = poor.Said()[i];
    EXPECT_EQ(said.substr(said.rfind(',')), delays[i]);
  }
}

TEST(Recycler, ServerThatIsAskedForMeanwhileStays) {
  SCA_TikaRecycleRules rules = Rules();
  rules.documents = 1;
  Owner owner(Tenure());
  owner.comesUp = false;
  const SCA_TikaRecycler recycler(rules, &owner);
  ASSERT_TRUE(owner.Comes("start for 0"));
  owner.Set([](auto* tenures) {
    tenures->front().isBound = 1;
    tenures->back().isReady = 1;
  });
  EXPECT_TRUE(owner.Comes("abandon its successor: the server may not be replaced now, 0"));
  owner.comesUp = true;
  owner.Set([](auto* tenures) { tenures->front().isBound = 0; });
  EXPECT_TRUE(owner.Comes("stop 0 with 0"));
}

}  // namespace
