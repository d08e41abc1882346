#include "platform/SCA_Error.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr unsigned long kFirstHttpCode = 100;
constexpr unsigned long kFirstFinalCode = 200;
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
    {SCA_ErrorNoTikaFolders,
     "the folders 'lib' and 'plugins' must stand beside this Tika server JAR file: unpack the "
     "whole "
     "distribution"},
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
    {SCA_ErrorInterimReplies, "the server sent interim replies (HTTP 1xx) and no final one"},
    {SCA_ErrorContentEncoding,
     "the reply is compressed (Content-Encoding), which is not supported"},
    {SCA_ErrorFileGrew,
     "the file holds more bytes than its size says: it grew while it was read, or has no fixed "
     "size"},
    {SCA_ErrorOptionInvalid, "an option of the request is not valid"},
    {SCA_ErrorOptionRefused, "the server's version of Tika cannot do what the request asks for"},
    {SCA_ErrorExtractionOff, "text extraction is switched off in the settings"},
    {SCA_ErrorNoService, "no enabled Tika service takes files of this kind"},
    {SCA_ErrorQueueFull, "too many extraction requests are pending"},
    {SCA_ErrorStopping, "the dispatcher is stopping"},
    {SCA_ErrorNoServer, "no Tika server could be reached"},
    {SCA_ErrorServersDied, "the connection to Tika broke twice while it had this document alone"},
    {SCA_ErrorTimeLimit, "the time limit of the file has passed"},
    {SCA_ErrorTextTooLong, "the text is longer than the size limit for texts"},
    {SCA_ErrorFrame, "the peer does not speak the control protocol"},
    {SCA_ErrorFrameTooLarge, "the message is larger than the control protocol allows (16 MiB)"},
    {SCA_ErrorFrameForged, "a message on the control connection does not come from its peer"},
    {SCA_ErrorLoginRefused, "the login was refused: the control keys of both ends differ"},
    {SCA_ErrorLoginMissing, "the host asks for no login although a control key is set for it"},
    {SCA_ErrorNoKey, "the host asks for a login and there is no control key for it"},
    {SCA_ErrorKeyExposed, "the control key file may be read by others: use chmod 600"},
    {SCA_ErrorKeyInvalid, "the control key file holds no key of 32 to 128 hexadecimal digits"},
    {SCA_ErrorConnectionLimit, "the host has too many control connections"},
    {SCA_ErrorTooManyLogins, "too many wrong logins came from this address"},
    {SCA_ErrorSocketPath, "the path of a socket must be absolute, and not too long"},
    {SCA_ErrorSocketTaken,
     "something other than a socket of this account is in the socket's place"},
    {SCA_ErrorPeerAccount, "the host takes commands from its own account, root and its group only"},
    {SCA_ErrorNoGroup, "there is no such group"},
    {SCA_ErrorNoLocalHost, "no service host on this machine can be reached"},
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
  // A few numbers of interim replies are those of system errors, which have them: an interim reply
  // is never an error code.
  const char* text = code < kFirstFinalCode ? strerrordesc_np(static_cast<int>(code)) : nullptr;
  if (text != nullptr) return text;
  if (code < kFirstHttpCode || code > kLastHttpCode) return "unknown error";
  static const HttpTexts http;
  return http.texts[code - kFirstHttpCode].data();
}
