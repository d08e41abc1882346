#include "supervision/SCA_TikaRecycler.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <new>
#include <optional>
#include <thread>

#include "platform/SCA_Error.h"
#include "platform/SCA_Memory.h"
#include "platform/SCA_PortHolder.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Sync.h"

namespace {

using Clock = std::chrono::steady_clock;
using Phase = SCA_TikaSuccession;
using Tenures = std::vector<SCA_TikaTenure>;

constexpr unsigned long kNoServer = 0xFFFFFFFF;

std::string Duration(unsigned long long ms) {
  const unsigned long long seconds = ms / 1000;
  if (seconds >= 7200) return std::to_string(seconds / 3600) + " h";
  if (seconds >= 120) return std::to_string(seconds / 60) + " min";
  return std::to_string(seconds) + " s";
}

std::string Mebibytes(unsigned long long bytes) {
  return std::to_string(bytes >> 20) + " MiB";
}

const SCA_TikaTenure* Find(const Tenures& tenures, unsigned long serverId) {
  const auto found = std::find_if(tenures.begin(), tenures.end(),
                                  [=](const auto& tenure) { return tenure.serverId == serverId; });
  return found != tenures.end() ? &*found : nullptr;
}

}  // namespace

SCA_TikaRecyclerOwner::~SCA_TikaRecyclerOwner() = default;

class SCA_TikaRecycler::Core {
 public:
  Core(const SCA_TikaRecycleRules& rules, SCA_TikaRecyclerOwner* owner)
      : rules_(rules), owner_(owner) {
    if (ending_.IsValid() == 0) throw std::bad_alloc();
    thread_ = std::thread([this] { Run(); });
  }
  ~Core() {
    ending_.Set();
    thread_.join();
  }

  Phase GetPhase() const { return phase_.load(std::memory_order_relaxed); }
  unsigned long long GetCount() const { return count_.load(std::memory_order_relaxed); }

 private:
  void Run();
  void Look();
  void Begin(const Tenures& tenures);
  void AwaitSuccessor(const Tenures& tenures);
  void Overlap();
  void Finish();
  void Enter(Phase phase);
  void Fail(const std::string& why);
  void Abandon(const std::string& why, unsigned long nextTryMs);
  std::string WhyReplace(const SCA_TikaTenure& tenure) const;
  bool HasPassed(unsigned long limitMs) const {
    return Clock::now() - since_ >= std::chrono::milliseconds(limitMs);
  }

  const SCA_TikaRecycleRules rules_;
  SCA_TikaRecyclerOwner* const owner_;
  SCA_Event ending_{1, 0};
  std::atomic<Phase> phase_{Phase::None};
  std::atomic<unsigned long long> count_{0};

  // The thread's own.
  unsigned long serverId_ = kNoServer;
  unsigned short port_ = 0;  // of that server
  unsigned long successorId_ = kNoServer;
  Clock::time_point since_ = Clock::now();    // the phase began
  Clock::time_point nextTry_ = Clock::now();  // after a failure
  unsigned long delayMs_ = 0;                 // before it; 0 after a success

  std::thread thread_;
};

void SCA_TikaRecycler::Core::Run() {
  while (ending_.Wait(rules_.lookMs) == 0) {
    try {
      Look();
    } catch (const std::exception&) {
      // Without memory nothing can be decided; the next look may have some.
    }
  }
}

void SCA_TikaRecycler::Core::Look() {
  if (GetPhase() == Phase::Finishing) return Finish();
  Tenures tenures;
  if (owner_->GetTenures(&tenures) == 0) return;
  if (GetPhase() == Phase::None) return Begin(tenures);
  AwaitSuccessor(tenures);
}

// The limits are looked at in this order, and the longest reign is over first.
std::string SCA_TikaRecycler::Core::WhyReplace(const SCA_TikaTenure& tenure) const {
  const auto reaches = [](unsigned long long value, unsigned long long limit) {
    return limit != 0 && value >= limit;
  };
  if (tenure.isReady == 0 || tenure.isBound != 0) return {};
  if (reaches(tenure.documents, rules_.documents)) {
    return "it has begun " + std::to_string(tenure.documents) + " documents";
  }
  if (reaches(tenure.upTimeMs, rules_.upTimeMs)) {
    return "it has run for " + Duration(tenure.upTimeMs);
  }
  if (tenure.upTimeMs >= rules_.memoryAfterMs && reaches(tenure.memoryBytes, rules_.memoryBytes)) {
    return "it uses " + Mebibytes(tenure.memoryBytes) + " of memory";
  }
  return {};
}

