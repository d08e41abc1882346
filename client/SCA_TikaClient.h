/// One connection to one Apache Tika server: uploads a document and hands its plain text back.
/// Threads: one thread at a time may use a client; its counters, states and validity flag may be
/// read from any thread meanwhile.
#ifndef SCA_CLIENT_SCA_TIKACLIENT_H
#define SCA_CLIENT_SCA_TIKACLIENT_H

#include <cstdint>
#include <memory>

#include "client/SCA_TikaRequestOptions.h"
#include "client/SCA_TikaVersion.h"
#include "platform/SCA_HttpClientRequest.h"
#include "platform/SCA_Object.h"
#include "platform/SCA_Sync.h"
#include "settings/SCA_TikaConfigOrv.h"

class SCA_TikaLink;
struct SCA_TikaRequestHead;

/// Receives the text of a document, block by block, on the thread that called `GetFileText`.
/// @param text     The block: bytes as the server sent them, neither decoded nor converted. A block
///                 may end inside a line or a multi-byte character. It is followed by a zero byte.
///                 The memory is the client's data buffer, reused as soon as the callback returns.
/// @param length   Bytes in the block, 1 to the client's buffer size.
/// @param offset   Bytes delivered before it: the blocks tile the text from offset 0.
/// @param context  The pointer given to `GetFileText`.
/// @return 0 stops the extraction, which then fails with `SCA_ErrorCancelled`; any other value goes
///         on. Must not throw, and must not use the client except for its getters.
using SCA_TikaTextCallback = int (*)(const char* text, unsigned long length, unsigned long offset,
                                     void* context);

/// Connection, counters and requests of one Tika server.
///
/// Order of use: construct, set buffer size and debug level if wanted, `InitDataBuffer`, `Connect`,
/// then any number of `GetFileText` (or one `GetVersion`, which uses the connection up). After an
/// extraction that returned 0 the connection may hold half an exchange, whatever the validity flag
/// says: `Disconnect` and `Connect` before the next file. A connection that holds half an exchange,
/// or bytes that no request asked for, fails the next extraction with `EPROTO` before anything is
/// sent.
///
/// Operations that can fail give 1, or 0 with a code for `SCA_ErrorText` in `*error`, which is left
/// untouched on success and must not be null.
class SCA_API SCA_TikaClient : public SCA_Object {
 public:
  /// Neither connects nor allocates. A server name above 259 bytes, or null settings, leave the
  /// client invalid.
  /// @param settings    Gives the network time-out; not owned, must outlive the client.
  /// @param serverName  Host name or address; copied.
  SCA_TikaClient(SCA_TikaConfigOrv* settings, const char* serverName, unsigned short port);
  /// Disconnects and releases the data buffer.
  ~SCA_TikaClient() override;
  SCA_TikaClient(const SCA_TikaClient&) = delete;
  SCA_TikaClient& operator=(const SCA_TikaClient&) = delete;

  /// @param timeout  Milliseconds for name resolution and connection together; 0 stands for 60 s.
  /// @param error    `SCA_ErrorCannotCreate` when already connected (the connection stays) or no
  ///                 socket could be made; else the socket's code, the client being disconnected.
  int Connect(unsigned long timeout, unsigned long* error);
  /// Lets `Connect` and `GetVersion` end early, with `SCA_ErrorCancelled`; an extraction looks at
  /// the event that it is given. Takes effect at once, on a connected client too.
  /// @param cancel  Not owned; must live until it is replaced. Null for none. An auto-reset event
  ///                cancels one operation.
  void SetCancelEvent(SCA_Event* cancel);
  /// Closes the connection, if any. @return 1.
  int Disconnect();
  /// @return 1 while a connection made by `Connect` has not been given up.
  int IsConnected() const { return link_ != nullptr ? 1 : 0; }
  /// Asks, without waiting, whether the connection can take a request.
  /// @return 0 when there is none, the server has closed it, it holds bytes that no request asked
  ///         for, or the end of the last reply has not arrived.
  int IsUsable();

  /// Allocates the data buffer of `GetBufferSize()` + 1 bytes, releasing the old one.
  /// @return 1; or 0, with a report, when the size is 0 or memory is exhausted, the client then
  ///         having no data buffer.
  int InitDataBuffer();

