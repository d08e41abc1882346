#include "programs/tikaextract/Extraction.h"

#include <algorithm>
#include <filesystem>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"
#include "programs/common/Advice.h"
#include "programs/common/Escape.h"
#include "programs/common/LocalHost.h"
#include "programs/tikaextract/ServerProbe.h"

namespace {

constexpr unsigned long kConnectMs = 10000;
constexpr unsigned long kServiceDelayMs = 2000;
constexpr unsigned long kLookMs = 100;      // between two looks at the cancel event
constexpr std::size_t kLargestWindow = 64;  // so far the texts may run ahead of the one to print

}  // namespace

Extraction::Extraction(const Options& options, SCA_Event* cancel)
    : options_(options),
      cancel_(cancel),
      setup_(options),
      progress_(!options.outputDir.empty() && !options.jsonl),
      output_(options, &progress_, [this](const std::string& cause) { return WhyNoServer(cause); }),
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
  if (complaint.empty()) complaint = output_.Open();
  if (!complaint.empty()) {
    progress_.PrintLine("tikaextract: " + complaint);
    return setup_.StatusOfComplaint();
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
    return "cannot use the key " + Quoted(options_.keyFile) + ": " + SCA_ErrorText(error);
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
  documents_ = std::make_unique<Documents>(options_, isTaken, cancel_);
  window_ = std::min<std::size_t>(kLargestWindow, setup_.Settings().GetMaxPendingRequests());
  while (Fill()) {
    std::unique_ptr<Job> job = TakeFinished();
    ShowServices();
    output_.Take(std::move(job), isCancelled_);
    if (output_.HasFailed()) CancelOnce();
  }
  output_.Finish();
  return output_.Status();
}

bool Extraction::IsTaken(const std::string& extension) const {
  return setup_.Settings().MatchExtension(extension.c_str()) != 0;
}

// Only for who looks: a walk of its own.
void Extraction::CountDocuments() {
  if (!Documents::CanCount(options_)) return;
  Documents documents(
      options_, [this](const std::string& extension) { return IsTaken(extension); }, cancel_);
  Document document;
  unsigned long long files = 0;
  unsigned long long bytes = 0;
  while (!IsCancelled() && documents.Next(&document)) {
    ++files;
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(document.path, error);
    if (!error) bytes += size;
  }
  progress_.SetTotal(files, bytes);
}

bool Extraction::MakeDispatcher() {
  if (UsesPrivateServer()) setup_.MakePrivateService();
  SCA_TikaDispatchLimits limits;
  limits.connectMs = kConnectMs;
  if (options_.timeLimitMs) {
    limits.fileMs = *options_.timeLimitMs;
    limits.fileMsPerMiB = 0;
  }
  limits.textBytes = static_cast<unsigned long long>(options_.textLimitMb) << 20;
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
    if (AddClient({{TikaHostOf(service->GetHostName()), port}, serviceId}, &error)) continue;
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
    complaints->push_back("no connection to " + Printable(FormatHostPort(server.address)) + ": " +
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
    std::unique_ptr<Job> job = output_.Admit(document);
    if (job != nullptr) Submit(std::move(job));
    output_.FlushWhenDue();
  }
  return !jobs_.empty();
}

// So many clients as servers may be more than are wanted at once.
std::size_t Extraction::Window() const {
  const bool areTooMany = options_.jobs != 0 && clients_.load() > options_.jobs;
  return areTooMany ? std::min<std::size_t>(window_, options_.jobs) : window_;
}

void Extraction::Submit(std::unique_ptr<Job> admitted) {
  jobs_.push_back(std::move(admitted));
  Job* const job = jobs_.back().get();
  const Document& document = job->document;
  if (!document.complaint.empty()) return HasFinished(job);
  std::unique_ptr<TextStore> store = output_.MakeStore(*job);
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
std::unique_ptr<Job> Extraction::TakeFinished() {
  Job* job = nullptr;
  while ((job = FirstFinished()) == nullptr) {
    output_.FlushWhenDue();
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
Job* Extraction::FirstFinished() {
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

std::string Extraction::WhyNoServer(const std::string& cause) {
  if (!UsesPrivateServer()) {
    std::string text = Printable(cause);
    for (const std::string& line : services_.Board().Complaints()) text += "; " + line;
    return text;
  }
  const SCA_LockGuard guard(privateLock_);
  return privateComplaint_;
}
