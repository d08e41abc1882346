// How cost grows: time, processor time and memory of the extracting program for ever more
// documents, servers, service hosts and text.

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/Machine.h"
#include "bench/ReplyServer.h"
#include "product/SCA_TikaFleet.h"
#include "tests/support/ScriptedHost.h"

namespace {

constexpr unsigned long kFileSize = 4096;
constexpr unsigned long kTextSize = 2048;
constexpr unsigned long kChunkSize = 32768;
constexpr unsigned long kHostTextSize = kFileSize + 8;  // "text of " and the document
constexpr int kServersOfHost = 2;

double Now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double ProcessCpu() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// The largest resident memory since the last reset, in bytes.
double PeakMemory() {
  std::ifstream file("/proc/self/status");
  for (std::string line; std::getline(file, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::strtod(line.c_str() + 6, nullptr) * 1024;
  }
  throw std::runtime_error("the system does not tell the peak of a process's memory");
}

struct Cost {
  double seconds = 0;
  double cpu = 0;          // seconds
  double peak = 0;         // bytes
  double isDisturbed = 0;  // 0 or 1
};

// Does the work in a process of its own, so that no earlier one has left memory behind.
Cost Measure(const std::function<bool()>& work) {
  int ends[2];
  if (::pipe(ends) != 0) throw std::runtime_error("cannot create a pipe");
  std::fflush(nullptr);
  Others others;
  const pid_t child = ::fork();
  if (child < 0) throw std::runtime_error("cannot fork");
  if (child == 0) {
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak begins again
    Cost cost;
    const double begin = Now();
    const double cpu = ProcessCpu();
    const bool isDone = work();
    cost = {Now() - begin, ProcessCpu() - cpu, PeakMemory(), 0};
    const bool isTold = isDone && ::write(ends[1], &cost, sizeof cost) == sizeof cost;
    ::_exit(isTold ? 0 : 1);
  }
  ::close(ends[1]);
  Cost cost;
  const bool isTold = ::read(ends[0], &cost, sizeof cost) == sizeof cost;
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  if (!isTold) throw std::runtime_error("a measurement failed");
  cost.isDisturbed = others.Take().value_or(0) > Others::kMost ? 1 : 0;
  return cost;
}

class CountingSink : public SCA_TikaTextSink {
 public:
  explicit CountingSink(std::atomic<unsigned long long>* total) : total_(total) {}
  int Write(const char* /*text*/, unsigned long length, unsigned long /*offset*/) override {
    total_->fetch_add(length);
    return 1;
  }
  int Restart() override { return 0; }

 private:
  std::atomic<unsigned long long>* const total_;
};

// Extracts one file again and again, as far ahead of the servers as the dispatcher's limit allows.
bool Extract(SCA_TikaDispatcher* dispatcher, const std::string& file, unsigned long documents,
             unsigned long long textSize) {
  std::atomic<unsigned long long> total{0};
  std::deque<SCA_Owned<SCA_TikaExtractRequest>> requests;
  for (unsigned long i = 0; i < documents; ++i) {
    while (!requests.empty() && requests.front()->GetReady()->Wait(0) != 0) requests.pop_front();
    requests.emplace_back(
        new SCA_TikaExtractRequest(file.c_str(), "pdf", "Default", new CountingSink(&total)));
    unsigned long error = 0;
    if (dispatcher->Submit(requests.back().get(), 1, &error) == 0) return false;
  }
  for (const auto& request : requests) request->GetReady()->Wait(SCA_Infinite);
  return total == textSize * documents;
}

bool ExtractFrom(const std::vector<unsigned short>& ports, const std::string& file,
                 unsigned long documents, unsigned long long textSize) {
  SCA_TikaConfigOrv settings;
  SCA_TikaService* service = nullptr;
  settings.SetMode(SCA_TikaModeEnabled);
  settings.GetServiceList()->AddService("127.0.0.1", &service);
  SCA_TikaDispatcher dispatcher(&settings, {});
  unsigned long error = 0;
  for (const unsigned short port : ports) dispatcher.AddServer("127.0.0.1", port, 0, &error);
  return Extract(&dispatcher, file, documents, textSize);
}

// A service host with its servers, in a process of its own.
class HostProcess {
 public:
  explicit HostProcess(std::string socket) : socket_(std::move(socket)) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("cannot create a pipe");
    std::fflush(nullptr);
    child_ = ::fork();
    if (child_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ScriptedHost host("127.0.0.1");
      host.OpenLocal(socket_);
      for (int i = 0; i < kServersOfHost; ++i) host.Keep(SCA_ServerActive);
      if (::write(ends[1], "", 1) == 1) ::pause();
      ::_exit(1);
    }
    ::close(ends[1]);
    char told = 0;
    const bool isUp = ::read(ends[0], &told, 1) == 1;
    ::close(ends[0]);
    if (!isUp) throw std::runtime_error("cannot start a service host");
  }
  ~HostProcess() {
    ::kill(child_, SIGKILL);
    ::waitpid(child_, nullptr, 0);
  }
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  const std::string& Socket() const { return socket_; }

 private:
  const std::string socket_;
  pid_t child_ = -1;
};

bool ExtractFromHosts(const std::deque<HostProcess>& hosts, const std::string& file,
                      unsigned long documents, unsigned long long textSize) {
  SCA_TikaConfigOrv settings;
  settings.SetMode(SCA_TikaModeEnabled);
  std::vector<SCA_TikaService*> services;
  for (const HostProcess& host : hosts) {
    settings.GetServiceList()->AddService(host.Socket().c_str(), &services.emplace_back());
    services.back()->SetNumOfServers(0);  // those that the host has
  }
  SCA_TikaDispatcher dispatcher(&settings, {});
  SCA_TikaFleet fleet(&dispatcher, nullptr);
  unsigned long error = 0;
  for (SCA_TikaService* service : services) fleet.Follow(service, "", &error);
  const bool isDone = Extract(&dispatcher, file, documents, textSize);
  fleet.Leave();
  return isDone;
}

// What grows, with its costs.
class Growth {
 public:
  Growth(std::string what, std::string unit, std::ofstream* output)
      : what_(std::move(what)), unit_(std::move(unit)), output_(output) {
    std::printf("\n%-14s %10s %10s %12s\n", what_.c_str(), "time, s", "CPU, s", "peak, MiB");
  }

