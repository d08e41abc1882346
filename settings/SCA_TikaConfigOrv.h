/// The product's Tika integration settings.
/// Threads: the mode, the limits and the flags may be read and set from any thread; the texts are
/// set, and the services changed, before the object is shared.
#ifndef SCA_SETTINGS_SCA_TIKACONFIGORV_H
#define SCA_SETTINGS_SCA_TIKACONFIGORV_H

#include <cstdint>

#include "settings/SCA_TikaServiceList.h"

/// Values of the mode.
constexpr unsigned long SCA_TikaModeDisabled = 0;
constexpr unsigned long SCA_TikaModeEnabled = 1;
constexpr unsigned long SCA_TikaModeOptional = 2;

/// File type of saved settings; the object's name in the file is `SCA_SettingsName`.
constexpr unsigned long SCA_FileTypeSettings = 9002;
constexpr char SCA_SettingsName[] = "TikaConfig";

/// Whether text extraction is on, which files it takes, the limits of its clients, and the Tika
/// services. The HTTP clients keep a pointer to one settings object and read their time-out from
/// it. Copies are made by `SetConfig` and `Clone`.
class SCA_API SCA_TikaConfigOrv : public SCA_Object {
 public:
  SCA_TikaConfigOrv();
  SCA_TikaConfigOrv(const SCA_TikaConfigOrv&) = delete;
  SCA_TikaConfigOrv& operator=(const SCA_TikaConfigOrv&) = delete;

  unsigned long GetMode() const { return mode_.Get(); }
  void SetMode(unsigned long mode) { mode_.Set(static_cast<std::uint32_t>(mode)); }
  /// @return 1 when the mode is not 0; optional counts as enabled.
  int IsEnabled() const;
  /// @return "Disabled", "Enabled", "Optional", or "Error" for any other mode; static storage.
  const char* GetModeDescr() const;

  /// Milliseconds that the HTTP clients give to every wait for data.
  unsigned long GetNetworkTimeout() const { return networkTimeout_.Get(); }
  void SetNetworkTimeout(unsigned long timeoutMs) {
    networkTimeout_.Set(static_cast<std::uint32_t>(timeoutMs));
  }

  /// Limit of pending extraction requests; the queue's owner applies it.
  unsigned long GetMaxPendingRequests() const { return maxPendingRequests_.Get(); }
  void SetMaxPendingRequests(unsigned long count) {
    maxPendingRequests_.Set(static_cast<std::uint32_t>(count));
  }

  /// Extra Java options for the Tika servers; cut to 259 bytes when set. The pointer is to the
  /// field itself.
  const char* GetJavaOptions() const { return javaOptions_; }
  void SetJavaOptions(const char* options);

  /// Extensions that go to Tika, separated by blanks; cut to 519 bytes when set. The pointer is to
  /// the field itself.
  const char* GetFileExtensions() const { return fileExtensions_; }
  void SetFileExtensions(const char* extensions);
  /// @param ext  An extension without its dot, in any case.
  /// @return 1 when it is one of the file extensions, whatever the mode.
  int MatchExtension(const char* ext) const;

  /// 1 when the product shows the parse errors of Tika.
  int GetShowParseErrors() const { return showParseErrors_.Get(); }
  void SetShowParseErrors(int show) { showParseErrors_.Set(show); }

  /// @return The services, which this object owns.
  SCA_TikaServiceList* GetServiceList() { return &services_; }
  const SCA_TikaServiceList* GetServiceList() const { return &services_; }
  unsigned long GetServiceCount() const { return services_.Count(); }
  unsigned long GetEnabledServices() const { return services_.GetEnabledServices(); }
  /// Deletes the services; the other fields keep their values. @return 1.
  int ClearAll() { return services_.ClearAll(); }

  /// Adds all fields to an object, the services without their status.
  /// @return 0, after a report, when something cannot be stored.
  int Serialize(SCA_ConfigObj* obj) const;
  /// Reads the fields from an object. One that is absent leaves the member as it was; the services
  /// are replaced in any case.
  /// @return 0, after a report, for a null object and for services that cannot be read; what was
  ///         read before stays.
  int Deserialize(SCA_ConfigObj* obj);
  /// Makes this a deep copy of other settings, the services' status aside.
  int SetConfig(const SCA_TikaConfigOrv* from);
  /// @return A deep copy, which the caller ends by `Destroy()`; null after a report.
  SCA_TikaConfigOrv* Clone() const;

 private:
  template <class Settings, class Row>
  static bool ForEachField(Settings& settings, const Row& row);

  SCA_AtomicValue<std::uint32_t> mode_{SCA_TikaModeDisabled};
  SCA_AtomicValue<std::uint32_t> networkTimeout_{10000};
  SCA_AtomicValue<std::uint32_t> maxPendingRequests_{128};
  char javaOptions_[260] = "";
  char fileExtensions_[520] = "PDF DOC DOCX XLS XLSX";
  SCA_AtomicValue<int> showParseErrors_{1};
  SCA_TikaServiceList services_;
};

#endif  // SCA_SETTINGS_SCA_TIKACONFIGORV_H
