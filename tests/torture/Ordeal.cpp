#include "tests/torture/Ordeal.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "platform/SCA_Report.h"
#include "tests/support/Timing.h"
#include "tests/support/Worker.h"

extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));  // NOLINT

namespace {

constexpr std::size_t kAtATime = 6;

// How calls fail, and how many of the points of a road are enough. What is only interrupted or
// shortened must fail nothing for good, and does not last.
struct Failing {
  Call call;
  int error;
  int isLasting;
  unsigned long sample;
};
constexpr Failing kFailings[] = {
    {kMemory, ENOMEM, 0, 40},  {kMemory, ENOMEM, 1, 12},     {kOpen, EMFILE, 0, 4},
    {kStat, EIO, 0, 3},        {kRead, EIO, 0, 4},           {kRead, EINTR, 0, 2},
    {kRead, kShort, 1, 1},     {kWrite, ENOSPC, 0, 4},       {kWrite, EINTR, 0, 2},
    {kWrite, kShort, 1, 1},    {kSync, EIO, 0, 3},           {kRename, EIO, 0, 3},
    {kPipe, EMFILE, 0, 4},     {kSocket, EMFILE, 0, 3},      {kConnect, ECONNREFUSED, 0, 3},
    {kSend, ECONNRESET, 0, 4}, {kSend, EAGAIN, 0, 3},        {kSend, EINTR, 0, 2},
    {kSend, kShort, 1, 1},     {kReceive, ECONNRESET, 0, 5}, {kReceive, EAGAIN, 0, 3},
    {kReceive, EINTR, 0, 2},   {kReceive, kShort, 1, 1},     {kPoll, EINTR, 0, 3},
    {kPoll, ENOMEM, 0, 3},     {kAccept, EMFILE, 0, 2},      {kAccept, ECONNABORTED, 0, 2},
    {kClone, EAGAIN, 0, 3},    {kThread, EAGAIN, 0, 4},      {kThread, EAGAIN, 1, 2},
};

// What a child tells; shared with it.
struct Verdict {
  bool hasEnded = false;
  CallCounts counts{};
  char blame[2000] = "";
};
Verdict* own = nullptr;

// Some kilobytes, until the test program ends.
Verdict* MakeShared() {
  return new (::mmap(nullptr, sizeof(Verdict), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                     -1, 0)) Verdict;
}

// An exception ends the process here: the test framework would catch it.
[[noreturn]] void RunChild(Road road, const CallPlan& plan, Verdict* verdict) noexcept {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  own = verdict;
  SCA_SetReportSink([](auto...) {}, nullptr);
  const std::ptrdiff_t descriptors = EntriesIn("/proc/self/fd");
  road(plan);
  const CallCounts counted = CountedCalls();
  for (std::size_t i = 0; i < counted.size(); ++i) verdict->counts[i] += counted[i];
  // A name resolution may outlive the one who asked.
  BlameUnless(Eventually([] { return EntriesIn("/proc/self/task") == 1; }), "a thread is left");
  BlameUnless(EntriesIn("/proc/self/fd") == descriptors, "a descriptor is left");
  BlameUnless(
      __lsan_do_recoverable_leak_check == nullptr || __lsan_do_recoverable_leak_check() == 0,
      "memory is left");
  verdict->hasEnded = true;
  ::_exit(0);
}

struct Child {
  CallPlan plan;
  Verdict* const verdict = MakeShared();
  pid_t pid = 0;
  Stopwatch watch;

  void Start(Road road) {
    pid = ::fork();
    if (pid == 0) RunChild(road, plan, verdict);
  }
  // True once it has ended or had its time.
  bool IsOver() {
    int status = 0;
    if (::waitpid(pid, &status, WNOHANG) == 0) {
      if (watch.Ms() < 3 * kDeadlineMs) return false;
      ::kill(pid, SIGKILL);
      ::waitpid(pid, &status, 0);
      status = 0;
    }
    end = verdict->hasEnded ? "" : "dies, exits or hangs: " + std::to_string(status) + "\n";
    return true;
  }
  std::string Complaint() const { return end + verdict->blame; }

  std::string end;
};

std::vector<CallPlan> PointsOf(const CallCounts& counts, bool takesAll) {
  std::vector<CallPlan> points;
  for (const Failing& failing : kFailings) {
    const unsigned long count = counts[failing.call];
    const unsigned long sample = takesAll ? count : std::min(count, failing.sample);
    for (unsigned long i = 0; i < sample; ++i) {
      const unsigned long nth = 1 + (sample > 1 ? i * (count - 1) / (sample - 1) : 0);
      points.push_back({failing.call, failing.error, nth, failing.isLasting});
    }
  }
  return points;
}

}  // namespace

std::string PlanText(const CallPlan& plan) {
  return std::to_string(plan.call) + " " + std::to_string(plan.error) + " " +
         std::to_string(plan.nth) + " " + std::to_string(plan.isLasting);
}

void BlameUnless(bool isWell, const char* text) {
  if (isWell) return;
  const std::size_t used = std::strlen(own->blame);
  std::snprintf(own->blame + used, sizeof own->blame - used, "%s\n", text);
}

void CountCalls(const CallCounts& counts) {
  own->counts = counts;
}

void Torture(Road road) {
  const char* wish = std::getenv("SCA_TORTURE");
  const bool takesAll = wish != nullptr && std::string(wish) == "all";
  std::vector<CallPlan> points;
  if (wish != nullptr && !takesAll) {
    CallPlan plan;
    std::sscanf(wish, "%d %d %lu %d", &plan.call, &plan.error, &plan.nth, &plan.isLasting);
    points.push_back(plan);
  } else {
    // The road without a failure, which shows how many points it has.
    Child quiet;
    quiet.Start(road);
    ASSERT_TRUE(Eventually([&] { return quiet.IsOver(); }));
    ASSERT_EQ(quiet.Complaint(), "");
    points = PointsOf(quiet.verdict->counts, takesAll);
  }
  std::vector<std::unique_ptr<Child>> running;
  for (std::size_t next = 0; next < points.size() || !running.empty();) {
    while (next < points.size() && running.size() < kAtATime) {
      running.push_back(std::make_unique<Child>());
      running.back()->plan = points[next++];
      running.back()->Start(road);
    }
    const auto over = std::find_if(running.begin(), running.end(),
                                   [](const auto& child) { return child->IsOver(); });
    if (over == running.end()) {
      ::poll(nullptr, 0, 2);
      continue;
    }
    EXPECT_EQ((*over)->Complaint(), "") << "SCA_TORTURE='" << PlanText((*over)->plan) << "'";
    running.erase(over);
  }
  std::printf("%zu points\n", points.size());
}
