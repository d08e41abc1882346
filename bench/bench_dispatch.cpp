// What handing requests around costs: takes and returns of queue and pool beside a plain mutex with
// two queues, and small documents over several servers by the dispatcher beside plain clients on
// threads, a libcurl multi program and processes of curl.

#include <curl/curl.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <fstream>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "bench/Contest.h"
#include "bench/Machine.h"
#include "bench/ReplyServer.h"
#include "product/SCA_TikaClientList.h"
#include "product/SCA_TikaDispatcher.h"
#include "product/SCA_TikaRequestList.h"

namespace {

constexpr unsigned long kFileSize = 4096;
constexpr unsigned long kTextSize = 2048;
constexpr int kFewer = 10;               // documents for processes, which take 200 times as long
constexpr double kDispatchLimit = 1.05;  // the dispatcher's share of a request
constexpr char kCurlMulti[] = "libcurl multi";
constexpr char kCurlProcesses[] = "xargs -P curl";
constexpr char kPlainClients[] = "plain clients";
constexpr char kDispatcher[] = "dispatcher";
constexpr char kOneByOne[] = "dispatcher, awaited one by one";

// Runs a function on that many threads at the same time, with the number of each.
template <class Function>
void OnThreads(int threads, Function function) {
  std::vector<std::thread> running;
  running.reserve(static_cast<std::size_t>(threads));
  for (int i = 0; i < threads; ++i) running.emplace_back(function, i);
  for (std::thread& thread : running) thread.join();
}

// Takes and returns.

bool TakeAndReturn(int threads, int cycles) {
  SCA_TikaConfigOrv settings;
  SCA_TikaClientList pool;
  SCA_TikaRequestList queue;
  std::vector<std::unique_ptr<SCA_TikaClient>> clients;
  std::vector<std::unique_ptr<SCA_TikaClientRequest>> requests;
  for (int i = 0; i < threads; ++i) {
    clients.push_back(std::make_unique<SCA_TikaClient>(&settings, "host", 1));
    unsigned long id = 0;
    pool.AddClient(clients.back().get(), &id);
    requests.push_back(std::make_unique<SCA_TikaClientRequest>("pdf", "Default"));
    requests.back()->GetServiceList()->AddItemToTail(0UL);
    queue.AddRequest(requests.back().get());
  }
  std::atomic<bool> isComplete{true};
  OnThreads(threads, [&](int) {
    for (int i = 0; i < cycles; ++i) {
      SCA_TikaClientRequest* request = nullptr;
      SCA_TikaClient* client = nullptr;
      if (queue.TakeClientRequest(&pool, &request, &client) == 0) isComplete = false;
      pool.AddClient(client, client->GetClientId());
      queue.AddRequest(request);
    }
  });
  return isComplete;
}

bool PlainTakeAndReturn(int threads, int cycles) {
  std::mutex mutex;
  std::deque<int> requests;
  std::deque<int> clients;
  for (int i = 0; i < threads; ++i) {
    requests.push_back(i);
    clients.push_back(i);
  }
  OnThreads(threads, [&](int) {
    for (int i = 0; i < cycles; ++i) {
      int request = 0;
      int client = 0;
      {
        const std::lock_guard<std::mutex> guard(mutex);
        request = requests.front();
        requests.pop_front();
        client = clients.front();
        clients.pop_front();
      }
      {
        const std::lock_guard<std::mutex> guard(mutex);
        clients.push_back(client);
      }
      const std::lock_guard<std::mutex> guard(mutex);
      requests.push_back(request);
    }
  });
  return true;
}

// Small documents.

struct Work {
  std::string file;
  std::vector<unsigned short> ports;
  int documents;
};

int Count(const char* /*text*/, unsigned long length, unsigned long /*offset*/, void* context) {
  *static_cast<unsigned long*>(context) += length;
  return 1;
}

// Each server's share of the documents on a thread of its own: nothing is handed around.
bool RunPlainClients(const Work& work) {
  SCA_TikaConfigOrv settings;
  std::atomic<unsigned long> total{0};
  const auto servers = static_cast<int>(work.ports.size());
  OnThreads(servers, [&](int i) {
    SCA_TikaClient client(&settings, "127.0.0.1", work.ports[static_cast<std::size_t>(i)]);
    SCA_Event cancel(1, 0);
    unsigned long error = 0;
    unsigned long length = 0;
    unsigned long text = 0;
    if (client.InitDataBuffer() == 0 || client.Connect(1000, &error) == 0) return;
    for (int document = i; document < work.documents; document += servers) {
      client.GetFileText(3, work.file.c_str(), nullptr, &Count, &text, &cancel, &length, &error);
    }
    total += text;
  });
  return total == kTextSize * static_cast<unsigned long>(work.documents);
}

class CountingSink : public SCA_TikaTextSink {
 public:
  explicit CountingSink(std::atomic<unsigned long>* total) : total_(total) {}
  int Write(const char* /*text*/, unsigned long length, unsigned long /*offset*/) override {
    total_->fetch_add(length);
    return 1;
  }
  int Restart() override { return 0; }

