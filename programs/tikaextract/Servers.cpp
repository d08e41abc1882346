#include "programs/tikaextract/Servers.h"

#include <algorithm>

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"
#include "programs/common/Advice.h"
#include "programs/common/Escape.h"

namespace {

constexpr unsigned long kConnectMs = 10000;
constexpr unsigned long kServiceDelayMs = 2000;

}  // namespace

Servers::Servers(const Options& options, Setup* setup, Progress* progress, SCA_Event* cancel)
    : options_(options),
      setup_(*setup),
      progress_(*progress),
      cancel_(cancel),
      private_(options, cancel),
      services_([this] { return ClientsForServer(); }, options.verbose || progress->IsShown()) {}

Servers::~Servers() {
  if (!options_.keyFile.empty()) SCA_SetControlKeyProvider(nullptr, nullptr);
}

std::string Servers::UseKey() {
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

ExitStatus Servers::Start() {
  if (!MakeDispatcher()) {
    progress_.PrintLine("tikaextract: not enough memory");
    return kSomeFailed;
  }
  std::vector<std::string> complaints;
  if (Find(&complaints)) return AddClients();
  if (cancel_->Wait(0) == 0) Complain(complaints);
  return kNoServer;
}

void Servers::Stop() {
  const bool isInterrupted = cancel_->Wait(0) != 0;
  // A worker that still waits for the private server need not wait any longer.
  cancel_->Set();
  dispatcher_->Stop();
  if (setup_.IsPrivate() && !isInterrupted) {
    const SCA_LockGuard guard(privateLock_);
    private_.MakeArchiveLater();
  }
  services_.Leave();
  ShowServices();
}

bool Servers::MakeDispatcher() {
  if (setup_.IsPrivate()) setup_.MakePrivateService();
  SCA_TikaDispatchLimits limits;
  limits.connectMs = kConnectMs;
  if (options_.timeLimitMs) {
    limits.fileMs = *options_.timeLimitMs;
    limits.fileMsPerMiB = 0;
  }
  limits.textBytes = static_cast<unsigned long long>(options_.textLimitMb) << 20;
  limits.variant = options_.variant;
  // A private server that cannot be started will not come back by itself.
  if (setup_.IsPrivate()) limits.noServerMs = 0;
  // Whether a service's server is there costs no connection to find out.
  if (!setup_.Services().empty()) limits.lastDelayMs = kServiceDelayMs;
  dispatcher_ = std::make_unique<SCA_TikaDispatcher>(&setup_.Settings(), limits);
  const auto prepare = [](SCA_TikaClient* client, SCA_Event* /*stop*/, void* context,
                          unsigned long* error) {
    return static_cast<Servers*>(context)->PreparePrivate(client, error) ? 1 : 0;
  };
  if (setup_.IsPrivate()) dispatcher_->SetPrepareServer(prepare, this);
  return dispatcher_->IsValid() != 0 && services_.Start(setup_, dispatcher_.get());
}

// A run begins once one of its servers can be reached.
bool Servers::Find(std::vector<std::string>* complaints) {
  if (setup_.IsPrivate()) {
    const SCA_LockGuard guard(privateLock_);
    complaints->resize(1);
    return private_.EnsureReady(&complaints->front());
  }
  for (const ServerOfService& server : setup_.Servers()) {
    SCA_TikaClient client(&setup_.Settings(), server.address.host.c_str(), server.address.port);
    client.SetCancelEvent(cancel_);
    unsigned long error = 0;
    if (client.Connect(kConnectMs, &error) != 0) return true;
    if (cancel_->Wait(0) != 0) return false;
    complaints->push_back("no connection to " + Printable(FormatHostPort(server.address)) + ": " +
                          Explain(error));
  }
  if (services_.WaitForServer(cancel_)) return true;
  for (const std::string& line : services_.Board().Complaints()) complaints->push_back(line);
  return false;
}

void Servers::Complain(const std::vector<std::string>& complaints) {
  std::vector<std::string> lines = services_.Board().TakeNotes();
  for (const std::string& complaint : complaints) {
    if (std::find(lines.begin(), lines.end(), complaint) == lines.end()) lines.push_back(complaint);
  }
  for (const std::string& line : lines) progress_.PrintLine("tikaextract: " + line);
}

ExitStatus Servers::AddClients() {
  std::vector<ServerOfService> servers = setup_.Servers();
  if (setup_.IsPrivate()) {
    const SCA_LockGuard guard(privateLock_);
    const SCA_TikaService* const service = setup_.Settings().GetServiceList()->GetHead()->GetItem();
    servers.push_back({{"127.0.0.1", private_.Port()}, service->GetServiceId()});
  }
  std::size_t clients = options_.jobs != 0 ? options_.jobs : servers.size();
  if (!setup_.Services().empty()) clients = servers.size() * ClientsForServer();
  for (std::size_t i = 0; i < clients; ++i) {
    unsigned long error = 0;
    if (AddClient(servers[i % servers.size()], &error)) continue;
    progress_.PrintLine("tikaextract: cannot use the server: " + Explain(error));
    return kSomeFailed;
  }
  return kAllExtracted;
}

bool Servers::AddClient(const ServerOfService& server, unsigned long* error) {
  if (dispatcher_->AddServer(server.address.host.c_str(), server.address.port, server.serviceId,
                             error) == 0) {
    return false;
  }
  clients_.fetch_add(1);
  return true;
}

// Services' servers come one by one: each has its share of what is left, and one at least.
unsigned long Servers::ClientsForServer() {
  const unsigned long left = options_.jobs - std::min(options_.jobs, Clients());
  const unsigned long servers = setup_.Servers().size() + services_.Expected();
  return std::clamp(options_.jobs / std::max(1UL, servers), 1UL, std::max(1UL, left));
}

bool Servers::PreparePrivate(SCA_TikaClient* client, unsigned long* error) {
  *error = SCA_ErrorNotStarted;
  const SCA_LockGuard guard(privateLock_);
  if (!private_.EnsureReady(&privateComplaint_)) return false;
  client->SetPortNumber(private_.Port());
  return true;
}

std::string Servers::Submit(SCA_TikaExtractRequest* request, const std::string& extension) {
  // What was named goes to a server whatever its extension: any of this run's services will do.
  if (!setup_.AreServersSaved() || !setup_.IsListed(extension)) {
    const auto& services = *setup_.Settings().GetServiceList();
    for (const auto* node = services.GetHead(); node != nullptr; node = node->GetNext()) {
      if (node->GetItem()->IsEnabled() != 0) {
        request->GetServiceList()->AddItemToTail(node->GetId());
      }
    }
  }
  unsigned long error = 0;
  return dispatcher_->Submit(request, 1, &error) != 0 ? std::string() : Explain(error);
}

void Servers::ShowServices() {
  if (setup_.Services().empty()) return;
  for (const std::string& note : services_.Board().TakeNotes()) {
    progress_.PrintLine("tikaextract: " + note);
  }
  progress_.SetRemark(services_.Board().Summary());
}

std::string Servers::WhyNone(const std::string& cause) {
  if (setup_.IsPrivate()) {
    const SCA_LockGuard guard(privateLock_);
    return privateComplaint_;
  }
  std::string text = Printable(cause);
  for (const std::string& line : services_.Board().Complaints()) text += "; " + line;
  return text;
}
