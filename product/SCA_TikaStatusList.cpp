#include "product/SCA_TikaStatusList.h"

#include <new>

#include "platform/SCA_Report.h"

namespace {

constexpr char kSource[] = "SCA_TikaStatusList";

}  // namespace

SCA_TikaStatusList::SCA_TikaStatusList() : SCA_List(0) {
  SetValid(mutex_.IsValid());
}

int SCA_TikaStatusList::AddStatus(SCA_TikaService* service, SCA_TikaServiceStatus** status) {
  const unsigned long serviceId = service->GetServiceId();
  SCA_Owned<SCA_TikaServiceStatus> added(new (std::nothrow) SCA_TikaServiceStatus());
  if (added == nullptr || added->IsValid() == 0) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError,
        "SCA_TikaStatusList::DoConnectService: cannot create status for service - %lu", serviceId);
    return 0;
  }
  if (added->Init(service) == 0) {
    SCA_GetReportFunction(kSource, __LINE__)(
        SCA_LevelError,
        "SCA_TikaStatusList::DoConnectService: cannot init status for service - %lu", serviceId);
    return 0;
  }
  const SCA_MutexGuard guard(mutex_);
  if (AddItemToTail(added.get(), serviceId) == 0) return 0;
  *status = added.release();
  return 1;
}

int SCA_TikaStatusList::GetStatus(unsigned long serviceId, SCA_TikaServiceStatus** status) {
  const SCA_MutexGuard guard(mutex_);
  return GetItem(serviceId, status);
}

int SCA_TikaStatusList::RemoveStatus(unsigned long serviceId) {
  const SCA_MutexGuard guard(mutex_);
  DeleteItem(serviceId);
  return 1;
}

int SCA_TikaStatusList::ClearAll() {
  // A status takes leave of its service when it ends, which may take seconds: nobody else is to
  // wait for the mutex meanwhile.
  for (;;) {
    SCA_Owned<SCA_TikaServiceStatus> leaving;
    {
      const SCA_MutexGuard guard(mutex_);
      SCA_TikaServiceStatus* status = nullptr;
      if (GetHeadItem(&status) == 0) break;
      leaving.reset(status);
      DeleteHeadItem();
    }
  }
  return 1;
}

unsigned long SCA_TikaStatusList::GetStatusCount() {
  const SCA_MutexGuard guard(mutex_);
  return Count();
}
