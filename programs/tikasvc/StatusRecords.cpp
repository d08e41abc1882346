#include "programs/tikasvc/StatusRecords.h"

namespace {

int Add(SCA_ConfigObj* object, const char* name, unsigned long long number) {
  return object->AddField(name, number, 0);
}
int Add(SCA_ConfigObj* object, const char* name, const std::string& text) {
  return object->AddField(name, text.c_str(), 0);
}
int Add(SCA_ConfigObj* /*object*/, const char* /*name*/, std::monostate /*object*/) {
  return 1;
}

}  // namespace

#define SCA_ADD(identifier, name, type, meaning) \
  if (Add(object, name, status.identifier) == 0) return 0;

int AddFields(const ServiceStatus& status, SCA_ConfigObj* object) {
  SCA_SERVICE_FIELDS(SCA_ADD)
  return 1;
}

int AddFields(const ServerStatus& status, SCA_ConfigObj* object) {
  SCA_SERVER_FIELDS(SCA_ADD)
  return 1;
}