void SCA_TikaRecycler::Core::Begin(const Tenures& tenures) {
  if (Clock::now() < nextTry_) return;
  const SCA_TikaTenure* oldest = nullptr;
  for (const SCA_TikaTenure& tenure : tenures) {
    const bool isOlder = oldest == nullptr || tenure.upTimeMs > oldest->upTimeMs;
    if (isOlder && !WhyReplace(tenure).empty()) oldest = &tenure;
  }
  if (oldest == nullptr) return;
  serverId_ = oldest->serverId;
  port_ = oldest->port;
  successorId_ = kNoServer;
  const unsigned long long spare = SCA_GetAvailableMemory();
  if (spare < rules_.spareBytes) {
    return Fail("only " + Mebibytes(spare) + " of memory are free, and a successor needs " +
                Mebibytes(rules_.spareBytes));
  }
  unsigned long error = SCA_ErrorCannotCreate;
  const std::string why = WhyReplace(*oldest);
  if (owner_->StartSuccessor(serverId_, why.c_str(), &successorId_, &error) == 0) {
    successorId_ = kNoServer;
    return Fail(std::string("it cannot be started: ") + SCA_ErrorText(error));
  }
  Enter(Phase::Starting);
}

// Also while both serve: either may still be deleted, asked for, or die.
void SCA_TikaRecycler::Core::AwaitSuccessor(const Tenures& tenures) {
  const SCA_TikaTenure* const server = Find(tenures, serverId_);
  const SCA_TikaTenure* const successor = Find(tenures, successorId_);
  if (successor == nullptr) return Fail("it was deleted");
  if (server == nullptr) return Abandon("the server that it was to replace was deleted", 0);
  if (server->isBound != 0) return Abandon("the server may not be replaced now", 0);
  if (successor->isReady != 0) {
    if (GetPhase() == Phase::Starting) Enter(Phase::Overlapping);
    return Overlap();
  }
  if (GetPhase() == Phase::Overlapping) Enter(Phase::Starting);
  if (HasPassed(rules_.readyLimitMs)) {
    Fail("it has not answered within " + Duration(rules_.readyLimitMs));
  }
}

void SCA_TikaRecycler::Core::Overlap() {
  if (!HasPassed(rules_.noticeMs)) return;
  if (owner_->Withdraw(serverId_, successorId_) == 0) {
    return Abandon("the server that it was to replace is needed", 0);
  }
  count_.fetch_add(1, std::memory_order_relaxed);
  delayMs_ = 0;
  Enter(Phase::Finishing);
}

// A client that has not seen the withdrawal yet may still send a document.
void SCA_TikaRecycler::Core::Finish() {
  if (!HasPassed(rules_.noticeMs)) return;
  const std::optional<unsigned long> connections = SCA_CountConnections(port_);
  const bool isFinished = connections.has_value() && *connections == 0;
  if (!isFinished && !HasPassed(rules_.finishLimitMs)) return;
  owner_->StopWithdrawn(serverId_, connections.value_or(0));
  Enter(Phase::None);
}

void SCA_TikaRecycler::Core::Enter(Phase phase) {
  phase_.store(phase, std::memory_order_relaxed);
  since_ = Clock::now();
}

void SCA_TikaRecycler::Core::Fail(const std::string& why) {
  delayMs_ = std::clamp(delayMs_ * 2, rules_.firstDelayMs, rules_.lastDelayMs);
  nextTry_ = Clock::now() + std::chrono::milliseconds(delayMs_);
  Abandon(why, delayMs_);
}

void SCA_TikaRecycler::Core::Abandon(const std::string& why, unsigned long nextTryMs) {
  Enter(Phase::None);
  owner_->AbandonSuccession(serverId_, successorId_, why.c_str(), nextTryMs);
}

SCA_TikaRecycler::SCA_TikaRecycler(const SCA_TikaRecycleRules& rules,
                                   SCA_TikaRecyclerOwner* owner) {
  const SCA_Result made = SCA_Guarded([&] {
    core_ = std::make_unique<Core>(rules, owner);
    return SCA_Done;
  });
  SetValid(made.HasFailed() ? 0 : 1);
}

SCA_TikaRecycler::~SCA_TikaRecycler() = default;

SCA_TikaSuccession SCA_TikaRecycler::GetSuccession() const {
  return core_ != nullptr ? core_->GetPhase() : SCA_TikaSuccession::None;
}

unsigned long long SCA_TikaRecycler::GetCount() const {
  return core_ != nullptr ? core_->GetCount() : 0;
}
