#include "programs/tikaextract/Extraction.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"
#include "programs/common/Json.h"
#include "programs/tikaextract/ServerProbe.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned long kConnectMs = 10000;
constexpr unsigned long kServiceDelayMs = 2000;
constexpr unsigned long kLookMs = 100;      // between two looks at the cancel event
constexpr std::size_t kLargestWindow = 64;  // so far the texts may run ahead of the one to print

struct Advice {
  unsigned long code;
  const char* text;
};

constexpr Advice kAdvice[] = {
    {SCA_ErrorTika422, "it is empty, encrypted or damaged: open it in its own program"},
    {SCA_ErrorTika500, "try another version of Tika, or look for the cause with --verbose"},
    {ETIMEDOUT, "raise --timeout if the document is large"},
    {ECONNRESET, "the server may have run out of memory: raise its heap (--java-heap)"},
    {EPIPE, "the server may have refused the file or run out of memory"},
    {ECONNREFUSED, "check that the server runs and listens on that port"},
    {SCA_ErrorHostName, "check the name of the server"},
    {ENOENT, "check the name"},
    {EACCES, "check its permissions"},
    {EISDIR, "name the files in it, or use -r"},
    {ENOSPC, "make room and try again"},
    {SCA_ErrorNotRegularFile, "copy its content into a file first"},
    {SCA_ErrorFileShrank, "try again when nobody writes to it"},
    {SCA_ErrorInvalidData, "check that the server is a Tika server of version 1.x to 3.x"},
    {SCA_ErrorServersDied, "it may need more memory than they have: raise their heaps"},
    {SCA_ErrorTimeLimit, "raise --time-limit"},
};

std::string Explain(unsigned long code) {
  for (const Advice& advice : kAdvice) {
    if (advice.code == code) return std::string(SCA_ErrorText(code)) + "; " + advice.text;
  }
  return std::string(SCA_ErrorText(code)) + "; --verbose shows more";
}

unsigned long long SizeOf(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? 0 : size;
}

}  // namespace

Extraction::Extraction(const Options& options, SCA_Event* cancel)
    : options_(options),
      cancel_(cancel),
      setup_(options),
      progress_(!options.outputDir.empty() && !options.jsonl),
      private_(options, cancel),
      services_([this](unsigned long serviceId,
                       unsigned short port) { AddServerOfService(serviceId, port); },
                options.verbose || progress_.IsShown()) {}

Extraction::~Extraction() {
  if (!options_.keyFile.empty()) SCA_SetControlKeyProvider(nullptr, nullptr);
}

int Extraction::Run() {
  std::string complaint = setup_.Prepare();
  if (complaint.empty()) complaint = UseKey();
  if (complaint.empty() && !options_.outputDir.empty()) {
    complaint = journal_.Open(options_.outputDir, options_.resume);
  }
  if (!complaint.empty()) {
    progress_.PrintLine("tikaextract: " + complaint);
    return kWrongUse;
  }
  if (options_.files.empty() && options_.filesFrom.empty()) return kAllExtracted;
  if (!MakeDispatcher()) {
    progress_.PrintLine("tikaextract: not enough memory");
    return kSomeFailed;
  }
  const int status = RunWithServers();
  // A worker that still waits for the private server need not wait any longer.
  cancel_->Set();
  dispatcher_->Stop();
  services_.Leave();
  ShowServices();
  return status;
}

int Extraction::RunWithServers() {
  const int status = StartDispatcher();
  if (status != kAllExtracted) return status;
  const int result = RunDocuments();
  if (options_.IsBulk()) progress_.PrintLine("tikaextract: " + progress_.Summary());
  return result;
}

// The key of the command line is that of all services.
std::string Extraction::UseKey() {
  if (options_.keyFile.empty()) return {};
  unsigned long error = 0;
  if (SCA_LoadControlKey(options_.keyFile.c_str(), &key_, &error) == 0) {
    return "cannot use the key '" + options_.keyFile + "': " + SCA_ErrorText(error);
  }
  const auto provide = [](void* context, const char* /*host*/, unsigned short /*port*/,
                          SCA_ControlKey* key, unsigned long* /*error*/) {
    *key = *static_cast<const SCA_ControlKey*>(context);
    return 1;
  };
  SCA_SetControlKeyProvider(provide, &key_);
  return {};
}

