/// Measures the same work done by several peers, side by side, and prints and stores the outcome as
/// ratios to the bare loop's cost.
#ifndef SCA_BENCH_CONTEST_H
#define SCA_BENCH_CONTEST_H

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bench/Machine.h"

/// What a benchmark is called with.
struct BenchOptions {
  bool quick = false;  ///< a short run that shows that everything works, not what it costs
  int rounds = 0;
  std::string output;  ///< file of the rows, one JSON object a line
};

/// Reads the command line and prints the machine and the peers; ends the program for `--help` or a
/// wrong option.
/// @param area  Names the default output, build/bench/<area>.jsonl below the current directory.
BenchOptions BeginBench(int argc, char** argv, const std::string& area);

/// Median and interquartile range of some measurements.
struct Figure {
  double median = 0;
  double spread = 0;
  int disturbed = 0;  ///< measurements while something else took processor time
  int rounds = 0;     ///< that were watched for this

  static Figure Of(std::vector<double> values);
};

/// Rounds in which every peer does the work once, beginning with another peer each time.
class Contest {
 public:
  /// Does the work once, on the calling thread. @return Whether it succeeded.
  using Work = std::function<bool()>;

  /// The first peer to be added is the one the others are compared with.
  /// @param prepare  Called before each time the work is done, unmeasured.
  void Add(const std::string& name, std::function<void()> prepare, Work work);

  /// A round that is not measured, then `rounds` that are. Those in which another program took more
  /// than `Others::kMost` of the processors are counted as disturbed; short rounds are judged
  /// several at a time. Work that fails is done again; what
  /// never succeeds throws.
  void Run(int rounds);

  /// Costs as multiples of the first peer's in the same round: processor time of the calling thread
  /// in user and system mode, and time that passed.
  Figure Cpu(const std::string& name) const { return Ratio(name, &Cost::cpu); }
  Figure Wall(const std::string& name) const { return Ratio(name, &Cost::wall); }
  /// The first peer's own costs, in seconds.
  double BaseCpu() const;
  double BaseWall() const;
  int Failures(const std::string& name) const { return Find(name).failures; }

 private:
  struct Cost {
    double cpu;
    double wall;
  };
  struct Entry {
    std::string name;
    std::function<void()> prepare;
    Work work;
    std::vector<Cost> costs;
    int failures = 0;
  };

  static Cost Measure(Entry* entry);
  const Entry& Find(const std::string& name) const;
  Figure Ratio(const std::string& name, double Cost::*cost) const;

  std::vector<Entry> entries_;
  int judged_ = 0;     // rounds
  int disturbed_ = 0;  // of them
};

/// One figure of ours, the limit that it is to keep, and the same figure of the other peers.
struct ResultRow {
  std::string work;
  std::string unit;
  Figure ours;
  std::optional<double> limit;
  std::vector<std::pair<std::string, Figure>> peers;
};

/// Collects rows; prints them as a table and writes them to the output file.
class Results {
 public:
  /// A row whose figure is of no contest counts as one round, since the row before it.
  void Add(ResultRow row);
  /// Adds a row for the processor time and one for the time that passed.
  void AddCosts(const Contest& contest, const std::string& work, const std::string& ours,
                std::optional<double> cpuLimit);

  /// @return The program's exit code.
  int Finish(const BenchOptions& options) const;

 private:
  void Print() const;

  std::vector<ResultRow> rows_;
  Others others_;  // since the last row
};

#endif  // SCA_BENCH_CONTEST_H
