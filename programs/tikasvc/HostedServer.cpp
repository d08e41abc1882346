#include "programs/tikasvc/HostedServer.h"

#include "programs/tikasvc/WatchReports.h"

namespace {

const char* StatusText(const SCA_TikaServer& server, const SCA_TikaWatchState& health) {
  const unsigned long status = server.GetProcessStatus();
  const bool isAwaited = status == SCA_ServerActive && !health.isReady;
  if (isAwaited) return health.hasAnswered != 0 ? "silent" : "starting";
  return SCA_FindProcessStatus(status).serverWord;
}

}  // namespace

bool HostedServer::IsReady() const {
  SCA_TikaWatchState state;
  return server->IsActive() != 0 && watch->GetState(&state) != 0 && state.isReady != 0;
}

int HostedServer::GetStatus(ServerStatus* status, SCA_ConfigObj* history) const {
  SCA_TikaWatchState health;
  if (watch->GetState(&health, history) == 0) return 0;
  const unsigned long code = server->GetStatusCode();
  const bool runs = health.processId != 0;
  // Texts that a start may change are copied under the server's own lock.
  SCA_ConfigObj copy("Server", nullptr);
  char fileName[SCA_MaxPath] = "";
  char javaOptions[260] = "";
  if (server->Serialize(&copy) == 0 || copy.GetField("FileName", fileName, sizeof fileName) == 0) {
    return 0;
  }
  copy.GetField("JavaOptions", javaOptions, sizeof javaOptions);
  status->ServerId = server->GetServerId();
  status->FileName = fileName;
  status->Port = server->GetPortNumber();
  status->HeapSize = server->GetHeapSize();
  status->JavaOptions = javaOptions;
  status->Status = server->GetProcessStatus();
  status->StatusText = StatusText(*server, health);
  status->Ready = server->IsActive() != 0 && health.isReady != 0 ? 1 : 0;
  status->TikaVersion = health.version;
  status->AnswerTime = health.answerMs;
  status->Silence = health.silenceMs;
  status->StatusCode = code;
  status->StatusCodeText = code != 0 ? StartErrorText(code) : "";
  status->ProcessId = health.processId;
  status->Restarts = health.restarts;
  status->WorkerDeaths = health.workerDeaths;
  status->Documents = runs ? server->GetDocuments() : 0;
  status->StartTime = server->GetStartTime();
  status->UpTime = runs ? server->GetUpTime() : 0;
  status->MemoryUsage = runs ? server->GetMemoryUsage() : 0;
  status->ReadIops = server->GetReadIOPS();
  status->WriteIops = server->GetWriteIOPS();
  status->ReadData = server->GetReadData();
  status->WriteData = server->GetWriteData();
  status->LogSession = server->GetLog()->GetSessionId();
  status->LogLastId = server->GetLog()->GetLastMessageId();
  status->LogErrors = server->GetLog()->GetErrorCount();
  status->LastDeath = health.lastDeath;
  status->LastDeathTime = health.lastDeathTime;
  status->Owner = owners.Text();
  status->ClassArchive = SCA_ClassArchiveText(health.archive);
  return 1;
}
