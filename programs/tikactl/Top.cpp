// Servers with their rates, again and again.

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdio>
#include <map>

#include "platform/SCA_Time.h"
#include "programs/common/Escape.h"
#include "programs/common/Json.h"
#include "programs/tikactl/Commands.h"
#include "programs/tikactl/Fields.h"
#include "programs/tikactl/Health.h"
#include "programs/tikactl/Terminal.h"

namespace {

namespace ServerField = SCA_ServerFields;
namespace ServiceField = SCA_ServiceFields;
using Clock = std::chrono::steady_clock;

constexpr double kIntervalSeconds = 2;
constexpr int kLookMs = 50;  // between two looks at the cancel event
constexpr const char* kCounters[] = {ServerField::ReadData, ServerField::WriteData,
                                     ServerField::ReadIops, ServerField::WriteIops};

// Per second; empty when they are not known.
using Rates = std::vector<double>;

// What was counted of one server when it was looked at last.
struct Counts {
  unsigned long long processId = 0;
  Clock::time_point when;
  std::vector<unsigned long long> values;
};

Counts CountsOf(const Fields& server) {
  Counts counts{server.NumberOr(ServerField::ProcessId, 0), Clock::now(), {}};
  for (const char* name : kCounters) counts.values.push_back(server.NumberOr(name, 0));
  return counts;
}

// One host as it changes.
class Sampler {
 public:
  void Take(Host* host) {
    if (!host->IsConnected()) host->Connect();
    host->GetStatus(&service_, &servers_);
    std::map<std::string, Counts> counts;
    rates_.clear();
    ForEachServer(*servers_, [&](const std::string& id, const Fields& server) {
      rates_[id] = RatesOf(id, server);
      counts[id] = CountsOf(server);
    });
    counts_ = std::move(counts);
  }

  std::vector<std::string> Lines(const Host& host, std::size_t width) const;
  nlohmann::ordered_json Json() const;

 private:
  // Since the last look; at first, or after a restart, since the process started.
  Rates RatesOf(const std::string& id, const Fields& server) const {
    const Counts now = CountsOf(server);
    if (now.processId == 0) return {};
    Counts before{now.processId, {}, std::vector<unsigned long long>(now.values.size())};
    double seconds = static_cast<double>(server.NumberOr(ServerField::UpTime, 0)) / 1000;
    const auto known = counts_.find(id);
    if (known != counts_.end() && known->second.processId == now.processId) {
      before = known->second;
      seconds = std::chrono::duration<double>(now.when - before.when).count();
    }
    if (seconds <= 0) return {};
    Rates rates;
    for (std::size_t i = 0; i < now.values.size(); ++i) {
      const bool hasGrown = now.values[i] > before.values[i];
      rates.push_back(hasGrown ? static_cast<double>(now.values[i] - before.values[i]) / seconds
                               : 0);
    }
    return rates;
  }

  ConfigObject service_;
  ConfigObject servers_;
  std::map<std::string, Counts> counts_;
  std::map<std::string, Rates> rates_;
};

std::string RateText(const Rates& rates, std::size_t which, bool isBytes) {
  if (rates.empty()) return "-";
  const auto rate = static_cast<unsigned long long>(std::llround(rates[which]));
  return isBytes ? Size(rate) : std::to_string(rate);
}

std::vector<std::string> Sampler::Lines(const Host& host, std::size_t width) const {
  const Fields service(service_.get());
  const Health health = Judge(host, service, *servers_);
  const std::string figures =
      "up " + Duration(service.NumberOr(ServiceField::UpTime, 0)) + ", memory " +
      Size(service.NumberOr(ServiceField::MemoryUsage, 0)) + ", requests " +
      std::to_string(service.NumberOr(ServiceField::Requests, 0)) + ", deaths " +
      std::to_string(service.NumberOr(ServiceField::Deaths, 0));
  std::vector<std::string> lines{
      Paint(ClipToWidth(health.text, width), health.isWell ? Colour::Green : Colour::Red),
      ClipToWidth(figures, width)};
  Table table({{"ID", Align::Right},
               {"PORT", Align::Right},
               {"STATE"},
               {"UP", Align::Right},
               {"MEMORY", Align::Right},
               {"READ/s", Align::Right},
               {"WRITE/s", Align::Right},
               {"R OPS/s", Align::Right},
               {"W OPS/s", Align::Right},
               {"ANSWER", Align::Right},
               {"RESTARTS", Align::Right}});
  ForEachServer(*servers_, [&](const std::string& id, const Fields& server) {
    const Rates& rates = rates_.at(id);
    const bool isReady = StateOf(server) == ServerState::Ready;
    const auto number = [&server](const char* name) {
      return std::to_string(server.NumberOr(name, 0));
    };
    table.Add({id, number(ServerField::Port), StateCell(server),
               Duration(server.NumberOr(ServerField::UpTime, 0)),
               Size(server.NumberOr(ServerField::MemoryUsage, 0)), RateText(rates, 0, true),
               RateText(rates, 1, true), RateText(rates, 2, false), RateText(rates, 3, false),
               isReady ? Duration(server.NumberOr(ServerField::AnswerTime, 0)) : "-",
               number(ServerField::Restarts)});
  });
  if (servers_->GetFieldCount() == 0) return lines;
  for (std::string& line : table.Lines(width)) lines.push_back(std::move(line));
  return lines;
}

nlohmann::ordered_json Sampler::Json() const {
  nlohmann::ordered_json json = NewJsonObject();
  json["service"] = ToJson(*service_);
  nlohmann::ordered_json& rates = json["rates"] = nlohmann::ordered_json::object();
  for (const auto& [id, values] : rates_) {
    nlohmann::ordered_json& server = rates[id] = nlohmann::ordered_json::object();
    static constexpr const char* kNames[] = {"read_bytes", "write_bytes", "read_operations",
                                             "write_operations"};
    for (std::size_t i = 0; i < values.size(); ++i) server[kNames[i]] = values[i];
  }
  json["servers"] = ToJson(*servers_);
  return json;
}

// One after another, for files and pipes.
Status PrintTables(Session& session, unsigned long count, unsigned long intervalMs) {
  const Options& options = session.GetOptions();
  std::vector<Sampler> samplers(options.hosts.size());
  Status status = kDone;
  for (unsigned long i = 0; i < count; ++i) {
    if (i > 0 && session.Cancel().Wait(intervalMs) != 0) return kInterrupted;
    if (i > 0 && !options.json) std::printf("\n");
    status = session.OnEachHost(
        [&samplers](Call& call) {
          Sampler& sampler = samplers[call.index];
          sampler.Take(&call.host);
          if (!call.options.json) {
            call.output.Print(sampler.Lines(call.host, Terminal::Width()));
            return;
          }
          nlohmann::ordered_json record = call.Record();
          record.update(sampler.Json());
          call.Print(record);
        },
        false);
    if (!IsOutputGood()) return kFailed;
  }
  return status;
}

// A host on the screen: what it told last stays there while it is asked again.
class View {
 public:
  View(const HostPort& address, unsigned long timeoutMs) : host_(address, timeoutMs) {}

