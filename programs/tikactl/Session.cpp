#include "programs/tikactl/Session.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <system_error>

#include "programs/common/Escape.h"
#include "programs/common/Json.h"

namespace {

constexpr unsigned long kLookMs = 50;    // between two looks at the cancel event
constexpr unsigned long kGraceMs = 300;  // for what looks at it itself

std::mutex standardOutput;  // a line of one host is not mixed with another's
std::atomic<bool> isOutputGood{true};

void Write(bool isError, const std::string& line) {
  const std::lock_guard<std::mutex> guard(standardOutput);
  if (isError) {
    PrintErrorLine("tikactl: " + line);
    return;
  }
  std::printf("%s\n", line.c_str());
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) isOutputGood.store(false);
}

void Run(Call* call, const std::function<void(Call&)>& work) {
  try {
    call->host.Connect();
    work(*call);
  } catch (const Failure& failure) {
    call->Fail(failure);
  } catch (const std::exception& error) {
    call->Fail({kFailed, 0, error.what()});
  }
  call->PrintResults();
}

}  // namespace

bool IsOutputGood() {
  return isOutputGood.load();
}

void Output::Flush() {
  for (const auto& [isError, line] : lines_) Write(isError, line);
  lines_.clear();
}

void Output::Put(bool isError, const std::string& line) {
  if (!isLive_) {
    lines_.emplace_back(isError, line);
  } else {
    Write(isError, isError ? line : prefix_ + line);
  }
}

Task::Task(std::function<void()> work)
    : thread_([this, work = std::move(work)] {
        work();
        done_.Set();
      }) {}

Call::Call(const Options& theOptions, SCA_Event& theCancel, std::size_t theIndex, bool isLive)
    : options(theOptions),
      cancel(theCancel),
      index(theIndex),
      host(options.hosts[index], options.timeoutMs),
      output(options.hosts.size() > 1 && !options.json ? host.Name() + ": " : "", isLive) {}

void Call::Fail(const Failure& failure, std::optional<unsigned long> serverId) {
  status = std::max(status, failure.status);
  if (failure.status == kInterrupted || !IsOutputGood()) return;
  output.Complain(host.Name() + ": " + failure.text);
  nlohmann::ordered_json result = NewJsonObject();
  SetJsonText(&result, "error", failure.text);
  result["error_code"] = failure.code;
  AddResult(std::move(result), serverId);
}

void Call::Succeed(const std::string& done, std::optional<unsigned long> serverId) {
  if (!options.json) return output.Print(done);
  nlohmann::ordered_json result = NewJsonObject();
  SetJsonText(&result, "done", done);
  AddResult(std::move(result), serverId);
}

void Call::AddResult(nlohmann::ordered_json result, std::optional<unsigned long> serverId) {
  if (serverId) result["server_id"] = *serverId;
  results_.push_back(std::move(result));
}

void Call::PrintResults() {
  if (!options.json || results_.empty()) return;
  nlohmann::ordered_json record = Record();
  if (results_.size() == 1) {
    record.update(results_.front());
  } else {
    record["results"] = results_;
  }
  Print(record);
}

nlohmann::ordered_json Call::Record() const {
  nlohmann::ordered_json record = NewJsonObject();
  SetJsonText(&record, "host", host.Name());
  return record;
}

void Call::Print(const nlohmann::ordered_json& record) {
  output.Print(JsonText(record));
}

void Call::Sleep(unsigned long ms) {
  if (cancel.Wait(ms) != 0) throw Failure{kInterrupted, 0, "interrupted"};
  if (!IsOutputGood()) throw Failure{kFailed, 0, "standard output could not be written"};
}

bool Session::WaitFor(Task* task) {
  while (!task->Wait(kLookMs)) {
    if (cancel_.Wait(0) != 0) return task->Wait(kGraceMs);
  }
  return true;
}

void Session::Show(Call* call, bool* isFirst) const {
  const bool isTitled = options_.hosts.size() > 1 && !options_.json && !call->output.IsEmpty();
  if (isTitled) {
    if (!*isFirst) Write(false, "");
    Write(false, Paint("== " + call->host.Name() + " ==", Colour::Bold));
  }
  *isFirst = false;
  call->output.Flush();
}

Status Session::OnEachHost(const std::function<void(Call&)>& work, bool isLive) {
  std::vector<std::unique_ptr<Call>> calls;
  std::vector<std::unique_ptr<Task>> tasks;
  for (std::size_t i = 0; i < options_.hosts.size(); ++i) {
    calls.push_back(std::make_unique<Call>(options_, cancel_, i, isLive));
    Call* const call = calls.back().get();
    try {
      tasks.push_back(std::make_unique<Task>([call, &work] { Run(call, work); }));
    } catch (const std::system_error& error) {
      call->Fail({kFailed, EAGAIN, std::string("cannot start a thread: ") + error.what()});
      tasks.push_back(nullptr);
    }
  }
  Status status = kDone;
  bool isFirst = true;
  bool isOver = true;
  for (std::size_t i = 0; i < calls.size(); ++i) {
    if (tasks[i] != nullptr && !WaitFor(tasks[i].get())) {
      isOver = false;
      continue;
    }
    if (!isLive) Show(calls[i].get(), &isFirst);
    status = std::max(status, calls[i]->status);
  }
  if (!isOver) Leave(kInterrupted);
  return status;
}

void Session::Leave(Status status) const {
  std::fflush(stdout);
  const int signal = signals_.Received();
  std::_Exit(signal != 0 ? 128 + signal : status);
}
