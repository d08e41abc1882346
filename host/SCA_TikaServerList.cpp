#include "host/SCA_TikaServerList.h"

#include <charconv>
#include <cstdio>
#include <new>

#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"

namespace {

constexpr char kSource[] = "SCA_TikaServerList";

int Complain(int line, const char* text) {
  SCA_GetReportFunction(kSource, line)(SCA_LevelError, "SCA_TikaServerList::%s", text);
  return 0;
}

}  // namespace

SCA_TikaServerList::SCA_TikaServerList() : SCA_List(0) {}

SCA_TikaServerList::~SCA_TikaServerList() {
  SCA_TikaServerList::ClearAll();
}

int SCA_TikaServerList::AddServer(SCA_TikaConfigUser* config, const char* fileName,
                                  unsigned short port, unsigned long heapSize,
                                  const char* javaOptions, SCA_TikaServer** server,
                                  unsigned long* error) {
  if (GetServerByPort(port, server) != 0) return 1;
  SCA_Owned<SCA_TikaServer> added(new (std::nothrow) SCA_TikaServer(config));
  if (added == nullptr || added->IsValid() == 0) {
    Complain(__LINE__, "AddServer: cannot create server object");
    return SCA_Fail(SCA_ErrorCannotCreate, error);
  }
  if (added->SetConfig(fileName, port, heapSize, javaOptions, error) == 0) {
    return Complain(__LINE__, "AddServer: cannot set Tika server configuration");
  }
  if (nextServerId_ == SCA_NoItemId ||
      AddItemToTail(added.get(), static_cast<unsigned long>(nextServerId_)) == 0) {
    Complain(__LINE__, "AddServer: Cannot add server object");
    return SCA_Fail(SCA_ErrorCannotCreate, error);
  }
  added->SetServerId(nextServerId_++);
  ++serversStatusId_;
  *server = added.release();
  return 1;
}

int SCA_TikaServerList::TakeServer(unsigned long serverId, SCA_TikaServer** server) {
  if (DeleteItem(serverId, server) == 0) return 0;
  ++serversStatusId_;
  return 1;
}

int SCA_TikaServerList::DeleteServer(unsigned long serverId) {
  SCA_TikaServer* server = nullptr;
  if (TakeServer(serverId, &server) == 0) return 0;
  server->Destroy();
  return 1;
}

int SCA_TikaServerList::ClearAll() {
  // Asked together, they end side by side.
  for (Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    node->GetItem()->RequestStop();
  }
  while (Node* node = GetHead()) {
    const SCA_Owned<SCA_TikaServer> server(node->GetItem());
    DeleteListItem(node);
    server->StopAll();
  }
  nextServerId_ = 0;
  serversStatusId_ = 0;
  return 1;
}

template <class Predicate>
int SCA_TikaServerList::Find(Predicate matches, SCA_TikaServer** server) const {
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    if (!matches(*node->GetItem())) continue;
    *server = node->GetItem();
    return 1;
  }
  return 0;
}

int SCA_TikaServerList::GetServer(unsigned long serverId, SCA_TikaServer** server) const {
  return GetItem(serverId, server);
}

int SCA_TikaServerList::GetServerByPort(unsigned short port, SCA_TikaServer** server) const {
  return Find([port](const SCA_TikaServer& entry) { return entry.GetPortNumber() == port; },
              server);
}

int SCA_TikaServerList::GetServer(unsigned short port, unsigned long heapSize,
                                  SCA_TikaServer** server) const {
  return Find(
      [port, heapSize](const SCA_TikaServer& entry) {
        return entry.GetPortNumber() == port && entry.GetHeapSize() == heapSize;
      },
      server);
}

unsigned long SCA_TikaServerList::CountWithStatus(unsigned long status) const {
  unsigned long count = 0;
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    if (node->GetItem()->GetProcessStatus() == status) ++count;
  }
  return count;
}

int SCA_TikaServerList::GetStats(unsigned long* idle, unsigned long* active,
                                 unsigned long* inactive, unsigned long* error) const {
  *idle = *active = *inactive = *error = 0;
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    switch (node->GetItem()->GetProcessStatus()) {
      case SCA_ServerIdle:
        ++*idle;
        break;
      case SCA_ServerActive:
        ++*active;
        break;
      case SCA_ServerInactive:
        ++*inactive;
        break;
      case SCA_ServerError:
        ++*error;
        break;
      default:
        break;
    }
  }
  return 1;
}

unsigned long long SCA_TikaServerList::GetMemoryUsage() const {
  unsigned long long sum = 0;
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    sum += node->GetItem()->GetMemoryUsage();
  }
  return sum;
}

int SCA_TikaServerList::Show() const {
  if (Count() == 0) {
    std::printf("No Tika Servers to display.\n");
    return 1;
  }
  std::printf("%lu Tika Server%s:\n\n", Count(), Count() == 1 ? "" : "s");
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    const SCA_TikaServer& server = *node->GetItem();
    std::printf("%lu - Port: %d - File Name: %s\n", server.GetServerId(), server.GetPortNumber(),
                server.GetFileName());
  }
  return 1;
}

int SCA_TikaServerList::Serialize(SCA_ConfigObj* object) const {
  if (object == nullptr) return Complain(__LINE__, "Serialize: no config object");
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    const SCA_TikaServer& server = *node->GetItem();
    char name[24];
    *std::to_chars(name, name + sizeof name - 1, server.GetServerId()).ptr = '\0';
    SCA_Owned<SCA_ConfigObj> child(new (std::nothrow) SCA_ConfigObj(name, object));
    if (child == nullptr || child->IsValid() == 0) {
      return Complain(__LINE__, "Serialize: cannot create server config object");
    }
    if (server.Serialize(child.get()) == 0 || object->AddField(child.get()) == 0) return 0;
    static_cast<void>(child.release());
  }
  return 1;
}

int SCA_TikaServerList::AddCopy(const SCA_ConfigObj& object) {
  SCA_Owned<SCA_TikaServer> copy(new (std::nothrow) SCA_TikaServer(nullptr));
  if (copy == nullptr || copy->IsValid() == 0 || Count() >= SCA_MaxServers) {
    return Complain(__LINE__, "Deserialize: Cannot create server object");
  }
  const bool isRead = copy->Deserialize(&object) != 0;
  const unsigned long id = copy->GetServerId();
  if (!isRead || id == SCA_NoItemId || AddItemToTail(copy.get(), id) == 0) {
    return Complain(__LINE__, "Deserialize: Cannot deserialize server object");
  }
  if (id >= nextServerId_) nextServerId_ = static_cast<std::uint32_t>(id) + 1;
  static_cast<void>(copy.release());
  return 1;
}

int SCA_TikaServerList::Deserialize(const SCA_ConfigObj* object) {
  ClearAll();
  if (object == nullptr) return Complain(__LINE__, "Deserialize: no config object");
  const SCA_Field* member = object->GetFields().GetHead();
  for (; member != nullptr; member = member->GetNext()) {
    const SCA_ConfigObj* child = SCA_ToConfigObj(member);
    if (child != nullptr && AddCopy(*child) == 0) return 0;
  }
  return 1;
}