 private:
  std::atomic<unsigned long>* const total_;
};

using Requests = std::deque<SCA_Owned<SCA_TikaExtractRequest>>;

// Submits all documents, and has the requester wait as it likes before each.
template <class Pause>
bool Dispatch(const Work& work, Pause pause) {
  SCA_TikaConfigOrv settings;
  SCA_TikaService* service = nullptr;
  settings.SetMode(SCA_TikaModeEnabled);
  settings.GetServiceList()->AddService("127.0.0.1", &service);
  SCA_TikaDispatcher dispatcher(&settings, {});
  unsigned long error = 0;
  for (const unsigned short port : work.ports) dispatcher.AddServer("127.0.0.1", port, 0, &error);
  std::atomic<unsigned long> total{0};
  Requests requests;
  for (int i = 0; i < work.documents; ++i) {
    pause(&requests);
    requests.emplace_back(
        new SCA_TikaExtractRequest(work.file.c_str(), "pdf", "Default", new CountingSink(&total)));
    if (dispatcher.Submit(requests.back().get(), 1, &error) == 0) return false;
  }
  for (const auto& request : requests) request->GetReady()->Wait(SCA_Infinite);
  return total == kTextSize * static_cast<unsigned long>(work.documents);
}

// Leaves it to the dispatcher's limit of pending requests how far it is ahead of the servers.
bool RunDispatcher(const Work& work) {
  return Dispatch(work, [](Requests* requests) {
    while (!requests->empty() && requests->front()->GetReady()->Wait(0) != 0) requests->pop_front();
  });
}

// Has 64 documents under way and wakes for each that ends, to take its text in order.
bool RunOneByOne(const Work& work) {
  return Dispatch(work, [](Requests* requests) {
    if (requests->size() < 64) return;
    requests->front()->GetReady()->Wait(SCA_Infinite);
    requests->pop_front();
  });
}

// One kept handle for each server, driven by one thread.
struct Transfer {
  std::unique_ptr<CURL, decltype(&::curl_easy_cleanup)> curl{::curl_easy_init(),
                                                             &::curl_easy_cleanup};
  std::unique_ptr<std::FILE, decltype(&std::fclose)> source{nullptr, &std::fclose};
};

std::size_t TakeText(char* /*text*/, std::size_t size, std::size_t count, void* total) {
  *static_cast<unsigned long*>(total) += size * count;
  return size * count;
}

bool Begin(Transfer* transfer, const Work& work, CURLM* multi) {
  transfer->source.reset(std::fopen(work.file.c_str(), "rb"));
  if (transfer->source == nullptr) return false;
  ::curl_easy_setopt(transfer->curl.get(), CURLOPT_READDATA, transfer->source.get());
  return ::curl_multi_add_handle(multi, transfer->curl.get()) == CURLM_OK;
}

bool RunCurlMulti(const Work& work) {
  const std::unique_ptr<CURLM, decltype(&::curl_multi_cleanup)> multi{::curl_multi_init(),
                                                                      &::curl_multi_cleanup};
  // Without it curl waits for a server's word before it uploads.
  const std::unique_ptr<curl_slist, decltype(&::curl_slist_free_all)> headers{
      ::curl_slist_append(nullptr, "Expect:"), &::curl_slist_free_all};
  unsigned long total = 0;
  int begun = 0;
  std::vector<Transfer> transfers(work.ports.size());
  for (std::size_t i = 0; i < transfers.size(); ++i) {
    CURL* const curl = transfers[i].curl.get();
    const std::string url = "http://127.0.0.1:" + std::to_string(work.ports[i]) + "/tika";
    ::curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    ::curl_easy_setopt(curl, CURLOPT_PROXY, "");
    ::curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    ::curl_easy_setopt(curl, CURLOPT_UPLOAD, 1L);
    ::curl_easy_setopt(curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(kFileSize));
    ::curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &TakeText);
    ::curl_easy_setopt(curl, CURLOPT_WRITEDATA, &total);
    ::curl_easy_setopt(curl, CURLOPT_PRIVATE, &transfers[i]);
    if (begun < work.documents && !Begin(&transfers[i], work, multi.get())) return false;
    ++begun;
  }
  for (int running = 1; running > 0;) {
    ::curl_multi_perform(multi.get(), &running);
    int left = 0;
    bool hasBegun = false;
    while (const CURLMsg* message = ::curl_multi_info_read(multi.get(), &left)) {
      Transfer* transfer = nullptr;
      ::curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
      ::curl_multi_remove_handle(multi.get(), message->easy_handle);
      if (begun++ >= work.documents) continue;
      if (!Begin(transfer, work, multi.get())) return false;
      hasBegun = true;
    }
    // A transfer that was just added has nothing to wait for.
    if (hasBegun) {
      running = 1;
    } else if (running > 0) {
      ::curl_multi_poll(multi.get(), nullptr, 0, 1000, nullptr);
    }
  }
  return total == kTextSize * static_cast<unsigned long>(work.documents);
}