  /// Asks the server for its version. The server closes the connection after its answer: reconnect
  /// before the next request. An answer that does not end with the close, or before the length that
  /// it announces, is a failure.
  /// @param version  Receives 1 to 100 bytes of text and a terminating zero.
  /// @param size     Capacity of `version` in bytes; 101 hold every answer.
  int GetVersion(char* version, unsigned long size, unsigned long* error);

  /// Extracts the text of a file.
  /// @param variant     2 and 3 choose the second and third decoder, every other value the first.
  ///                    Use 3. The second drops the first part of a chunk's size line that is cut
  ///                    at the end of its 511-byte buffer, and may then report success with a text
  ///                    that is cut; the first refuses every size line that is cut.
  /// @param fileName    A regular file of any size. A file that has no fixed size, as in /proc, and
  ///                    one that grows meanwhile fail with `SCA_ErrorFileGrew`, one that shrinks
  ///                    with `SCA_ErrorFileShrank`.
  /// @param secondName  Not read. @note Inherited.
  /// @param callback    Receives the text; never called for a document without text.
  /// @param context     Handed to the callback.
  /// @param cancel      Ends the extraction soon after it is set, with `SCA_ErrorCancelled`; may be
  ///                    null; not owned.
  /// @param textLength  Receives the bytes of text delivered; untouched on failure. Not null.
  /// @param error       A file, wait or socket error; an HTTP code, 200 to 999; `SCA_ErrorTika422`,
  ///                    `SCA_ErrorTika500`, `SCA_ErrorInvalidData`, `SCA_ErrorContentEncoding`,
  ///                    `SCA_ErrorInterimReplies`, `SCA_ErrorCancelled`.
  int GetFileText(unsigned long variant, const char* fileName, const char* secondName,
                  SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                  unsigned long* textLength, unsigned long* error);

  /// Extracts from a file what options ask for, with the third decoder. Errors are those of the
  /// operation above and the following.
  ///
  /// What the options become depends on the server's version. A client that does not know it asks
  /// for it first, over a connection of its own.
  /// @param options   Copied before anything is sent.
  /// @param callback  Receives the content asked for, as bytes: text, Markdown or JSON.
  /// @param error     Also `SCA_ErrorOptionInvalid`; `SCA_ErrorOptionRefused` when the server's
  ///                  version cannot do what is asked for or is not known; the errors of `Connect`
  ///                  and `GetVersion`; `ENOMEM`. With the first two nothing has been sent, and the
  ///                  connection can be used.
  int GetFileText(const char* fileName, const SCA_TikaRequestOptions& options,
                  SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                  unsigned long* textLength, unsigned long* error);
  /// @return The options of the last extraction of which the server takes no notice, as bits of
  ///         `SCA_TikaOption`.
  unsigned long GetIgnoredOptions() const { return ignoredOptions_; }
  /// @return The same for the options that failed it with `SCA_ErrorOptionRefused`.
  unsigned long GetRefusedOptions() const { return refusedOptions_; }

  /// The version that the server gave to this client, or that the caller has set; not known at
  /// first, nor after the server's name or port has changed. Without options, too, a client that
  /// knows a server of Tika 4 asks it at another path, since `PUT /tika` is Markdown there.
  /// Threads: the caller's.
  const SCA_TikaVersion& GetServerVersion() const { return serverVersion_; }
  void SetServerVersion(const SCA_TikaVersion& version) { serverVersion_ = version; }

  /// @return The HTTP code of a reply that arrived before the last extraction's upload was complete
  ///         and made its send fail; 0 when there was none. The file was then refused; another
  ///         server would refuse it too.
  unsigned long GetRefusalCode() const { return refusalCode_.Get(); }
  /// @return What the server said about the failure of the last extraction, in one line of at most
  ///         255 bytes without control bytes; empty when it said nothing, as up to Tika 3. Threads:
  ///         the caller's.
  const char* GetServerMessage() const { return serverMessage_; }
  /// @return The seconds after which the server may be asked again, as it said when it failed the
  ///         last extraction (Retry-After); -1 when it did not. Threads: the caller's.
  long GetRetryAfter() const {
    return retryAfterS_ == kNoRetryAfter ? -1 : static_cast<long>(retryAfterS_);
  }

