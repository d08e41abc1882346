#include "settings/SCA_TikaServiceList.h"

#include <cstdio>
#include <new>

#include "platform/SCA_Error.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Text.h"

namespace {

constexpr char kSource[] = "SCA_TikaServiceList";

int Complain(int line, const char* text) {
  return SCA_Complain(kSource, line, SCA_LevelError, "SCA_TikaServiceList::%s", text);
}

int ComplainOfDuplicate(int line, const char* hostName) {
  return SCA_Complain(kSource, line, SCA_LevelError,
                      "SCA_TikaServiceList::AddService: duplicate service host name - %s",
                      hostName);
}

SCA_Owned<SCA_TikaService> NewService() {
  SCA_Owned<SCA_TikaService> service(new (std::nothrow) SCA_TikaService);
  if (service != nullptr && service->IsValid() == 0) service.reset();
  return service;
}

}  // namespace

SCA_TikaServiceList::SCA_TikaServiceList() : SCA_List(0) {}

SCA_TikaServiceList::~SCA_TikaServiceList() {
  ClearAll();
}

// Gives a record the next id and links it.
int SCA_TikaServiceList::Append(SCA_TikaService* service) {
  if (nextServiceId_ == SCA_NoItemId) return 0;
  service->SetServiceId(nextServiceId_);
  const unsigned long id = nextServiceId_;
  if (AddItemToTail(service, service->GetHostName(), id) == 0) return 0;
  ++nextServiceId_;
  UpdateServicesStatusId();
  return 1;
}

int SCA_TikaServiceList::AddService(const char* hostName, SCA_TikaService** service) {
  SCA_Owned<SCA_TikaService> added = NewService();
  if (added == nullptr) return Complain(__LINE__, "AddService: cannot create server object");
  added->SetHostName(hostName);
  // The names in the list are cut as this one is.
  if (GetListItem(added->GetHostName()) != nullptr) {
    return ComplainOfDuplicate(__LINE__, added->GetHostName());
  }
  if (Append(added.get()) == 0) return Complain(__LINE__, "AddService: Cannot add server object");
  *service = added.release();
  return 1;
}

int SCA_TikaServiceList::AddService(SCA_TikaService* service, unsigned long* serviceId,
                                    unsigned long* error) {
  if (service != nullptr && IsServiceExists(service->GetHostName()) != 0) {
    return ComplainOfDuplicate(__LINE__, service->GetHostName());
  }
  if (service == nullptr || Append(service) == 0) {
    *error = SCA_ErrorCannotCreate;
    return Complain(__LINE__, "AddService: Cannot add Tika service");
  }
  *serviceId = service->GetServiceId();
  return 1;
}

int SCA_TikaServiceList::DeleteService(unsigned long serviceId) {
  SCA_TikaService* service = nullptr;
  if (DeleteItem(serviceId, &service) == 0) return 0;
  service->Destroy();
  UpdateServicesStatusId();
  return 1;
}

int SCA_TikaServiceList::ClearAll() {
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    node->GetItem()->Destroy();
  }
  Clear();
  nextServiceId_ = 0;
  servicesStatusId_ = 0;
  return 1;
}

int SCA_TikaServiceList::IsServiceExists(const char* hostName) const {
  char name[260];
  SCA_CopyText(name, hostName, SCA_TextFit::Cut);
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    if (SCA_StrCompareNoCase(node->GetItem()->GetHostName(), name) != 0) return 1;
  }
  return 0;
}

template <class Figure>
unsigned long SCA_TikaServiceList::Sum(Figure figure) const {
  unsigned long sum = 0;
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    sum += figure(*node->GetItem());
  }
  return sum;
}

unsigned long SCA_TikaServiceList::GetEnabledServices() const {
  return Sum([](const SCA_TikaService& service) { return service.IsEnabled() != 0 ? 1UL : 0UL; });
}

unsigned long SCA_TikaServiceList::GetActiveServers() const {
  return Sum([](const SCA_TikaService& service) { return service.GetActiveServers(); });
}

unsigned long SCA_TikaServiceList::GetErrorServers() const {
  return Sum([](const SCA_TikaService& service) { return service.GetErrorServers(); });
}

int SCA_TikaServiceList::Serialize(SCA_ConfigObj* obj, int withStatus) const {
  if (obj == nullptr) return Complain(__LINE__, "Serialize: no config object");
  SCA_ConfigObj* services = obj->AddField("ServicesStatusId", servicesStatusId_, 0) != 0
                                ? obj->AddConfigObj("Services")
                                : nullptr;
  if (services == nullptr) {
    return Complain(__LINE__, "Serialize: cannot create service list config object");
  }
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    const SCA_TikaService& service = *node->GetItem();
    char name[16];
    std::snprintf(name, sizeof name, "%lu", service.GetServiceId());
    SCA_ConfigObj* child = services->AddConfigObj(name);
    if (child == nullptr) {
      return Complain(__LINE__, "Serialize: cannot create service config object");
    }
    if (service.Serialize(child, withStatus) == 0) {
      services->GetFields().DeleteListItem(child);
      return SCA_Complain(kSource, __LINE__, SCA_LevelError,
                          "SCA_TikaServiceList::Serialize: cannot serialize service - %lu",
                          service.GetServiceId());
    }
  }
  return 1;
}

int SCA_TikaServiceList::Deserialize(SCA_ConfigObj* obj, int withStatus) {
  ClearAll();
  if (obj == nullptr) return Complain(__LINE__, "Deserialize: no config object");
  obj->GetField("ServicesStatusId", &servicesStatusId_);
  if (obj->IsFieldExists("Services") == 0) return 1;
  const SCA_ConfigObj* services = obj->GetConfigObj("Services");
  // What comes from outside may hold a plain field where an object belongs.
  if (services == nullptr) {
    return Complain(__LINE__, "Deserialize: Cannot deserialize service object");
  }
  for (SCA_Field* field = services->GetFields().GetHead(); field != nullptr;
       field = field->GetNext()) {
    SCA_Owned<SCA_TikaService> service = NewService();
    if (service == nullptr) return Complain(__LINE__, "Deserialize: Cannot create service object");
    if (field->GetType() != SCA_FieldTypeObject ||
        service->Deserialize(static_cast<SCA_ConfigObj*>(field), withStatus) == 0) {
      return Complain(__LINE__, "Deserialize: Cannot deserialize service object");
    }
    const unsigned long id = service->GetServiceId();
    if (AddItemToTail(service.get(), service->GetHostName(), id) == 0) {
      return Complain(__LINE__, "Deserialize: Cannot create service object");
    }
    static_cast<void>(service.release());
    // The id that means none is never given: after it the ids would restart.
    if (id >= nextServiceId_ && id != SCA_NoItemId) {
      nextServiceId_ = static_cast<std::uint32_t>(id + 1);
    }
  }
  return 1;
}

int SCA_TikaServiceList::Show() const {
  if (Count() == 0) {
    std::printf("No Tika Services to display.\n");
    return 1;
  }
  std::printf("%lu Tika Service%s:\n\n", Count(), Count() == 1 ? "" : "s");
  for (const Node* node = GetHead(); node != nullptr; node = node->GetNext()) {
    const SCA_TikaService& service = *node->GetItem();
    // The "-10" after the host name is text: listings have always had it.
    std::printf("%lu - %s-10 - %-10s - CS:%lu - AS:%lu\n", service.GetServiceId(),
                service.GetHostName(), service.GetStatusString(), service.GetNumOfServers(),
                service.GetActiveServers());
  }
  return 1;
}