  void Add(double count, const Cost& cost) {
    std::printf("%-14.0f %10.3f %10.3f %12.2f%s\n", count, cost.seconds, cost.cpu,
                cost.peak / (1 << 20), cost.isDisturbed != 0 ? "  ~" : "");
    nlohmann::ordered_json line;
    line["growth"] = what_;
    line["count"] = count;
    line["seconds"] = cost.seconds;
    line["cpu"] = cost.cpu;
    line["peakBytes"] = cost.peak;
    line["disturbed"] = cost.isDisturbed != 0;
    *output_ << line << '\n';
    counts_.push_back(count);
    costs_.push_back(cost);
  }

  // The straight line with the least squares through the points, its rise for one more.
  void Finish() const {
    const double time = Slope(&Cost::seconds) * 1e6;
    const double cpu = Slope(&Cost::cpu) * 1e6;
    const double memory = Slope(&Cost::peak);
    std::printf("%-14s %7.3f us %7.3f us %8.2f bytes\n", ("each " + unit_).c_str(), time, cpu,
                memory);
    nlohmann::ordered_json line;
    line["growth"] = what_;
    line["slope"] = unit_;
    line["microseconds"] = time;
    line["cpuMicroseconds"] = cpu;
    line["bytes"] = memory;
    *output_ << line << '\n';
  }

 private:
  double Slope(double Cost::*field) const {
    const auto points = static_cast<double>(counts_.size());
    double meanCount = 0;
    double meanCost = 0;
    for (std::size_t i = 0; i < counts_.size(); ++i) {
      meanCount += counts_[i] / points;
      meanCost += costs_[i].*field / points;
    }
    double products = 0;
    double squares = 0;
    for (std::size_t i = 0; i < counts_.size(); ++i) {
      products += (counts_[i] - meanCount) * (costs_[i].*field - meanCost);
      squares += (counts_[i] - meanCount) * (counts_[i] - meanCount);
    }
    return squares > 0 ? products / squares : 0;
  }

