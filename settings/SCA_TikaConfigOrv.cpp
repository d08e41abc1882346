#include "settings/SCA_TikaConfigOrv.h"

#include "platform/SCA_Text.h"

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
  char token[260];
  unsigned long position = 0;
  while (SCA_GetToken1(fileExtensions_, &position, token, sizeof token) != 0) {
    if (SCA_StrCompareNoCase(token, ext) != 0) return 1;
  }
  return 0;
}
