// The black box: how servers have ended.

#include <algorithm>
#include <cmath>

#include "programs/common/Escape.h"
#include "programs/common/Json.h"
#include "programs/tikactl/Commands.h"
#include "programs/tikactl/Fields.h"

namespace {

namespace Death = SCA_DeathFields;

constexpr unsigned long kDeathsShown = 10;
constexpr unsigned long kLinesShown = 3;
constexpr std::size_t kCurveColumns = 60;
constexpr char kIndent[] = "      ";

struct Sample {
  unsigned long long beforeEndMs = 0;
  unsigned long long bytes = 0;
};

std::vector<Sample> Samples(const Fields& death) {
  std::vector<Sample> samples;
  ForEachMember(death.Object(Death::Memory), [&samples](const SCA_Field& member) {
    const auto beforeEndMs = ReadNumber<unsigned long long>(NameOf(member));
    const auto bytes = ReadNumber<unsigned long long>(ValueOf(member));
    if (beforeEndMs && bytes) samples.push_back({*beforeEndMs, *bytes});
  });
  // Oldest first, whatever the order they came in.
  std::stable_sort(samples.begin(), samples.end(), [](const Sample& left, const Sample& right) {
    return left.beforeEndMs > right.beforeEndMs;
  });
  return samples;
}

// One block for each sample, the highest of several where there are more than columns; a memory
// that stayed the same is drawn half high.
std::string Curve(const std::vector<Sample>& samples, unsigned long long least,
                  unsigned long long most) {
  static constexpr const char* kBlocks[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  const std::size_t columns = std::min(samples.size(), kCurveColumns);
  std::string curve;
  for (std::size_t i = 0; i < columns; ++i) {
    const std::size_t begin = i * samples.size() / columns;
    const std::size_t end = (i + 1) * samples.size() / columns;
    unsigned long long highest = 0;
    for (std::size_t k = begin; k < end; ++k) highest = std::max(highest, samples[k].bytes);
    const double part =
        most > least ? static_cast<double>(highest - least) / static_cast<double>(most - least)
                     : 0.5;
    curve += kBlocks[static_cast<std::size_t>(std::lround(part * 7))];
  }
  return curve;
}

std::string MemoryLine(const Fields& death) {
  const std::vector<Sample> samples = Samples(death);
  const auto last = death.Number(Death::MemoryUsage);
  const std::string atEnd = last && *last != 0 ? Size(*last) + " at the end" : "";
  if (samples.empty()) return atEnd.empty() ? "" : "memory " + atEnd;
  const auto [least, most] = std::minmax_element(
      samples.begin(), samples.end(),
      [](const Sample& left, const Sample& right) { return left.bytes < right.bytes; });
  return "memory " + Curve(samples, least->bytes, most->bytes) + " min " + Size(least->bytes) +
         ", max " + Size(most->bytes) + ", over " +
         Duration(samples.front().beforeEndMs - samples.back().beforeEndMs) +
         (atEnd.empty() ? "" : "; " + atEnd);
}

std::string EndOf(const Fields& death) {
  const unsigned long long signal = death.NumberOr(Death::Signal, 0);
  if (signal != 0) return "signal " + std::to_string(signal);
  const std::string code = death.Text(Death::ExitCode);
  return code.empty() ? "exit code unknown" : "exit code " + code;
}

void PrintLines(const Fields& death, bool wantsAll, Output* output) {
  std::vector<std::string> lines;
  ForEachMember(death.Object(Death::Lines),
                [&lines](const SCA_Field& member) { lines.push_back(Printable(ValueOf(member))); });
  const std::size_t shown =
      wantsAll ? lines.size() : std::min<std::size_t>(lines.size(), kLinesShown);
  for (std::size_t i = lines.size() - shown; i < lines.size(); ++i) {
    output->Print(kIndent + Paint("| " + lines[i], Colour::Dim));
  }
}

void PrintDeath(const Fields& death, bool wantsAllLines, Output* output) {
  const auto number = [&death](const char* name) {
    const auto value = death.Number(name);
    return value ? std::to_string(*value) : "?";
  };
  const bool isWorker = death.NumberOr(Death::Worker, 0) != 0;
  output->Print(Paint(When(death.NumberOr(Death::Time, 0)), Colour::Bold) + "  death " +
                number(Death::Number) + (isWorker ? ": a worker of server " : ": server ") +
                number(Death::ServerId) + ", port " + number(Death::Port) + ", " +
                BaseName(death.Text(Death::FileName)));
  const std::string kind = death.Text(Death::Kind);
  const std::string cause = death.Text(Death::Cause);
  output->Print(kIndent + Paint(kind.empty() ? "unknown" : kind, Colour::Red) +
                (cause.empty() ? "" : ": " + cause));
  output->Print(kIndent + ("ran " + Duration(death.NumberOr(Death::RunTime, 0))) + ", after " +
                Count(death.NumberOr(Death::Restart, 0), "restart") + ", process " +
                number(Death::ProcessId) + ", " + EndOf(death) +
                (isWorker ? "; the server ran on" : ""));
  const std::string memory = MemoryLine(death);
  if (!memory.empty()) output->Print(kIndent + memory);
  PrintLines(death, wantsAllLines, output);
}

ConfigObject StatusWithHistory(Call& call) {
  if (!call.options.ids.empty()) return call.host.GetServerStatus(call.options.ids.front());
  return call.host.Get("report its history", &Service::GetStatusObj);
}

}  // namespace

void ShowHistory(Call& call) {
  const ConfigObject status = StatusWithHistory(call);
  std::vector<const SCA_ConfigObj*> deaths;
  ForEachMember(Fields(status.get()).Object(SCA_ServiceFields::History),
                [&deaths](const SCA_Field& member) {
                  if (const SCA_ConfigObj* death = SCA_ToConfigObj(&member)) {
                    deaths.push_back(death);
                  }
                });
  const std::size_t wanted =
      call.options.count.value_or(call.options.json ? deaths.size() : kDeathsShown);
  const std::size_t shown = std::min(deaths.size(), wanted);
  const std::vector<const SCA_ConfigObj*> newest(deaths.end() - static_cast<std::ptrdiff_t>(shown),
                                                 deaths.end());
  if (call.options.json) {
    nlohmann::ordered_json record = call.Record();
    nlohmann::ordered_json& list = record["history"] = nlohmann::ordered_json::array();
    for (const SCA_ConfigObj* death : newest) list.push_back(ToJson(*death));
    return call.Print(record);
  }
  for (const SCA_ConfigObj* death : newest) {
    PrintDeath(Fields(death), call.options.allLines, &call.output);
  }
  if (deaths.empty())
    call.output.Print(call.options.ids.empty() ? "the host's history has no deaths"
                                               : "the host's history has no deaths of this server");
  if (shown < deaths.size()) {
    call.output.Print("the newest " + std::to_string(shown) + " of " +
                      Count(deaths.size(), "death") + "; -n shows more");
  }
}
