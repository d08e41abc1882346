#include "platform/SCA_Error.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr unsigned long kFirstHttpCode = 200;
constexpr unsigned long kLastHttpCode = 999;

struct CodeText {
  unsigned long code;
  const char* text;
};

constexpr CodeText kTexts[] = {
    {0, "no error"},
    {ETIMEDOUT, "timed out"},
    {ECONNRESET, "the peer closed the connection"},
    {SCA_ErrorNoJar, "the Tika server JAR file does not exist"},
    {SCA_ErrorCancelled, "cancelled"},
    {SCA_ErrorAlreadyActive, "the Tika server is already active"},
    {SCA_ErrorCannotCreate, "an object could not be created, or is already connected"},
    {SCA_ErrorInvalidData, "invalid or missing data"},
    {SCA_ErrorRootConfig, "the contents of the root configuration were refused"},
    {SCA_ErrorNotStarted, "the Java process could not be started"},
    {SCA_ErrorProcessEnded, "the Java process ended by itself"},
    {SCA_ErrorTika422, "the server could not parse the document (HTTP 422)"},
    {SCA_ErrorTika500, "the server failed on the document (HTTP 500)"},
    {SCA_ErrorHostName, "the host name could not be resolved"},
    {SCA_ErrorHostNameInvalid, "the host name is empty or too long"},
    {SCA_ErrorHeaderTooLong, "the HTTP header of the reply is too long"},
    {SCA_ErrorNotRegularFile, "not a regular file"},
    {SCA_ErrorFileShrank, "the file became shorter while it was read"},
    {SCA_ErrorCommandLine, "the command line is empty, too long or has an open quote"},
    {SCA_ErrorFileForeign, "not a configuration file or report (.trv)"},
    {SCA_ErrorFileDamaged, "the file is damaged"},
    {SCA_ErrorFileNewer, "the file was written by a newer version"},
    {SCA_ErrorDataTooLarge, "the data exceed the limits of depth, members or size"},
    {SCA_ErrorExtractionOff, "text extraction is switched off in the settings"},
    {SCA_ErrorNoService, "no enabled Tika service takes files of this kind"},
    {SCA_ErrorQueueFull, "too many extraction requests are pending"},
    {SCA_ErrorStopping, "the dispatcher is stopping"},
    {SCA_ErrorNoServer, "no Tika server could be reached"},
    {SCA_ErrorServersDied, "two Tika servers died while they had the document"},
    {SCA_ErrorTimeLimit, "the time limit of the file has passed"},
    {SCA_ErrorFrame, "the peer does not speak the control protocol"},
    {SCA_ErrorFrameTooLarge, "the message is larger than the control protocol allows (16 MiB)"},
    {SCA_ErrorFrameForged, "a message on the control connection does not come from its peer"},
    {SCA_ErrorLoginRefused, "the login was refused: the control keys of both ends differ"},
    {SCA_ErrorLoginMissing, "the host asks for no login although a control key is set for it"},
    {SCA_ErrorNoKey, "the host asks for a login and there is no control key for it"},
    {SCA_ErrorKeyExposed, "the control key file may be read by others: use chmod 600"},
    {SCA_ErrorKeyInvalid, "the control key file holds no key of 32 to 128 hexadecimal digits"},
    {SCA_ErrorConnectionLimit, "the host has too many control connections"},
};

struct HttpTexts {
  HttpTexts() {
    for (unsigned long i = 0; i < texts.size(); ++i) {
      std::snprintf(texts[i].data(), texts[i].size(), "the server answered HTTP %lu",
                    kFirstHttpCode + i);
    }
  }
  std::array<std::array<char, 32>, kLastHttpCode - kFirstHttpCode + 1> texts;
};

}  // namespace

const char* SCA_ErrorText(unsigned long code) {
  for (const CodeText& entry : kTexts) {
    if (entry.code == code) return entry.text;
  }
  if (code >= kFirstHttpCode && code <= kLastHttpCode) {
    static const HttpTexts http;
    return http.texts[code - kFirstHttpCode].data();
  }
  const char* text = code < kFirstHttpCode ? strerrordesc_np(static_cast<int>(code)) : nullptr;
  return text != nullptr ? text : "unknown error";
}
