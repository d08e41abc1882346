#include "product/SCA_TikaClientList.h"

#include <cstdio>

#include "platform/SCA_Report.h"
#include "platform/SCA_Text.h"
#include "platform/SCA_Time.h"

namespace {

// More than a pool usually grows or shrinks by at a time.
constexpr std::uint32_t kMostSpares = 128;

constexpr char kSource[] = "SCA_TikaClientList";

int AddSize(SCA_ConfigObj* obj, const char* name, unsigned long long bytes) {
  char text[260];
  SCA_FormatSize(bytes, text, sizeof text);
  return obj->AddField(name, text, 0);
}

bool AddStatus(const SCA_TikaClient& client, SCA_ConfigObj* obj) {
  char time[260];
  SCA_FormatAbsTime(client.GetConnectTime(), time, sizeof time);
  return obj->AddField("Client Id", client.GetClientId(), 0) != 0 &&
         obj->AddField("Host Name", client.GetServerName(), 0) != 0 &&
         obj->AddField("Port Number", client.GetPortNumber(), 0) != 0 &&
         obj->AddField("Object Valid", client.IsValid() != 0 ? "Yes" : "No", 0) != 0 &&
         obj->AddField("Connect Time", time, 0) != 0 &&
         obj->AddField("Connect Count", client.GetConnectCount(), 0) != 0 &&
         obj->AddField("Process Status", client.GetProcessStatus(), 0) != 0 &&
         obj->AddField("Status Code", client.GetClientStatusCode(), 0) != 0 &&
         obj->AddField("Total Errors", client.GetTotalErrors(), 0) != 0 &&
         obj->AddField("Total Files", client.GetTotalFiles(), 0) != 0 &&
         AddSize(obj, "Sent Data", client.GetSentData()) != 0 &&
         AddSize(obj, "Recv Data", client.GetRecvData()) != 0;
}

}  // namespace

SCA_TikaClientList::SCA_TikaClientList() : SCA_List(0) {
  KeepSpares(kMostSpares);
  SetValid(mutex_.IsValid());
}

int SCA_TikaClientList::AddClient(SCA_TikaClient* client, unsigned long* clientId) {
  const SCA_MutexGuard guard(mutex_);
  if (Nodes().AddItemToTail(client, clientId) == 0) return 0;
  client->SetClientId(*clientId);
  return 1;
}

int SCA_TikaClientList::AddClient(SCA_TikaClient* client, unsigned long clientId) {
  const SCA_MutexGuard guard(mutex_);
  if (Nodes().AddItemToTail(client, clientId) == 0) return 0;
  client->SetClientId(clientId);
  return 1;
}

int SCA_TikaClientList::GetClient(unsigned long clientId, SCA_TikaClient** client) {
  const SCA_MutexGuard guard(mutex_);
  return Nodes().GetItem(clientId, client);
}

int SCA_TikaClientList::RemoveClient(unsigned long clientId) {
  const SCA_MutexGuard guard(mutex_);
  Nodes().DeleteItem(clientId);
  return 1;
}

int SCA_TikaClientList::TakeRequestedClient(const SCA_TikaClientRequest* request,
                                            SCA_TikaClient** client) {
  const SCA_MutexGuard guard(mutex_);
  Node* node = Nodes().GetHead();
  while (node != nullptr && request->MatchServiceId(node->GetItem()->GetServiceId()) == 0) {
    node = node->GetNext();
  }
  if (node == nullptr) return 0;
  *client = node->GetItem();
  // The node that matched, not the one of the client's id: they would differ for a client whose id
  // was changed in the pool.
  Nodes().DeleteListItem(node);
  return 1;
}

int SCA_TikaClientList::GetStatus(SCA_ConfigObj* obj) {
  const SCA_MutexGuard guard(mutex_);
  for (const Node* node = Nodes().GetHead(); node != nullptr; node = node->GetNext()) {
    char name[16];
    std::snprintf(name, sizeof name, "%lu", node->GetItem()->GetClientId());
    SCA_ConfigObj* child = obj->AddConfigObj(name);
    if (child == nullptr || !AddStatus(*node->GetItem(), child)) {
      SCA_GetReportFunction(kSource, __LINE__)(
          SCA_LevelError, "SCA_TikaClientList::GetStatus: cannot add client status object");
      return 0;
    }
  }
  return 1;
}
