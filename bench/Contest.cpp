#include "bench/Contest.h"

#include <time.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "bench/Machine.h"
#include "bench/Peers.h"

namespace {

constexpr int kRounds = 21;
constexpr int kQuickRounds = 3;
constexpr int kMaxFailures = 20;

double ThreadCpu() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// Differences within the spread of either figure say nothing.
const char* Standing(const Figure& ours, const Figure& other) {
  const double difference = other.median - ours.median;
  if (std::abs(difference) <= std::max(ours.spread, other.spread)) return "tie";
  return difference > 0 ? "ahead" : "behind";
}

}  // namespace

BenchOptions BeginBench(int argc, char** argv, const std::string& area) {
  BenchOptions options;
  options.output = "build/bench/" + area + ".jsonl";
  CLI::App app("Measures the library beside its peers: " + area);
  app.add_flag("--quick", options.quick, "A short run whose figures mean little");
  app.add_option("--rounds", options.rounds, "Rounds to take medians of")
      ->check(CLI::Range(1, 999));
  app.add_option("--output", options.output, "File of the rows, one JSON object a line")
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& end) {
    std::exit(app.exit(end));
  }
  if (options.rounds == 0) options.rounds = options.quick ? kQuickRounds : kRounds;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  PrintMachine();
  WarnOfLoad();
  std::printf("%s; congestion control %s; medians of %d interleaved rounds\n",
              PeerVersions().c_str(), DefaultCongestionControl().c_str(), options.rounds);
  return options;
}

Figure Figure::Of(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const auto quantile = [&](double share) {
    const double place = share * static_cast<double>(values.size() - 1);
    const auto below = static_cast<std::size_t>(place);
    const std::size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (values[above] - values[below]) * (place - static_cast<double>(below));
  };
  return {quantile(0.5), quantile(0.75) - quantile(0.25), 0, 0};
}

void Contest::Add(const std::string& name, std::function<void()> prepare, Work work) {
  entries_.push_back({name, std::move(prepare), std::move(work), {}, 0});
}

Contest::Cost Contest::Measure(Entry* entry) {
  for (;;) {
    entry->prepare();
    const double cpu = ThreadCpu();
    const double wall = Now();
    if (entry->work()) return {ThreadCpu() - cpu, Now() - wall};
    if (++entry->failures > kMaxFailures) throw std::runtime_error(entry->name + " keeps failing");
  }
}

void Contest::Run(int rounds) {
  for (Entry& entry : entries_) Measure(&entry);
  Others others;
  judged_ = disturbed_ = 0;
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      Entry& entry = entries_[(i + static_cast<std::size_t>(round)) % entries_.size()];
      entry.costs.push_back(Measure(&entry));
    }
    if (const std::optional<double> share = others.Take()) {
      if (*share > Others::kMost) disturbed_ += round + 1 - judged_;
      judged_ = round + 1;
    }
  }
}

const Contest::Entry& Contest::Find(const std::string& name) const {
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& entry) { return entry.name == name; });
  if (found == entries_.end()) throw std::invalid_argument("no contender " + name);
  return *found;
}

Figure Contest::Ratio(const std::string& name, double Cost::*cost) const {
  const Entry& entry = Find(name);
  std::vector<double> ratios;
  for (std::size_t i = 0; i < entry.costs.size(); ++i) {
    ratios.push_back(entry.costs[i].*cost / entries_.front().costs[i].*cost);
  }
  Figure figure = Figure::Of(ratios);
  figure.disturbed = disturbed_;
  figure.rounds = judged_;
  return figure;
}

double Contest::BaseCpu() const {
  std::vector<double> values;
  for (const Cost& cost : entries_.front().costs) values.push_back(cost.cpu);
  return Figure::Of(values).median;
}

double Contest::BaseWall() const {
  std::vector<double> values;
  for (const Cost& cost : entries_.front().costs) values.push_back(cost.wall);
  return Figure::Of(values).median;
}

void Results::AddCosts(const Contest& contest, const std::string& work, const std::string& ours,
                       std::optional<double> cpuLimit) {
  ResultRow cpu{work, "client CPU", contest.Cpu(ours), cpuLimit, {}};
  ResultRow wall{work, "time", contest.Wall(ours), std::nullopt, {}};
  for (const char* name : kOtherNames) {
    cpu.peers.emplace_back(name, contest.Cpu(name));
    wall.peers.emplace_back(name, contest.Wall(name));
  }
  if (contest.Failures(ours) > 0) {
    std::printf("%s: repeated after %d failures\n", work.c_str(), contest.Failures(ours));
  }
  Add(cpu);
  Add(wall);
}

void Results::Add(ResultRow row) {
  const std::optional<double> share = others_.Take();
  if (row.ours.rounds == 0 && share.has_value()) {
    row.ours.rounds = 1;
    row.ours.disturbed = *share > Others::kMost ? 1 : 0;
  }
  rows_.push_back(std::move(row));
}

void Results::Print() const {
  std::printf("\n%-48s %-16s %13s %6s", "work", "unit", "ours", "limit");
  for (const auto& peer : rows_.front().peers) std::printf("   %-20s", peer.first.c_str());
  std::printf("\n");
  bool isDisturbed = false;
  for (const ResultRow& row : rows_) {
    std::printf("%-48s %-16s %6.2f (%.2f)", row.work.c_str(), row.unit.c_str(), row.ours.median,
                row.ours.spread);
    if (row.limit.has_value()) {
      std::printf(" %5.2f%c", *row.limit, row.ours.median <= *row.limit ? ' ' : '!');
    } else {
      std::printf(" %6s", "");
    }
    for (const auto& peer : row.peers) {
      std::printf("   %5.2f (%.2f) %-6s", peer.second.median, peer.second.spread,
                  Standing(row.ours, peer.second));
    }
    if (row.ours.disturbed > 0) {
      std::printf("  ~%d of %d", row.ours.disturbed, row.ours.rounds);
      isDisturbed = true;
    }
    std::printf("\n");
  }
  std::printf(
      "Ratios to the bare loop unless the unit says otherwise, with the interquartile range in "
      "parentheses;\n\"ahead\" or \"behind\" is how ours stands to the peer; \"!\" marks a limit "
      "that is missed.\n");
  if (isDisturbed) {
    std::printf(
        "\"~\" counts the rounds in which other programs took more than %.0f %% of the "
        "processors.\n",
        Others::kMost * 100);
  }
}

int Results::Finish(const BenchOptions& options) const {
  Print();
  const std::filesystem::path path(options.output);
  std::error_code ignored;
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path(), ignored);
  std::ofstream file(path);
  for (const ResultRow& row : rows_) {
    nlohmann::ordered_json line;
    line["work"] = row.work;
    line["unit"] = row.unit;
    line["ours"] = row.ours.median;
    line["limit"] = row.limit.has_value() ? nlohmann::ordered_json(*row.limit) : nullptr;
    line["peers"] = nlohmann::ordered_json::object();
    line["rounds"] = row.ours.rounds;
    line["disturbed"] = row.ours.disturbed;
    line["spread"]["ours"] = row.ours.spread;
    for (const auto& [name, figure] : row.peers) {
      line["peers"][name] = figure.median;
      line["spread"][name] = figure.spread;
    }
    file << line << '\n';
  }
  file.close();
  if (file) return 0;
  std::fprintf(stderr, "cannot write %s\n", options.output.c_str());
  return 1;
}
