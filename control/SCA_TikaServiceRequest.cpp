#include "control/SCA_TikaServiceRequest.h"

#include "host/SCA_ProcessStatus.h"

SCA_TikaServiceRequest::SCA_TikaServiceRequest(unsigned long opCode)
    : opCode_(static_cast<std::uint32_t>(opCode)), processStatus_(SCA_ServerIdle) {
  SetValid(1);
}