int Extraction::RunDocuments() {
  const auto isTaken = [this](const std::string& extension) { return IsTaken(extension); };
  if (progress_.IsShown()) CountDocuments();
  documents_ = std::make_unique<Documents>(options_, isTaken);
  window_ = std::min<std::size_t>(kLargestWindow, setup_.Settings().GetMaxPendingRequests());
  while (Fill()) {
    const std::unique_ptr<Job> job = TakeFinished();
    ShowServices();
    Conclude(job.get());
    if (outputClosed_) CancelOnce();
  }
  return status_;
}

bool Extraction::IsTaken(const std::string& extension) const {
  return setup_.Settings().MatchExtension(extension.c_str()) != 0;
}

// Only for who looks: a walk of its own.
void Extraction::CountDocuments() {
  if (!Documents::CanCount(options_)) return;
  Documents documents(options_,
                      [this](const std::string& extension) { return IsTaken(extension); });
  Document document;
  unsigned long long files = 0;
  unsigned long long bytes = 0;
  while (!IsCancelled() && documents.Next(&document)) {
    ++files;
    bytes += SizeOf(document.path);
  }
  progress_.SetTotal(files, bytes);
}

bool Extraction::MakeDispatcher() {
  if (UsesPrivateServer()) setup_.MakePrivateService();
  SCA_TikaDispatchLimits limits;
  limits.connectMs = kConnectMs;
  limits.fileMs = options_.timeLimitMs;
  limits.variant = options_.variant;
  // A private server that cannot be started will not come back by itself.
  if (UsesPrivateServer()) limits.noServerMs = 0;
  // Whether a service's server is there costs no connection to find out.
  if (!setup_.Services().empty()) limits.lastDelayMs = kServiceDelayMs;
  dispatcher_ = std::make_unique<SCA_TikaDispatcher>(&setup_.Settings(), limits);
  dispatcher_->SetPrepareServer(&PrepareServer, this);
  return dispatcher_->IsValid() != 0 && services_.Start(setup_);
}

int Extraction::StartDispatcher() {
  std::vector<std::string> complaints;
  if (!FindServers(&complaints)) {
    if (!IsCancelled()) ComplainAboutServers(complaints);
    return kNoServer;
  }
  std::vector<ServerOfService> servers = setup_.Servers();
  if (UsesPrivateServer()) {
    const SCA_LockGuard guard(privateLock_);
    const SCA_TikaService* const service = setup_.Settings().GetServiceList()->GetHead()->GetItem();
    servers.push_back({{"127.0.0.1", private_.Port()}, service->GetServiceId()});
  }
  std::size_t clients = options_.jobs != 0 ? options_.jobs : servers.size();
  if (!setup_.Services().empty()) clients = servers.size() * ClientsForServer();
  for (std::size_t i = 0; i < clients; ++i) {
    const ServerOfService& server = servers[i % servers.size()];
    unsigned long error = 0;
    if (!AddClient(server, &error)) {
      progress_.PrintLine("tikaextract: cannot use the server: " + Explain(error));
      return kSomeFailed;
    }
  }
  return kAllExtracted;
}

void Extraction::ComplainAboutServers(const std::vector<std::string>& complaints) {
  std::vector<std::string> lines = services_.Board().TakeNotes();
  for (const std::string& complaint : complaints) {
    if (std::find(lines.begin(), lines.end(), complaint) == lines.end()) lines.push_back(complaint);
  }
  for (const std::string& line : lines) progress_.PrintLine("tikaextract: " + line);
}

bool Extraction::AddClient(const ServerOfService& server, unsigned long* error) {
  if (dispatcher_->AddServer(server.address.host.c_str(), server.address.port, server.serviceId,
                             error) == 0) {
    return false;
  }
  clients_.fetch_add(1);
  return true;
}

