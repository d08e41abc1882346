#include "product/SCA_TikaRequestList.h"

#include <cstdio>

#include "platform/SCA_Report.h"
#include "platform/SCA_Time.h"

namespace {

// More than a queue usually grows or shrinks by at a time.
constexpr std::uint32_t kMostSpares = 128;

constexpr char kSource[] = "SCA_TikaRequestList";

bool AddStatus(const SCA_TikaClientRequest& request, SCA_ConfigObj* obj) {
  char time[260];
  SCA_FormatAbsTime(request.GetAbsTime(), time, sizeof time);
  return obj->AddField("Request Id", request.GetRequestId(), 0) != 0 &&
         obj->AddField("Process Status", request.GetProcessStatus(), 0) != 0 &&
         obj->AddField("Status Code", request.GetStatusCode(), 0) != 0 &&
         obj->AddField("File Extension", request.GetFileExt(), 0) != 0 &&
         obj->AddField("Pool Name", request.GetPoolName(), 0) != 0 &&
         obj->AddField("Request Time", time, 0) != 0;
}

}  // namespace

SCA_TikaRequestList::SCA_TikaRequestList() : SCA_List(0) {
  KeepSpares(kMostSpares);
  SetValid(mutex_.IsValid());
}

int SCA_TikaRequestList::AddRequest(SCA_TikaClientRequest* request) {
  const SCA_MutexGuard guard(mutex_);
  if (Nodes().AddItemToTail(request, static_cast<unsigned long>(nextRequestId_)) == 0) return 0;
  request->SetRequestId(nextRequestId_++);
  return 1;
}

// Walks from the oldest request, deletes the abandoned ones on the way, and takes the first one
// that is accepted.
template <class Accept>
int SCA_TikaRequestList::Take(Accept accept, SCA_TikaClientRequest** request) {
  for (Node* node = Nodes().GetHead(); node != nullptr;) {
    Node* const current = node;
    node = node->GetNext();
    SCA_TikaClientRequest* const candidate = current->GetItem();
    if (candidate->GetProcessStatus() == SCA_RequestAbandoned) {
      Nodes().DeleteListItem(current);
      candidate->Destroy();
    } else if (accept(*candidate)) {
      Nodes().DeleteListItem(current);
      *request = candidate;
      return 1;
    }
  }
  return 0;
}

int SCA_TikaRequestList::TakeClientRequest(const SCA_TikaClient* client,
                                           SCA_TikaClientRequest** request) {
  const SCA_MutexGuard guard(mutex_);
  const unsigned long serviceId = client->GetServiceId();
  return Take(
      [serviceId](const SCA_TikaClientRequest& candidate) {
        return candidate.MatchServiceId(serviceId) != 0;
      },
      request);
}

int SCA_TikaRequestList::TakeClientRequest(SCA_TikaClientList* clients,
                                           SCA_TikaClientRequest** request,
                                           SCA_TikaClient** client) {
  const SCA_MutexGuard guard(mutex_);
  return Take(
      [clients, client](const SCA_TikaClientRequest& candidate) {
        return clients->TakeRequestedClient(&candidate, client) != 0;
      },
      request);
}

int SCA_TikaRequestList::RemoveRequest(const SCA_TikaClientRequest* request) {
  const SCA_MutexGuard guard(mutex_);
  for (Node* node = Nodes().GetHead(); node != nullptr; node = node->GetNext()) {
    if (node->GetItem() == request) {
      Nodes().DeleteListItem(node);
      return 1;
    }
  }
  return 0;
}

int SCA_TikaRequestList::GetStatus(SCA_ConfigObj* obj) {
  const SCA_MutexGuard guard(mutex_);
  for (const Node* node = Nodes().GetHead(); node != nullptr; node = node->GetNext()) {
    char name[16];
    std::snprintf(name, sizeof name, "%lu", node->GetItem()->GetRequestId());
    SCA_ConfigObj* child = obj->AddConfigObj(name);
    if (child == nullptr || !AddStatus(*node->GetItem(), child)) {
      SCA_GetReportFunction(kSource, __LINE__)(
          SCA_LevelError, "SCA_TikaRequestList::GetStatus: cannot create request status object");
      return 0;
    }
  }
  return 1;
}
