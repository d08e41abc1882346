// What a message costs in a log that is full, and what sending a full log does.

#include <spdlog/sinks/ringbuffer_sink.h>
#include <spdlog/spdlog.h>
#include <spdlog/version.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <vector>

#include "bench/Contest.h"
#include "host/SCA_TikaLog.h"

namespace {

constexpr unsigned long kCapacity = 500;
constexpr char kOurs[] = "SCA_TikaLog";
constexpr char kSpdlog[] = "spdlog ring buffer";
constexpr char kByHand[] = "by hand";
constexpr double kMessageLimit = 1.3;
constexpr double kSerializeLimit = 1;
constexpr char kLine[] = "INFO  [main] 12:00:00,123 org.apache.tika.server.core.TikaServerProcess";

// Ours as a multiple of the other's processor time.
void AddRow(const Contest& contest, const char* work, const std::string& unit, double limit,
            Results* results) {
  results->Add({work, unit, contest.Cpu(kOurs), limit, {}});
}

void Fill(SCA_TikaLog* log) {
  for (unsigned long i = 0; i < kCapacity; ++i) log->AddMessage(3, "%s started %lu", kLine, i);
}

void MeasureMessages(const BenchOptions& options, Results* results) {
  const unsigned long messages = options.quick ? 20000 : 500000;
  SCA_TikaLog log(nullptr, kCapacity, 0);
  const auto sink = std::make_shared<spdlog::sinks::ringbuffer_sink_mt>(kCapacity);
  spdlog::logger logger("bench", sink);
  Contest contest;
  contest.Add(
      kSpdlog, [] {},
      [&] {
        for (unsigned long i = 0; i < messages; ++i) logger.info("{} started {}", kLine, i);
        return sink->last_raw().size() == kCapacity;
      });
  contest.Add(
      kOurs, [] {},
      [&] {
        for (unsigned long i = 0; i < messages; ++i) log.AddMessage(3, "%s started %lu", kLine, i);
        return log.GetMessageCount() == kCapacity;
      });
  contest.Run(options.rounds);
  std::printf(
      "spdlog takes %.0f ns for a formatted message, which it keeps without date and time\n",
      contest.BaseCpu() / static_cast<double>(messages) * 1e9);
  AddRow(contest, "a message into a full log", "CPU to spdlog's", kMessageLimit, results);
}

void MeasureSerialize(const BenchOptions& options, Results* results) {
  const int repeats = options.quick ? 50 : 1000;
  SCA_TikaLog log(nullptr, kCapacity, 0);
  Fill(&log);
  // The same members, with names and values made beforehand.
  SCA_ConfigObj model("Log", nullptr);
  log.Serialize(&model, 0xFFFFFFFF, 0xFFFFFFFF);
  std::vector<const SCA_Field*> fields;
  for (const SCA_Field* field = model.GetFields().GetHead(); field; field = field->GetNext()) {
    fields.push_back(field);
  }
  Contest contest;
  contest.Add(
      kByHand, [] {},
      [&] {
        for (int i = 0; i < repeats; ++i) {
          SCA_ConfigObj object("Log", nullptr);
          for (const SCA_Field* field : fields) {
            if (object.AddField(field->GetName(), field->GetValue(), 0) == 0) return false;
          }
        }
        return true;
      });
  contest.Add(
      kOurs, [] {},
      [&] {
        for (int i = 0; i < repeats; ++i) {
          SCA_ConfigObj object("Log", nullptr);
          if (log.Serialize(&object, 0xFFFFFFFF, 0xFFFFFFFF) == 0) return false;
        }
        return true;
      });
  contest.Run(options.rounds);
  std::printf("building %lu members by hand takes %.1f us\n", kCapacity,
              contest.BaseCpu() / repeats * 1e6);
  AddRow(contest, "Serialize of 500 messages", "CPU to by hand", kSerializeLimit, results);
}

}  // namespace

int main(int argc, char** argv) try {
  const BenchOptions options = BeginBench(argc, argv, "log");
  std::printf("spdlog %d.%d.%d\n", SPDLOG_VER_MAJOR, SPDLOG_VER_MINOR, SPDLOG_VER_PATCH);
  Results results;
  MeasureMessages(options, &results);
  MeasureSerialize(options, &results);
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_log: %s\n", error.what());
  return EXIT_FAILURE;
}