// One process for each document, as many at once as there are servers, by turns to each of them.
bool RunCurlProcesses(const Work& work, const ScratchDir& dir) {
  const std::string list = dir.MakeFile("list", 0);
  {
    std::ofstream stream(list);
    for (int i = 0; i < work.documents; ++i) {
      stream << "http://127.0.0.1:" << work.ports[static_cast<std::size_t>(i) % work.ports.size()]
             << "/tika\n";
    }
  }
  const std::string output = list + ".out";
  const std::string parallel = std::to_string(work.ports.size());
  const char* const words[] = {"xargs",   "-P", parallel.c_str(),  "-n",   "1", "curl", "-s", "-H",
                               "Expect:", "-T", work.file.c_str(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, list.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
  pid_t child = 0;
  const int failed =
      ::posix_spawnp(&child, words[0], &actions, nullptr, const_cast<char* const*>(words), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = 1;
  if (failed == 0) ::waitpid(child, &status, 0);
  struct stat size {};
  ::stat(output.c_str(), &size);
  return status == 0 && static_cast<unsigned long>(size.st_size) ==
                            kTextSize * static_cast<unsigned long>(work.documents);
}

void MeasureDocuments(const BenchOptions& options, const Work& work, const ScratchDir& dir,
                      Results* results) {
  Contest contest;
  contest.Add(
      kPlainClients, [] {}, [&work] { return RunPlainClients(work); });
  contest.Add(
      kDispatcher, [] {}, [&work] { return RunDispatcher(work); });
  contest.Add(
      kOneByOne, [] {}, [&work] { return RunOneByOne(work); });
  contest.Add(
      kCurlMulti, [] {}, [&work] { return RunCurlMulti(work); });
  contest.Add(
      kCurlProcesses, [] {},
      [&work, &dir] {
        return RunCurlProcesses({work.file, work.ports, work.documents / kFewer}, dir);
      });
  contest.Run(options.rounds);
  std::printf("%zu servers: plain clients do %.0f documents a second\n", work.ports.size(),
              work.documents / contest.BaseWall());
  const std::string name = "small documents, " + std::to_string(work.ports.size()) + " servers";
  ResultRow row{name, "time", contest.Wall(kDispatcher), kDispatchLimit, {}};
  const Figure processes = contest.Wall(kCurlProcesses);
  row.peers.emplace_back(kCurlMulti, contest.Wall(kCurlMulti));
  row.peers.emplace_back(kCurlProcesses,
                         Figure{processes.median * kFewer, processes.spread * kFewer});
  results->Add(row);
  results->Add({name + ", one by one", "time", contest.Wall(kOneByOne), std::nullopt, {}});
}

void MeasureTakes(const BenchOptions& options, int threads, Results* results) {
  const int cycles = (options.quick ? 10000 : 200000) / threads;
  Contest contest;
  contest.Add(
      "plain", [] {}, [=] { return PlainTakeAndReturn(threads, cycles); });
  contest.Add(
      "ours", [] {}, [=] { return TakeAndReturn(threads, cycles); });
  contest.Run(options.rounds);
  const Figure ours = contest.Wall("ours");
  const double plain = cycles * threads / contest.BaseWall();
  std::printf("%d threads: mutex and queues %.0f takes and returns a second, ours %.0f\n", threads,
              plain, plain / ours.median);
  results->Add(
      {"take and return, " + std::to_string(threads) + " threads", "time", ours, std::nullopt, {}});
}

}  // namespace

int main(int argc, char** argv) try {
  const BenchOptions options = BeginBench(argc, argv, "dispatch");
  const ScratchDir dir;
  const ChunkedReply reply(kTextSize, kTextSize);
  std::vector<std::unique_ptr<ReplyServer>> servers;
  for (int i = 0; i < 4; ++i) servers.push_back(std::make_unique<ReplyServer>(reply));
  Work work{dir.MakeFile("document", kFileSize), {}, options.quick ? 50 : 2000};
  std::printf(
      "Documents of %lu bytes with %lu bytes of text, %d a round, over several servers on "
      "loopback.\n"
      "Ratios to plain clients, one thread and its share of the documents for each server; takes "
      "and\n"
      "returns to one mutex with two queues.\n",
      kFileSize, kTextSize, work.documents);
  Results results;
  for (const auto& server : servers) {
    work.ports.push_back(server->Port());
    if (work.ports.size() == 2 || work.ports.size() == 4) {
      MeasureDocuments(options, work, dir, &results);
    }
  }
  for (const int threads : {1, 2, 4}) MeasureTakes(options, threads, &results);
  return results.Finish(options);
} catch (const std::exception& error) {
  std::fprintf(stderr, "bench_dispatch: %s\n", error.what());
  return EXIT_FAILURE;
}
