/// The connection statuses of all Tika services that a product uses.
#ifndef SCA_PRODUCT_SCA_TIKASTATUSLIST_H
#define SCA_PRODUCT_SCA_TIKASTATUSLIST_H

#include "platform/SCA_Sync.h"
#include "product/SCA_TikaServiceStatus.h"

/// A node's id is the service id of its status. Statuses of one service are not told apart: lookups
/// give the oldest. Empty the list with `ClearAll` before its end, which deletes only the nodes.
/// Threads: `AddStatus`, `GetStatus`, `RemoveStatus` and `ClearAll` may be called by any thread; a
/// walk from `GetHeadStatus` and the statuses themselves belong to one thread at a time.
class SCA_API SCA_TikaStatusList : public SCA_List<SCA_TikaServiceStatus*> {
 public:
  SCA_TikaStatusList();

  /// Makes a status with a copy of the service's record, not connected. A failure is reported.
  /// @param status  Receives the status, which the list owns.
  int AddStatus(SCA_TikaService* service, SCA_TikaServiceStatus** status);
  /// @param status  Untouched when there is none. @return 1 or 0.
  int GetStatus(unsigned long serviceId, SCA_TikaServiceStatus** status);
  /// Takes the status of a service out, if there is one; it belongs to the caller then. @return 1.
  int RemoveStatus(unsigned long serviceId);
  /// Disconnects and deletes every status, outside the lock. @return 1.
  int ClearAll();

  SCA_ListItem<SCA_TikaServiceStatus*>* GetHeadStatus() const { return GetHead(); }
  unsigned long GetStatusCount();

 private:
  SCA_Mutex mutex_;
};

#endif  // SCA_PRODUCT_SCA_TIKASTATUSLIST_H
