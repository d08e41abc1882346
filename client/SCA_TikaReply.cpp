#include "client/SCA_TikaReply.h"

#include "platform/SCA_Report.h"

SCA_TikaStep SCA_TikaReply::Flush() {
  if (collected_ == 0) return SCA_TikaStep::Done();
  loan_.text[collected_] = '\0';
  if (loan_.callback(loan_.text, collected_, delivered_, loan_.context) == 0) {
    return SCA_TikaStep::Cancelled();
  }
  delivered_ += collected_;
  loan_.recvData->Add(collected_);
  collected_ = 0;
  if (variant_.growsTextLength) loan_.lastTextLength->Set(static_cast<std::uint32_t>(delivered_));
  return SCA_TikaStep::Done();
}

SCA_TikaStep SCA_TikaReply::FlushFor(unsigned long needed) {
  const SCA_TikaStep flushed = Flush();
  return !flushed.IsDone() || needed <= Room() ? flushed : ChunkDoesNotFit(needed);
}

SCA_TikaStep SCA_TikaReply::ChunkDoesNotFit(unsigned long long needed) const {
  SCA_GetReportFunction(variant_.source, __LINE__)(
      SCA_LevelError,
      "SCA_TikaClient::%s: %llu bytes of a data chunk do not fit the data buffer of %lu bytes",
      variant_.name, needed, loan_.capacity);
  return SCA_TikaStep::Broken(SCA_ErrorInvalidData);
}

SCA_TikaStep SCA_TikaReply::Receive(const SCA_TikaReceiveTexts& texts, char* buffer,
                                    unsigned long length, unsigned long* count) {
  unsigned long code = 0;
  const char* failed = nullptr;
  if (socket_->WaitForData(TimeoutMs(), &code) == 0) {
    failed = texts.waitFailed;
  } else if (socket_->Receive(buffer, length, count, &code) == 0) {
    failed = texts.receiveFailed;
  }
  if (failed == nullptr) return SCA_TikaStep::Done();
  const SCA_TikaStep step = SCA_TikaStep::FromSocket(code);
  if (step.kind == SCA_TikaStep::Kind::Broken) {
    SCA_GetReportFunction(variant_.source, __LINE__)(
        SCA_LevelError, "SCA_TikaClient::%s: %s (ERR:%lu)", variant_.name, failed, code);
  }
  return step;
}

SCA_TikaStep SCA_TikaReply::Refill() {
  static constexpr SCA_TikaReceiveTexts kTexts = {"data network timeout",
                                                  "cannot receive the next data chunk"};
  position = received = 0;
  return Receive(kTexts, network, variant_.networkSize - 1, &received);
}

SCA_TikaStep SCA_TikaReply::ReceiveText(unsigned long missing) {
  static constexpr SCA_TikaReceiveTexts kTexts = {"data wait timeout", "cannot receive data chunk"};
  while (missing > 0) {
    unsigned long count = 0;
    const SCA_TikaStep step = Receive(kTexts, loan_.text + collected_, missing, &count);
    if (!step.IsDone()) return step;
    collected_ += count;
    missing -= count;
    if (loan_.IsCancelled()) return SCA_TikaStep::Cancelled();
  }
  return SCA_TikaStep::Done();
}
