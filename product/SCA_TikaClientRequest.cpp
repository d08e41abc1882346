#include "product/SCA_TikaClientRequest.h"

#include "platform/SCA_Text.h"

SCA_TikaClientRequest::SCA_TikaClientRequest(const char* fileExt, const char* poolName) {
  SetFileExt(fileExt);
  SetPoolName(poolName);
  SetValid(ready_.IsValid());
}

void SCA_TikaClientRequest::SetFileExt(const char* fileExt) {
  SCA_CopyText(fileExt_, fileExt, SCA_TextFit::Cut);
}

void SCA_TikaClientRequest::SetPoolName(const char* poolName) {
  SCA_CopyText(poolName_, poolName, SCA_TextFit::Cut);
}

int SCA_TikaClientRequest::MatchServiceId(unsigned long serviceId) const {
  const auto wanted = static_cast<std::uint32_t>(serviceId);
  for (const auto* node = serviceList_.GetHead(); node != nullptr; node = node->GetNext()) {
    if (static_cast<std::uint32_t>(node->GetItem()) == wanted) return 1;
  }
  return 0;
}
