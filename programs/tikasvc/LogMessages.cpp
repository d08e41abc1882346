#include "programs/tikasvc/LogMessages.h"

int SerializeMessages(const SCA_TikaLog& log, unsigned long lastMessageId, unsigned long count,
                      SCA_ConfigObj* object) {
  const unsigned long newest = log.GetLastMessageId();
  const bool isEmpty = newest == SCA_NoItemId;
  const unsigned long newer = lastMessageId == SCA_NoItemId ? SCA_NoItemId : newest - lastMessageId;
  // A log that was cleared has lower ids than its reader remembers.
  const bool isStale = lastMessageId != SCA_NoItemId && (isEmpty || newest < lastMessageId);
  if (isStale) return 1;
  if (count == 0 || newer <= count) return log.Serialize(object, SCA_NoItemId, lastMessageId);
  return log.Serialize(object, count - 1, SCA_NoItemId);
}