// Services' servers come one by one: each has its share of what is left, and one at least.
unsigned long Extraction::ClientsForServer() {
  const unsigned long left = options_.jobs - std::min(options_.jobs, clients_.load());
  const unsigned long servers = setup_.Servers().size() + services_.Board().Expected();
  return std::clamp(options_.jobs / std::max(1UL, servers), 1UL, std::max(1UL, left));
}

void Extraction::AddServerOfService(unsigned long serviceId, unsigned short port) {
  SCA_TikaService* service = nullptr;
  setup_.Settings().GetServiceList()->GetService(serviceId, &service);
  for (unsigned long i = ClientsForServer(); i > 0; --i) {
    unsigned long error = 0;
    if (AddClient({{service->GetHostName(), port}, serviceId}, &error)) continue;
    if (error != SCA_ErrorStopping) {
      services_.Board().Tell(serviceId,
                             "cannot use port " + std::to_string(port) + ": " + Explain(error));
    }
    return;
  }
}

void Extraction::ShowServices() {
  if (setup_.Services().empty()) return;
  for (const std::string& note : services_.Board().TakeNotes()) {
    progress_.PrintLine("tikaextract: " + note);
  }
  progress_.SetRemark(services_.Board().Summary());
}

// A run begins once one of its servers can be reached.
bool Extraction::FindServers(std::vector<std::string>* complaints) {
  if (UsesPrivateServer()) {
    const SCA_LockGuard guard(privateLock_);
    complaints->resize(1);
    return private_.EnsureReady(&complaints->front());
  }
  for (const ServerOfService& server : setup_.Servers()) {
    SCA_TikaClient client(&setup_.Settings(), server.address.host.c_str(), server.address.port);
    client.SetCancelEvent(cancel_);
    unsigned long error = 0;
    if (client.Connect(kConnectMs, &error) != 0) return true;
    if (IsCancelled()) return false;
    complaints->push_back("no connection to " + FormatHostPort(server.address) + ": " +
                          Explain(error));
  }
  if (services_.Board().WaitForServer(cancel_)) return true;
  for (const std::string& line : services_.Board().Complaints()) complaints->push_back(line);
  return false;
}

int Extraction::PrepareServer(SCA_TikaClient* client, SCA_Event* stop, void* context,
                              unsigned long* error) {
  auto* const self = static_cast<Extraction*>(context);
  const ServiceBoard& board = self->services_.Board();
  if (board.Knows(client->GetServiceId())) {
    // One that is being started anew takes documents before it can serve them, and answers 404.
    const bool isReady =
        board.IsUsable(client->GetServiceId(), client->GetPortNumber()) &&
        !AskTikaVersion(client->GetServerName(), client->GetPortNumber(), stop).empty();
    *error = SCA_ErrorNoServer;
    return isReady ? 1 : 0;
  }
  if (!self->UsesPrivateServer() || self->EnsurePrivateServer(client)) return 1;
  *error = SCA_ErrorNotStarted;
  return 0;
}

bool Extraction::EnsurePrivateServer(SCA_TikaClient* client) {
  const SCA_LockGuard guard(privateLock_);
  if (!private_.EnsureReady(&privateComplaint_)) return false;
  client->SetPortNumber(private_.Port());
  return true;
}

// Keeps the window full. @return False when nothing is under way and nothing is left.
bool Extraction::Fill() {
  Document document;
  while (!isEnding_ && jobs_.size() < Window()) {
    if (IsCancelled() || !documents_->Next(&document)) {
      isEnding_ = true;
      break;
    }
    const Journal::Entry entry =
        options_.outputDir.empty() ? Journal::Entry() : Journal::Describe(document.path);
    const unsigned long long bytes = SizeOf(document.path);
    if (options_.resume && journal_.IsDone(entry, OutputPath(document))) {
      progress_.AddSkipped(bytes);
      progress_.Show();
      continue;
    }
    Submit(document, entry, bytes);
  }
  return !jobs_.empty();
}