  unsigned long GetClientId() const { return clientId_.Get(); }
  void SetClientId(unsigned long id) { clientId_.Set(static_cast<std::uint32_t>(id)); }
  unsigned long GetServiceId() const { return serviceId_.Get(); }
  void SetServiceId(unsigned long id) { serviceId_.Set(static_cast<std::uint32_t>(id)); }
  /// Kept for the pool; the client itself changes neither.
  unsigned long GetProcessStatus() const { return processStatus_.Get(); }
  void SetProcessStatus(unsigned long status) {
    processStatus_.Set(static_cast<std::uint32_t>(status));
  }
  unsigned long GetClientStatusCode() const { return statusCode_.Get(); }
  void SetClientStatusCode(unsigned long code) {
    statusCode_.Set(static_cast<std::uint32_t>(code));
  }
  unsigned long GetNumberOfUsers() const { return numberOfUsers_.Get(); }
  void SetNumberOfUsers(unsigned long count) {
    numberOfUsers_.Set(static_cast<std::uint32_t>(count));
  }
  void AddUser() { numberOfUsers_.Add(1); }
  void DelUser() { numberOfUsers_.Subtract(1); }
  /// A mark for the pool.
  int GetDoDelete() const { return doDelete_.Get(); }
  void SetDoDelete(int doDelete) { doDelete_.Set(doDelete); }

  /// Failed extractions. Cancelled ones do not count, except during the upload of the third
  /// variant.
  /// @note Inherited.
  unsigned long GetTotalErrors() const { return totalErrors_.Get(); }
  /// Files that were opened and whose size was read.
  unsigned long GetTotalFiles() const { return totalFiles_.Get(); }
  /// Bytes of file content sent; request headers do not count.
  unsigned long long GetSentData() const { return sentData_.Get(); }
  /// Bytes of text handed to callbacks.
  unsigned long long GetRecvData() const { return recvData_.Get(); }
  /// `SCA_GetAbsTime()` at the last successful connect, 0 before it.
  unsigned long long GetConnectTime() const { return connectTime_.Get(); }
  unsigned long GetConnectCount() const { return connectCount_.Get(); }
  /// Bytes of the file of the current or last extraction.
  unsigned long long GetLastFileSize() const { return lastFileSize_.Get(); }
  /// Bytes of text of the last extraction, modulo 2^32: set when it succeeded; with the third
  /// variant it grows with each block.
  unsigned long GetLastTextLength() const { return lastTextLength_.Get(); }

  /// The field itself, at most 259 bytes and a terminating zero.
  const char* GetServerName() const { return serverName_; }
  /// @return 1; or 0 when the name is longer than 259 bytes, the old one being kept.
  int SetServerName(const char* serverName);
  unsigned short GetPortNumber() const { return port_; }
  void SetPortNumber(unsigned short port) {
    if (port != port_) serverVersion_ = {};
    port_ = port;
  }
  /// Above 1 the first variant traces what it does.
  unsigned long GetDebugLevel() const { return debugLevel_; }
  void SetDebugLevel(unsigned long level) { debugLevel_ = static_cast<std::uint32_t>(level); }
  /// Bytes of a block of text or file content at most; takes effect with `InitDataBuffer`. A chunk
  /// of a reply with its line end must fit: the chunks of Tika, of up to 32768 bytes, need 32770.
  unsigned long GetBufferSize() const { return bufferSize_; }
  void SetBufferSize(unsigned long size) { bufferSize_ = static_cast<std::uint32_t>(size); }

 protected:
  /// Receives until a complete HTTP header is held.
  /// @param buffer        `capacity` + 1 bytes; a zero byte follows what was received.
  /// @param headerLength  Receives the header's length, the position of the first body byte.
  /// @param received      Receives the bytes held, body bytes included.
  /// @param error         `SCA_ErrorHeaderTooLong` when the header does not end within `capacity`.
  int ReadHttpHeader(char* buffer, unsigned long capacity, unsigned long* headerLength,
                     unsigned long* received, unsigned long* error);
  /// GET by HTTP/1.0; the connection is used up. The record holds the body, at most 65535 bytes.
  int GetRequest(const char* path, SCA_HttpClientRequest* reply, unsigned long* error);
  /// PUT by HTTP/1.0 of the record's content; the reply's body (1 to 1024000000 bytes) replaces it.
  /// The error is not written for a reply that is refused.
  int PutRequest(const char* path, SCA_HttpClientRequest* request, unsigned long* error);
  /// Sends the upload request with the file's bytes.
  int SendFile(const char* fileName, SCA_Event* cancel, unsigned long* error);

