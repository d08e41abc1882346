/// The product's Tika integration settings.
/// Threads: the mode, the limits and the flags may be read and set from any thread; the texts are
/// set before the object is shared.
#ifndef SCA_SETTINGS_SCA_TIKACONFIGORV_H
#define SCA_SETTINGS_SCA_TIKACONFIGORV_H

#include <cstdint>

#include "platform/SCA_Object.h"

/// Values of the mode.
constexpr unsigned long SCA_TikaModeDisabled = 0;
constexpr unsigned long SCA_TikaModeEnabled = 1;
constexpr unsigned long SCA_TikaModeOptional = 2;

/// Whether text extraction is on, which files it takes, and the limits of its clients. The HTTP
/// clients keep a pointer to one settings object and read their time-out from it.
class SCA_API SCA_TikaConfigOrv : public SCA_Object {
 public:
  SCA_TikaConfigOrv();

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

  /// Limit of pending extraction requests; whoever queues requests applies it.
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

 private:
  SCA_AtomicValue<std::uint32_t> mode_{SCA_TikaModeDisabled};
  SCA_AtomicValue<std::uint32_t> networkTimeout_{10000};
  SCA_AtomicValue<std::uint32_t> maxPendingRequests_{128};
  char javaOptions_[260] = "";
  char fileExtensions_[520] = "PDF DOC DOCX XLS XLSX";
  SCA_AtomicValue<int> showParseErrors_{1};
};

#endif  // SCA_SETTINGS_SCA_TIKACONFIGORV_H