// So many clients as servers may be more than are wanted at once.
std::size_t Extraction::Window() const {
  const bool areTooMany = options_.jobs != 0 && clients_.load() > options_.jobs;
  return areTooMany ? std::min<std::size_t>(window_, options_.jobs) : window_;
}

void Extraction::Submit(const Document& document, const Journal::Entry& entry,
                        unsigned long long bytes) {
  jobs_.push_back(std::make_unique<Job>());
  Job* const job = jobs_.back().get();
  job->document = document;
  job->entry = entry;
  job->bytes = bytes;
  if (!document.complaint.empty()) return HasFinished(job);
  std::unique_ptr<TextStore> store;
  if (options_.outputDir.empty()) {
    store = std::make_unique<BufferedText>();
  } else {
    store = std::make_unique<TextFile>(OutputPath(document));
  }
  job->store = store.get();
  store->onFinish = [this, job] { HasFinished(job); };
  job->request.reset(new SCA_TikaExtractRequest(document.path.c_str(), document.extension.c_str(),
                                                "Default", store.release()));
  // What was named goes to a server whatever its extension: any of this run's services will do.
  if (UsesPrivateServer() || !options_.servers.empty() || !options_.services.empty() ||
      !IsTaken(document.extension)) {
    const auto& services = *setup_.Settings().GetServiceList();
    for (const auto* node = services.GetHead(); node != nullptr; node = node->GetNext()) {
      if (node->GetItem()->IsEnabled() != 0) {
        job->request->GetServiceList()->AddItemToTail(node->GetId());
      }
    }
  }
  unsigned long error = 0;
  if (dispatcher_->Submit(job->request.get(), 1, &error) != 0) return;
  job->document.complaint = Explain(error);
  job->request.reset();
  HasFinished(job);
}

void Extraction::HasFinished(Job* job) {
  if (!options_.unordered) return;
  {
    const SCA_LockGuard guard(finishedLock_);
    finished_.push_back(job);
  }
  oneFinished_.Set();
}

// Waits for the next document in the order of printing.
std::unique_ptr<Extraction::Job> Extraction::TakeFinished() {
  Job* job = nullptr;
  while ((job = FirstFinished()) == nullptr) {
    ShowServices();
    progress_.Show();
    if (IsCancelled()) CancelOnce();
  }
  const auto place = std::find_if(jobs_.begin(), jobs_.end(),
                                  [job](const auto& other) { return other.get() == job; });
  std::unique_ptr<Job> taken = std::move(*place);
  jobs_.erase(place);
  return taken;
}

// Looks for a moment. @return Null when there is none yet.
Extraction::Job* Extraction::FirstFinished() {
  if (!options_.unordered) {
    Job* const first = jobs_.front().get();
    const bool isOver = first->request == nullptr || first->request->GetReady()->Wait(kLookMs) != 0;
    return isOver ? first : nullptr;
  }
  Job* job = nullptr;
  {
    const SCA_LockGuard guard(finishedLock_);
    if (!finished_.empty()) {
      job = finished_.front();
      finished_.pop_front();
    }
  }
  if (job == nullptr) {
    oneFinished_.Wait(kLookMs);
  } else if (job->request != nullptr) {
    job->request->GetReady()->Wait(SCA_Infinite);
  }
  return job;
}

void Extraction::CancelOnce() {
  isEnding_ = true;
  if (!isCancelled_) dispatcher_->CancelAll();
  isCancelled_ = true;
}

void Extraction::Conclude(Job* job) {
  const Result result = Judge(job);
  if (result.isExtracted) {
    progress_.AddExtracted(job->bytes);
  } else if (isCancelled_) {
    // What the run's end has cut off is no failure of the document.
    return;
  } else {
    progress_.AddFailed(job->bytes);
    progress_.PrintLine("tikaextract: " + job->document.path + ": " + result.complaint);
    status_ = kSomeFailed;
  }
  const bool isRefused =
      job->request != nullptr && job->request->GetOutcome() == SCA_TikaOutcome::Refused;
  if (result.isExtracted || isRefused) journal_.Add(job->entry, result.isExtracted);
  if (!outputClosed_ && options_.jsonl) PrintRecord(job, result);
  if (!outputClosed_ && !options_.jsonl && options_.outputDir.empty() && result.isExtracted) {
    PrintText(job);
  }
  progress_.Show();
}

