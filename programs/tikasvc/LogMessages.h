/// The messages of a log that a reader does not have yet.
#ifndef SCA_PROGRAMS_TIKASVC_LOGMESSAGES_H
#define SCA_PROGRAMS_TIKASVC_LOGMESSAGES_H

#include "host/SCA_TikaLog.h"

/// Adds the messages of a log with an id above `lastMessageId`, and of these the newest `count`;
/// see `control/SCA_ServiceStatusNames.h`.
int SerializeMessages(const SCA_TikaLog& log, unsigned long lastMessageId, unsigned long count,
                      SCA_ConfigObj* object);

#endif  // SCA_PROGRAMS_TIKASVC_LOGMESSAGES_H
