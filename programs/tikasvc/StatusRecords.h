/// The status objects as records: a member for each row of `control/SCA_ServiceStatusNames.h`. What
/// fills a record fills the control port's objects and the metrics.
#ifndef SCA_PROGRAMS_TIKASVC_STATUSRECORDS_H
#define SCA_PROGRAMS_TIKASVC_STATUSRECORDS_H

#include <string>
#include <variant>

#include "control/SCA_ServiceStatusNames.h"
#include "foundation/SCA_ConfigObj.h"

template <SCA_FieldType type>
struct StatusValue {
  using Type = unsigned long long;
};
template <>
struct StatusValue<SCA_FieldType::Text> {
  using Type = std::string;
};
template <>
struct StatusValue<SCA_FieldType::Path> {
  using Type = std::string;
};
template <>
struct StatusValue<SCA_FieldType::Object> {
  using Type = std::monostate;  // added by its owner
};

#define SCA_MEMBER(identifier, name, type, meaning) \
  StatusValue<SCA_FieldType::type>::Type identifier{};

struct ServiceStatus {
  SCA_SERVICE_FIELDS(SCA_MEMBER)
};
struct ServerStatus {
  SCA_SERVER_FIELDS(SCA_MEMBER)
};

#undef SCA_MEMBER

/// Adds the fields in the order of their rows. @return 0 when one could not be added.
int AddFields(const ServiceStatus& status, SCA_ConfigObj* object);
int AddFields(const ServerStatus& status, SCA_ConfigObj* object);

#endif  // SCA_PROGRAMS_TIKASVC_STATUSRECORDS_H
