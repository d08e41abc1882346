#include "settings/SCA_TikaConfigOrv.h"

#include <new>

#include "foundation/SCA_FieldRows.h"
#include "platform/SCA_Report.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Text.h"

namespace {

constexpr char kSource[] = "SCA_TikaConfigOrv";

int Complain(int line, const char* text) {
  return SCA_Complain(kSource, line, SCA_LevelError, "SCA_TikaConfigOrv::%s", text);
}

}  // namespace

SCA_TikaConfigOrv::SCA_TikaConfigOrv() {
  SetValid(1);
}

int SCA_TikaConfigOrv::IsEnabled() const {
  return GetMode() != SCA_TikaModeDisabled ? 1 : 0;
}

const char* SCA_TikaConfigOrv::GetModeDescr() const {
  switch (GetMode()) {
    case SCA_TikaModeDisabled:
      return "Disabled";
    case SCA_TikaModeEnabled:
      return "Enabled";
    case SCA_TikaModeOptional:
      return "Optional";
    default:
      return "Error";
  }
}

void SCA_TikaConfigOrv::SetJavaOptions(const char* options) {
  SCA_CopyText(javaOptions_, options, SCA_TextFit::Cut);
}

void SCA_TikaConfigOrv::SetFileExtensions(const char* extensions) {
  SCA_CopyText(fileExtensions_, extensions, SCA_TextFit::Cut);
}

int SCA_TikaConfigOrv::MatchExtension(const char* ext) const {
  return SCA_HasToken(fileExtensions_, ext);
}

template <class Settings, class Row>
bool SCA_TikaConfigOrv::ForEachField(Settings& settings, const Row& row) {
  return row("Mode", settings.mode_) && row("NetworkTimeout", settings.networkTimeout_) &&
         row("MaxPendingRequests", settings.maxPendingRequests_) &&
         row("JavaOptions", settings.javaOptions_) &&
         row("FileExtensions", settings.fileExtensions_) &&
         row("ShowParseErrors", settings.showParseErrors_);
}

int SCA_TikaConfigOrv::Serialize(SCA_ConfigObj* obj) const {
  if (obj == nullptr) return Complain(__LINE__, "Serialize: config object is not set");
  if (!ForEachField(*this, SCA_FieldWriter{obj}))
    return Complain(__LINE__, "Serialize: cannot add a field");
  return services_.Serialize(obj->AddConfigObj("Services"), 0);
}

int SCA_TikaConfigOrv::Deserialize(SCA_ConfigObj* obj) {
  if (obj == nullptr) return Complain(__LINE__, "Deserialize: config object is not set");
  ClearAll();
  ForEachField(*this, SCA_FieldReader{*obj});
  if (obj->IsFieldExists("Services") == 0) return 1;
  // A plain field of that name gives null, which the list refuses.
  if (services_.Deserialize(obj->GetConfigObj("Services"), 0) != 0) return 1;
  return Complain(__LINE__, "Deserialize: cannot deserialize the service list");
}

int SCA_TikaConfigOrv::SetConfig(const SCA_TikaConfigOrv* from) {
  SCA_ConfigObj temporary(SCA_SettingsName, nullptr);
  return from != nullptr && from->Serialize(&temporary) != 0 ? Deserialize(&temporary) : 0;
}

SCA_TikaConfigOrv* SCA_TikaConfigOrv::Clone() const {
  SCA_Owned<SCA_TikaConfigOrv> copy(new (std::nothrow) SCA_TikaConfigOrv);
  if (copy == nullptr || copy->IsValid() == 0) {
    Complain(__LINE__, "Clone: Cannot create SCA_TikaConfigOrv");
    return nullptr;
  }
  if (copy->SetConfig(this) == 0) {
    Complain(__LINE__, "Clone: Cannot copy Tika configuration");
    return nullptr;
  }
  return copy.release();
}