Extraction::Result Extraction::Judge(Job* job) {
  Result result;
  if (job->request == nullptr) {
    result.outcome = SCA_TikaOutcomeText(SCA_TikaOutcome::FileFailed);
    result.complaint = job->document.complaint;
    return result;
  }
  const SCA_TikaOutcome outcome = job->request->GetOutcome();
  result.isExtracted = outcome == SCA_TikaOutcome::Extracted && job->store->Error() == 0;
  result.outcome = job->store->Error() != 0 ? SCA_TikaOutcomeText(SCA_TikaOutcome::SinkFailed)
                                            : SCA_TikaOutcomeText(outcome);
  if (!result.isExtracted) result.complaint = Complain(job);
  return result;
}

std::string Extraction::Complain(Job* job) {
  const SCA_TikaExtractRequest& request = *job->request;
  if (job->store->Error() != 0) {
    const std::string target = options_.outputDir.empty() ? std::string("a temporary file")
                                                          : "'" + OutputPath(job->document) + "'";
    return "cannot write " + target + ": " + Explain(job->store->Error());
  }
  if (request.GetRefusalCode() != 0) {
    return std::string(SCA_ErrorText(request.GetRefusalCode())) + " before it had read the file";
  }
  if (request.GetOutcome() != SCA_TikaOutcome::NoServer &&
      request.GetStatusCode() != SCA_ErrorNoServer) {
    return Explain(request.GetStatusCode());
  }
  if (!UsesPrivateServer()) {
    std::string text = request.GetCause();
    for (const std::string& line : services_.Board().Complaints()) text += "; " + line;
    return text;
  }
  const SCA_LockGuard guard(privateLock_);
  return privateComplaint_;
}

void Extraction::PrintText(Job* job) {
  auto* const text = static_cast<BufferedText*>(job->store);
  text->ForEachBlock([](const char* block, std::size_t length) {
    return std::fwrite(block, 1, length, stdout) == length;
  });
  CheckOutput();
}

void Extraction::PrintRecord(Job* job, const Result& result) {
  nlohmann::ordered_json record;
  SetJsonText(&record, "path", job->document.path);
  record["size"] = job->bytes;
  record["outcome"] = result.outcome;
  if (result.isExtracted) {
    record["error"] = nullptr;
  } else {
    SetJsonText(&record, "error", result.complaint);
  }
  record["milliseconds"] = job->request != nullptr ? job->request->GetDuration() : 0;
  SetJsonText(&record, "server", job->request != nullptr ? job->request->GetServer() : "");
  record["textLength"] = result.isExtracted ? job->request->GetTextLength() : 0;
  if (result.isExtracted && options_.outputDir.empty()) {
    std::string text;
    static_cast<BufferedText*>(job->store)
        ->ForEachBlock([&text](const char* block, std::size_t length) {
          text.append(block, length);
          return true;
        });
    SetJsonText(&record, "text", text);
  } else if (result.isExtracted) {
    SetJsonText(&record, "textPath", OutputPath(job->document));
  }
  std::fputs((JsonText(record) + "\n").c_str(), stdout);
  CheckOutput();
}

// Ends the run when the output cannot be written any more.
void Extraction::CheckOutput() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return;
  const auto error = static_cast<unsigned long>(errno);
  outputClosed_ = true;
  status_ = kSomeFailed;
  // A reader that has seen enough is no failure worth a line.
  if (error != EPIPE) {
    progress_.PrintLine("tikaextract: cannot write to standard output: " + Explain(error));
  }
}

std::string Extraction::OutputPath(const Document& document) const {
  return (fs::path(options_.outputDir) / document.output).string();
}
