/// An extraction request as the dispatcher serves it: which file, where its text goes, and how it
/// ended.
#ifndef SCA_PRODUCT_SCA_TIKAEXTRACTREQUEST_H
#define SCA_PRODUCT_SCA_TIKAEXTRACTREQUEST_H

#include <memory>

#include "client/SCA_TikaRequestOptions.h"
#include "client/SCA_TikaVersion.h"
#include "product/SCA_TikaClientRequest.h"

class SCA_TikaExtractRequest;
struct SCA_TikaTicket;

/// How a request ended; each ends in exactly one of these.
enum class SCA_TikaOutcome {
  None,              ///< it has not ended
  Extracted,         ///< the whole text was delivered
  Refused,           ///< a server refused the file: it is empty, encrypted, damaged or too large
  ServerFailed,      ///< a server answered with a failure, not as Tika does, or without end
  ConnectionBroken,  ///< the connection broke, and no server could be reached after that
  ServersDied,       ///< the connection broke twice while a server had this file alone
  TimedOut,          ///< the server said nothing for the network time-out
  TimeLimit,         ///< the file took longer than the time limit of a try
  Cancelled,         ///< its requester, or the end of the dispatcher, cancelled it
  FileFailed,        ///< the file could not be read
  SinkFailed,        ///< the receiver of the text refused to go on
  NoServer,          ///< no server that may serve it could be reached
  OptionRefused      ///< the server's version of Tika cannot do what its options ask for
};

/// @return A word for the outcome, such as "extracted" or "time limit"; static storage.
SCA_API const char* SCA_TikaOutcomeText(SCA_TikaOutcome outcome);

/// Receives the text of one request. Calls come one at a time, on threads of the dispatcher, under
/// no lock of the library; they must not throw.
class SCA_API SCA_TikaTextSink : public SCA_Object {
 public:
  SCA_TikaTextSink() { SetValid(1); }

  /// Takes the next block of the text, as in `SCA_TikaTextCallback`.
  /// @return 0 stops the extraction, which then ends as `SinkFailed`.
  virtual int Write(const char* text, unsigned long length, unsigned long offset) = 0;
  /// Takes back everything written: the file is tried again, and the text restarts at offset 0.
  /// @return 0 stops as above.
  virtual int Restart() = 0;
  /// The outcome is recorded; `ready` is signalled after this returns. Until then the request must
  /// not be deleted.
  virtual void Finish(SCA_TikaExtractRequest* request);
};

/// Owns its sink. Made by the requester, who submits it to a dispatcher once and waits for `ready`,
/// or cancels it, or abandons it.
/// Threads: until it is submitted and after `ready` the requester's; in between only the cancel
/// event and what the base class allows.
class SCA_API SCA_TikaExtractRequest : public SCA_TikaClientRequest {
 public:
  /// Invalid without memory, without a sink or a path.
  /// @param path      The file; copied.
  /// @param fileExt   Its extension without the dot, which chooses the services.
  /// @param poolName  The server pool wanted.
  /// @param sink      Receives the text; taken over in any case.
  SCA_TikaExtractRequest(const char* path, const char* fileExt, const char* poolName,
                         SCA_TikaTextSink* sink);
  /// With options, which are copied. Without them, the request is the one above. The sink receives
  /// the content asked for, as bytes. `SCA_TikaDispatcher::Submit` checks the options.
  SCA_TikaExtractRequest(const char* path, const char* fileExt, const char* poolName,
                         SCA_TikaTextSink* sink, const SCA_TikaRequestOptions& options);
  /// Leaves the dispatcher that knows it, if any.
  ~SCA_TikaExtractRequest() override;

  const char* GetPath() const { return path_.get(); }
  /// @return Null for a request that was made without options.
  const SCA_TikaRequestOptions* GetOptions() const { return options_.get(); }
  SCA_TikaTextSink* GetSink() { return sink_.get(); }
  /// Setting it cancels the request; `SCA_TikaDispatcher::Cancel` does so at once where this takes
  /// a moment, up to a second for a submit that waits.
  SCA_Event* GetCancel() const { return &cancel_; }

  /// @name How it ended; the status code holds the error code, 0 for an extracted text
  /// @{
  SCA_TikaOutcome GetOutcome() const { return outcome_; }
  /// One English line; empty for an extracted text.
  const char* GetCause() const { return cause_; }
  /// The server that served it last, as host:port; empty when none did.
  const char* GetServer() const { return serverName_; }
  /// The version of that server; not known when none served it, or the server does not tell.
  const SCA_TikaVersion& GetServerVersion() const { return serverVersion_; }
  /// The HTTP code with which a server refused the file before it had read it; 0 for none.
  unsigned long GetRefusalCode() const { return refusalCode_; }
  /// The options of which the server takes no notice, as bits of `SCA_TikaOption`.
  unsigned long GetIgnoredOptions() const { return ignoredOptions_; }
  /// Bytes of text delivered; 0 unless it was extracted.
  unsigned long long GetTextLength() const { return textLength_; }
  /// Bytes of the file; 0 when it was not opened.
  unsigned long long GetFileSize() const { return fileSize_; }
  /// Milliseconds from the first server's taking it to the end, 0 when none took it.
  unsigned long long GetDuration() const { return durationMs_; }
  /// How often a server had the file, 0 to 3; an answer that it is not ready does not count.
  unsigned long GetTries() const { return tries_; }
  /// @}

 private:
  friend struct SCA_TikaTicket;

  std::unique_ptr<char[]> path_;
  std::unique_ptr<const SCA_TikaRequestOptions> options_;
  SCA_Owned<SCA_TikaTextSink> sink_;
  mutable SCA_Event cancel_{1, 0};

  SCA_TikaOutcome outcome_ = SCA_TikaOutcome::None;
  char cause_[260] = "";
  char serverName_[272] = "";
  SCA_TikaVersion serverVersion_;
  unsigned long refusalCode_ = 0;
  unsigned long ignoredOptions_ = 0;
  unsigned long long textLength_ = 0;
  unsigned long long fileSize_ = 0;
  unsigned long long durationMs_ = 0;
  unsigned long tries_ = 0;

  // The dispatcher's, from submission to the outcome.
  SCA_AtomicValue<SCA_TikaTicket*> ticket_{nullptr};
};

#endif  // SCA_PRODUCT_SCA_TIKAEXTRACTREQUEST_H