  const std::string what_;
  const std::string unit_;
  std::ofstream* const output_;
  std::vector<double> counts_;
  std::vector<Cost> costs_;
};

class Bench {
 public:
  Bench(bool isFull, std::ofstream* output) : isFull_(isFull), output_(output) {}

  void GrowDocuments() {
    const ChunkedReply reply(kTextSize, kTextSize);
    const ReplyServer servers[2] = {ReplyServer(reply), ReplyServer(reply)};
    const std::vector<unsigned short> ports{servers[0].Port(), servers[1].Port()};
    Growth growth("documents", "document", output_);
    for (unsigned long count = 100; count <= (isFull_ ? 100000UL : 10000UL); count *= 10) {
      growth.Add(static_cast<double>(count),
                 Measure([&] { return ExtractFrom(ports, file_, count, kTextSize); }));
    }
    growth.Finish();
  }

  void GrowServers() {
    const unsigned long documents = isFull_ ? 20000 : 2000;
    const ChunkedReply reply(kTextSize, kTextSize);
    std::deque<ReplyServer> servers;
    std::vector<unsigned short> ports;
    Growth growth("servers", "server", output_);
    for (std::size_t count = 1; count <= 64; count *= 4) {
      while (servers.size() < count) ports.push_back(servers.emplace_back(reply).Port());
      growth.Add(static_cast<double>(count),
                 Measure([&] { return ExtractFrom(ports, file_, documents, kTextSize); }));
    }
    growth.Finish();
  }

  void GrowHosts() {
    const unsigned long documents = isFull_ ? 20000 : 2000;
    std::deque<HostProcess> hosts;
    Growth growth("hosts", "host", output_);
    for (std::size_t count = 1; count <= 8; count *= 2) {
      while (hosts.size() < count) {
        hosts.emplace_back(
            (std::filesystem::path(file_).parent_path() / ("host" + std::to_string(hosts.size())))
                .string());
      }
      growth.Add(static_cast<double>(count),
                 Measure([&] { return ExtractFromHosts(hosts, file_, documents, kHostTextSize); }));
    }
    growth.Finish();
  }

  void GrowText() {
    Growth growth("KiB of text", "KiB", output_);
    const unsigned long long most = isFull_ ? 1ULL << 30 : 32ULL << 20;
    for (unsigned long long size = 1 << 10; size <= most; size <<= 5) {
      const ChunkedReply reply(
          size, static_cast<unsigned long>(std::min<unsigned long long>(size, kChunkSize)));
      const ReplyServer server(reply);
      growth.Add(static_cast<double>(size >> 10),
                 Measure([&] { return ExtractFrom({server.Port()}, file_, 1, size); }));
    }
    growth.Finish();
  }

 private:
  const bool isFull_;
  std::ofstream* const output_;
  const ScratchDir dir_;
  const std::string file_ = dir_.MakeFile("document", kFileSize);
};

}  // namespace

int main(int argc, char** argv) try {
  bool isFull = false;
  std::string output = "build/bench/growth.jsonl";
  CLI::App app("Measures how the cost of extraction grows");
  app.add_flag("--full", isFull, "Up to 100000 documents and 1 GiB of text");
  app.add_flag("--quick", "The usual run: up to 10000 documents and 32 MiB of text");
  app.add_option("--output", output, "File of the figures, one JSON object a line")
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  PrintMachine();
  WarnOfLoad();
  std::printf(
      "One process extracts documents of %lu bytes over scripted servers on loopback; peak is its\n"
      "largest resident memory. \"~\": other programs took more than %.0f %% of the processors.\n",
      kFileSize, Others::kMost * 100);
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(output).parent_path(), ignored);
  std::ofstream file(output);
  Bench bench(isFull, &file);
  bench.GrowDocuments();
  bench.GrowServers();
  bench.GrowHosts();
  bench.GrowText();
  file.close();
  if (!file) throw std::runtime_error("cannot write " + output);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_growth: %s\n", error.what());
  return EXIT_FAILURE;
}
