#include "foundation/SCA_List.h"

int SCA_ListSortCallbackA(const void* left, const void* right) {
  const char* leftName = static_cast<const SCA_ListSortEntry*>(left)->name;
  const char* rightName = static_cast<const SCA_ListSortEntry*>(right)->name;
  if (leftName == nullptr || rightName == nullptr) {
    return static_cast<int>(leftName != nullptr) - static_cast<int>(rightName != nullptr);
  }
  return std::strcmp(leftName, rightName);
}