  void Begin(std::size_t width) {
    if (task_ != nullptr) return;
    task_ = std::make_unique<Task>([this, width] { Ask(width); });
  }
  bool Wait(unsigned long timeoutMs) {
    if (task_ == nullptr) return true;
    if (!task_->Wait(timeoutMs)) return false;
    task_.reset();
    shown_ = std::move(next_);
    return true;
  }
  void AddTo(std::vector<std::string>* lines) const {
    const bool isLate = task_ != nullptr;
    lines->push_back(Paint("== " + host_.Name() + " ==", Colour::Bold) +
                     (isLate ? " has not answered yet" : ""));
    lines->insert(lines->end(), shown_.begin(), shown_.end());
    lines->emplace_back();
  }

 private:
  void Ask(std::size_t width) {
    try {
      sampler_.Take(&host_);
      next_ = sampler_.Lines(host_, width);
    } catch (const Failure& failure) {
      next_ = {Paint(ClipToWidth(failure.text, width), Colour::Red)};
    } catch (const std::exception& error) {
      next_ = {error.what()};
    }
  }

  Host host_;
  Sampler sampler_;
  std::vector<std::string> shown_;
  std::vector<std::string> next_;  // of the task, while there is one
  std::unique_ptr<Task> task_;
};

class Screen {
 public:
  Screen(Session& session, unsigned long intervalMs)
      : cancel_(session.Cancel()), interval_(intervalMs) {
    const Options& options = session.GetOptions();
    for (const HostPort& address : options.hosts) {
      views_.push_back(std::make_unique<View>(address, options.timeoutMs));
    }
  }

  /// Draws until the wanted number is drawn, 'q' is typed or the run is interrupted.
  void Run(unsigned long count) {
    Terminal terminal;
    for (unsigned long i = 0; i < count; ++i) {
      const Clock::time_point next = Clock::now() + interval_;
      for (const auto& view : views_) view->Begin(Terminal::Width());
      // A slow host is shown as it was, and asked no second time meanwhile.
      while (!AreDone() && Clock::now() < next) {
        if (IsLeft(terminal)) return;
      }
      Draw(&terminal);
      while (Clock::now() < next) {
        if (IsLeft(terminal)) return;
      }
    }
  }

  bool AreDone() {
    bool areDone = true;
    for (const auto& view : views_) areDone = view->Wait(0) && areDone;
    return areDone;
  }

 private:
  bool IsLeft(Terminal& terminal) {
    return terminal.WaitForKey(kLookMs) == 'q' || cancel_.Wait(0) != 0;
  }
  void Draw(Terminal* terminal) const {
    std::vector<std::string> lines{"tikactl top, " + When(SCA_GetAbsTime()) + "; q ends", ""};
    for (const auto& view : views_) view->AddTo(&lines);
    terminal->Draw(lines);
  }

  SCA_Event& cancel_;
  const std::chrono::milliseconds interval_;
  std::vector<std::unique_ptr<View>> views_;
};

}  // namespace

Status Top(Session& session) {
  const Options& options = session.GetOptions();
  const auto intervalMs =
      static_cast<unsigned long>(options.intervalSeconds.value_or(kIntervalSeconds) * 1000);
  const unsigned long count = options.count.value_or(ULONG_MAX);
  if (count == 1 || options.json || !Terminal::IsUsable()) {
    return PrintTables(session, count, intervalMs);
  }
  Screen screen(session, intervalMs);
  screen.Run(count);
  // With a host that keeps silent there is nothing to wait for.
  if (!screen.AreDone()) session.Leave(kDone);
  return kDone;
}
