// How long a request takes to a host and back.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <numeric>

#include "programs/tikactl/Commands.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned long kPings = 4;
constexpr double kIntervalSeconds = 1;

std::string Ms(double ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f ms", ms);
  return text;
}

// The time of one request in milliseconds; a connection that broke is made again, outside of it.
double Measure(Host& host) {
  if (!host.IsConnected()) host.Connect();
  unsigned long status = 0;
  const Clock::time_point begin = Clock::now();
  host.Ask("report its status", &Service::GetStatus, &status);
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

struct Figures {
  double least = 0;
  double mean = 0;
  double most = 0;
};

Figures FiguresOf(const std::vector<double>& times) {
  if (times.empty()) return {};
  const auto [least, most] = std::minmax_element(times.begin(), times.end());
  const double sum = std::accumulate(times.begin(), times.end(), 0.0);
  return {*least, sum / static_cast<double>(times.size()), *most};
}

void Summarise(Call& call, unsigned long sent, const std::vector<double>& times) {
  const Figures figures = FiguresOf(times);
  if (call.options.json) {
    nlohmann::ordered_json record = call.Record();
    record["sent"] = sent;
    record["answered"] = times.size();
    if (!times.empty()) {
      record["min_ms"] = figures.least;
      record["mean_ms"] = figures.mean;
      record["max_ms"] = figures.most;
    }
    record["times_ms"] = times;
    return call.Print(record);
  }
  std::string line = Count(sent, "request") + ", " + std::to_string(times.size()) + " answered";
  if (!times.empty()) {
    line +=
        "; min " + Ms(figures.least) + ", mean " + Ms(figures.mean) + ", max " + Ms(figures.most);
  }
  call.output.Print(line);
}

}  // namespace

void Ping(Call& call) {
  const unsigned long count = call.options.count.value_or(kPings);
  const auto pauseMs =
      static_cast<unsigned long>(call.options.intervalSeconds.value_or(kIntervalSeconds) * 1000);
  std::vector<double> times;
  unsigned long sent = 0;
  try {
    while (sent < count) {
      if (sent > 0) call.Sleep(pauseMs);
      ++sent;
      try {
        times.push_back(Measure(call.host));
        if (!call.options.json) {
          call.output.Print("request " + std::to_string(sent) + " answered in " + Ms(times.back()));
        }
      } catch (const Failure& failure) {
        call.status = std::max(call.status, failure.status);
        call.Note("request " + std::to_string(sent) + ": " + failure.text);
      }
    }
  } catch (const Failure&) {  // interrupted, which is how a long one ends
    Summarise(call, sent, times);
    throw;
  }
  Summarise(call, sent, times);
}