  /// Parses a chunk-size line of 1 to 6 characters that begins at a position.
  /// @param nextPosition  Receives the position after the line's CR LF.
  /// @return 1; or 0 when no complete line is there or it holds no size, outputs untouched.
  static int GetChunkLength(const char* buffer, unsigned long length, unsigned long position,
                            unsigned long* nextPosition, unsigned long* chunkSize);
  /// Finds the first CR LF that begins at or after a position. @return 1, or 0 without one.
  static int FindCRLF(const char* buffer, unsigned long length, unsigned long position,
                      unsigned long* crlfPosition);
  /// Moves the unread bytes (`position` to `length`) to the buffer's start and receives more after
  /// them. A failure other than a cancel clears the validity flag.
  int GetMoreData(char* buffer, unsigned long bufferSize, unsigned long length,
                  unsigned long position, unsigned long* newLength, unsigned long* newPosition,
                  unsigned long* error);

  int GetFileTextV1(const char* fileName, const char* secondName, SCA_TikaTextCallback callback,
                    void* context, SCA_Event* cancel, unsigned long* textLength,
                    unsigned long* error);
  int GetFileTextV2(const char* fileName, const char* secondName, SCA_TikaTextCallback callback,
                    void* context, SCA_Event* cancel, unsigned long* textLength,
                    unsigned long* error);
  int GetFileTextV3(const char* fileName, const char* secondName, SCA_TikaTextCallback callback,
                    void* context, SCA_Event* cancel, unsigned long* textLength,
                    unsigned long* error);

 private:
  int LearnVersion(SCA_Event* cancel, unsigned long* error);
  // With the third decoder.
  int SendRequest(const SCA_TikaRequestHead& head, const char* fileName,
                  SCA_TikaTextCallback callback, void* context, SCA_Event* cancel,
                  unsigned long* textLength, unsigned long* error);

  friend class SCA_TikaExtraction;  // the inside of GetFileText

  // Ends what was allocated at a page's start.
  struct AlignedDelete {
    void operator()(char* memory) const noexcept;
  };

  SCA_TikaConfigOrv* const settings_;
  SCA_AtomicValue<std::uint32_t> clientId_{0};
  SCA_AtomicValue<std::uint32_t> serviceId_{0};
  SCA_AtomicValue<std::uint32_t> processStatus_{10};
  SCA_AtomicValue<std::uint32_t> statusCode_{0};
  SCA_AtomicValue<std::uint32_t> numberOfUsers_{0};
  SCA_AtomicValue<std::uint32_t> totalErrors_{0};
  SCA_AtomicValue<std::uint32_t> totalFiles_{0};
  SCA_AtomicValue<unsigned long long> sentData_{0};
  SCA_AtomicValue<unsigned long long> recvData_{0};
  SCA_AtomicValue<unsigned long long> connectTime_{0};
  SCA_AtomicValue<std::uint32_t> connectCount_{0};
  SCA_AtomicValue<unsigned long long> lastFileSize_{0};
  SCA_AtomicValue<std::uint32_t> lastTextLength_{0};
  SCA_AtomicValue<unsigned long> refusalCode_{0};
  char serverName_[260] = "";
  unsigned short port_ = 80;
  std::uint32_t debugLevel_ = 0;
  std::unique_ptr<char[], AlignedDelete> dataBuffer_;
  std::uint32_t bufferSize_ = 0x100000;
  unsigned long dataCapacity_ = 0;  // buffer size that the data buffer was made for
  SCA_Event* cancel_ = nullptr;
  SCA_TikaVersion serverVersion_;
  static constexpr unsigned long kNoRetryAfter = 0xFFFFFFFF;
  unsigned long retryAfterS_ = kNoRetryAfter;
  char serverMessage_[256] = "";
  unsigned long ignoredOptions_ = 0;
  unsigned long refusedOptions_ = 0;
  std::unique_ptr<SCA_TikaLink> link_;
  SCA_AtomicValue<int> doDelete_{0};
};

#endif  // SCA_CLIENT_SCA_TIKACLIENT_H
