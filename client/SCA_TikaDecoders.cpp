#include "client/SCA_TikaDecoders.h"

#include <algorithm>

SCA_TikaStep SCA_TikaLineDecoder::Decode() {
  for (;;) {
    unsigned long size = 0;
    SCA_TikaStep step = ReadSizeLine(&size);
    if (!step.IsDone()) return step;
    if (size == 0) return reply_.Flush();
    const unsigned long held = std::min(size, reply_.Unread());
    step = reply_.MakeRoom(held);
    if (!step.IsDone()) return step;
    reply_.Take(held);
    if (held == size) {
      step = FinishChunk();
      if (!step.IsDone()) return step;
      continue;
    }
    // The rest comes straight into the data buffer together with its CR LF, which is dropped.
    const unsigned long rest = size - held + 2;
    step = reply_.MakeRoom(rest);
    if (step.IsDone()) step = reply_.ReceiveText(rest);
    if (!step.IsDone()) return step;
    reply_.Drop(2);
  }
}
