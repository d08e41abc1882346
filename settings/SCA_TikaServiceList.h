/// The Tika services of the integration settings.
/// Threads: one at a time.
#ifndef SCA_SETTINGS_SCA_TIKASERVICELIST_H
#define SCA_SETTINGS_SCA_TIKASERVICELIST_H

#include "foundation/SCA_List.h"
#include "settings/SCA_TikaService.h"

/// Owns its records and gives them their ids. A node bears the record's id, and as its name the
/// host name that the record had when it was added. Ids begin at 0, are not given twice and end
/// before 0xFFFFFFFF, which means none.
///
/// int results are 1 for success and 0 for failure; failures are reported at level 5.
class SCA_API SCA_TikaServiceList : public SCA_List<SCA_TikaService*> {
 public:
  SCA_TikaServiceList();
  ~SCA_TikaServiceList() override;  ///< Deletes the records.

  /// Adds a record with default settings; refused when a node has exactly this name.
  /// @param hostName  Copied, cut to 259 bytes.
  /// @param service   Receives the record, which the list owns.
  int AddService(const char* hostName, SCA_TikaService** service);
  /// Adds the caller's record, which the list owns after success; refused when a record of this
  /// host exists, in any case of letters.
  /// @param serviceId  Receives the id, which the record receives too.
  /// @param error      `SCA_ErrorCannotCreate` when the record cannot be added; untouched for a
  ///                   duplicate.
  int AddService(SCA_TikaService* service, unsigned long* serviceId, unsigned long* error);
  /// Deletes the record of an id. @return 0 when there is none.
  int DeleteService(unsigned long serviceId);
  /// Deletes every record; ids and the change counter restart. @return 1.
  int ClearAll();

  /// @name Lookup; 0 when there is no such record
  /// @{
  int GetService(unsigned long serviceId, SCA_TikaService** service) const {
    return GetItem(serviceId, service);
  }
  /// By the node's name, in exactly this case of letters.
  int GetService(const char* hostName, SCA_TikaService** service) const {
    return GetItem(hostName, service);
  }
  /// By the records' host names, in any case of letters. @note Inherited.
  int IsServiceExists(const char* hostName) const;
  /// @}

  /// The change counter: raised by each service added or deleted.
  unsigned long GetServicesStatusId() const { return servicesStatusId_; }
  void UpdateServicesStatusId() { ++servicesStatusId_; }

  unsigned long GetEnabledServices() const;
  /// Sums over all records.
  unsigned long GetActiveServers() const;
  unsigned long GetErrorServers() const;

  /// Adds the change counter and an object "Services" with an object for each record.
  /// @param withStatus  Not 0 adds the records' status.
  int Serialize(SCA_ConfigObj* obj, int withStatus) const;
  /// Replaces the records by those of an object. Duplicate host names are taken as they come. A
  /// failure keeps the records read before it.
  int Deserialize(SCA_ConfigObj* obj, int withStatus);

  /// Prints the list on standard output. @return 1.
  int Show() const;

 private:
  template <class Figure>
  unsigned long Sum(Figure figure) const;
  int Append(SCA_TikaService* service);

  std::uint32_t nextServiceId_ = 0;
  std::uint32_t servicesStatusId_ = 0;
};

#endif  // SCA_SETTINGS_SCA_TIKASERVICELIST_H
