/// Inside of the client: the working state of one extraction, what its variants differ in, and how
/// a step of it ends.
#ifndef SCA_CLIENT_SCA_TIKAEXTRACTION_H
#define SCA_CLIENT_SCA_TIKAEXTRACTION_H

#include "client/SCA_TikaClient.h"
#include "platform/SCA_Error.h"

/// A server name as a Host line shows it: an IPv6 address in brackets and without its zone.
struct SCA_HostLine {
  explicit SCA_HostLine(const char* serverName);
  char text[262];
};

/// How a step ended. `Conclude` alone turns it into counters and validity flag.
struct SCA_TikaClient::Outcome {
  enum class Kind {
    Done,
    Cancelled,  ///< nobody's fault: counted nowhere
    Failed,     ///< an error that says nothing against the connection
    Broken      ///< an error after which the connection cannot be trusted
  };
  Kind kind;
  unsigned long code;

  static Outcome Done() { return {Kind::Done, 0}; }
  static Outcome Cancelled() { return {Kind::Cancelled, SCA_ErrorCancelled}; }
  static Outcome Failed(unsigned long code) { return {Kind::Failed, code}; }
  static Outcome Broken(unsigned long code) { return {Kind::Broken, code}; }
  /// A socket operation that the cancel event ended is a cancel, not a failure.
  static Outcome FromSocket(unsigned long code) {
    return code == SCA_ErrorCancelled ? Cancelled() : Broken(code);
  }

  bool IsDone() const { return kind == Kind::Done; }
};

/// What the variants differ in, decoding aside.
struct SCA_TikaClient::Variant {
  const char* source;        ///< report source
  const char* name;          ///< operation, as its reports name it
  const char* uploadSource;  ///< the same for the upload
  const char* uploadName;
  bool traces;                 ///< reports its steps when the debug level is above 1
  bool countsCancelledUpload;  ///< a cancel during the upload counts as an error
  bool growsTextLength;        ///< the last text length grows with each block
  Outcome (SCA_TikaClient::*decode)(Exchange* exchange);
};

/// One extraction under way.
struct SCA_TikaClient::Exchange {
  const Variant& variant;
  SCA_TikaTextCallback callback;
  void* context;
  SCA_Event* cancel;

  char* network;              ///< receives the reply header, later what surrounds the text
  unsigned long networkSize;  ///< its size; one byte of it is left free for a terminating zero

  unsigned long received = 0;   ///< RL: bytes that the network buffer holds
  unsigned long position = 0;   ///< RP: read position in it
  unsigned long collected = 0;  ///< text bytes waiting in the data buffer
  unsigned long delivered = 0;  ///< text bytes handed to the callback

  unsigned long Unread() const { return received - position; }
  bool IsCancelled() const { return cancel != nullptr && cancel->Wait(0) != 0; }
};

/// What a failed wait or receive is called in a report.
struct SCA_TikaClient::ReceiveTexts {
  const char* waitFailed;
  const char* receiveFailed;
};

/// Characters of a size line that the second and third variants accept: sizes to 0xFFFFFF.
constexpr unsigned long SCA_MaxSizeText = 6;

/// Reads the size of a chunk from the text of its line, as `strtoul` with base 16 does, but refuses
/// what would pass for another size: no hexadecimal digit, a minus sign, a "0x" without a digit
/// behind it, and a line feed first: the chunk before was longer than its size, and bytes of it
/// were taken for its CR LF.
/// @param length  Bytes of the line without its CR LF; 255 at most, extensions included.
/// @param size    Receives the size, 0xFFFFFFFFFFFFFFFF for larger ones; untouched on failure.
bool SCA_ParseChunkSize(const char* line, unsigned long length, unsigned long long* size);

/// Finds the first CR LF that begins at a position or behind it.
/// @return Its position, or `length` when there is none.
unsigned long SCA_FindCrLf(const char* buffer, unsigned long length, unsigned long position);

/// @param text  At least two bytes.
inline bool SCA_IsCrLf(const char* text) {
  return text[0] == '\r' && text[1] == '\n';
}

#endif  // SCA_CLIENT_SCA_TIKAEXTRACTION_H
