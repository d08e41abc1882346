#include "control/SCA_NetMessage.h"

#include "platform/SCA_Text.h"

SCA_NetMessage::SCA_NetMessage() {
  SetValid(data_.IsValid());
}

SCA_NetMessage::SCA_NetMessage(const SCA_NetMessage& source) : SCA_NetMessage() {
  *this = source;
}

SCA_NetMessage& SCA_NetMessage::operator=(const SCA_NetMessage& source) {
  if (this == &source) return *this;
  first = source.first;
  second = source.second;
  SCA_CopyText(name_, source.name_, SCA_TextFit::Cut);
  SetValid(data_.CopyFrom(&source.data_));
  return *this;
}

int SCA_NetMessage::Init(const char* name) {
  if (SetCommandName(name) == 0) return 0;
  first = second = 0;
  return data_.Clear();
}

int SCA_NetMessage::SetCommandName(const char* name) {
  return SCA_CopyText(name_, name, SCA_TextFit::Refuse);
}
