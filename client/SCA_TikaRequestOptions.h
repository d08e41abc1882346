/// What a request asks of a Tika server, beyond the text of a file.
/// Threads: plain data, and free functions without shared state.
#ifndef SCA_CLIENT_SCA_TIKAREQUESTOPTIONS_H
#define SCA_CLIENT_SCA_TIKAREQUESTOPTIONS_H

#include <string>

#include "platform/SCA_Object.h"

/// What the server is to send. All of it arrives as bytes, through the same callback or sink.
enum class SCA_TikaContent {
  Text,       ///< the plain text
  Metadata,   ///< JSON: an array with one object for the document and each document in it, which
              ///< holds its metadata, its plain text and the exceptions of its parsers
  Detection,  ///< JSON: one object with the metadata, the content type among them, without the text
  Markdown    ///< the text as Markdown; Tika 3.3 and later
};

/// What the server is to do about pictures of text. It needs Tesseract for any of it.
enum class SCA_TikaOcr {
  Default,    ///< what the server is configured for
  None,       ///< nothing: neither in pictures nor on scanned pages
  Automatic,  ///< reads pictures, and the pages of a PDF that hold no text to speak of
  Only        ///< reads pictures and every page of a PDF, instead of the text that it holds
};

/// Options of a request. As they are here, the request is the one without options.
///
/// Lines of Tika differ in which they follow: `SCA_TikaVersion::GetSupport`. An option that a
/// server ignores is reported after the extraction. Content and password are refused, before
/// anything is sent, by a server that cannot give or take them.
struct SCA_TikaRequestOptions {
  SCA_TikaContent content = SCA_TikaContent::Text;
  /// Opens an encrypted document. UTF-8, any character, at most 1024 bytes; empty: none. It is sent
  /// over an unencrypted connection, and appears in no report, message or status.
  std::string password;
  SCA_TikaOcr ocr = SCA_TikaOcr::Default;
  /// Names of Tesseract's languages, joined by plus signs, such as "deu+eng"; letters, digits and
  /// "_-/", at most 200 bytes; empty: the server's. A name that the server does not have fails
  /// there, or is as if nothing could be read.
  std::string ocrLanguage;
  bool embedded = true;  ///< false leaves the documents within the document out
  /// Milliseconds that the server may spend on the document, at most 2^31 - 1; 0: its own limit.
  /// Servers refuse more than their own limit.
  unsigned long serverTimeoutMs = 0;
  /// @name Hints, for what the bytes alone do not tell
  /// @{
  std::string fileName;     ///< without folders; any bytes except zero, at most 1024; empty: none
  std::string contentType;  ///< such as "text/csv; charset=ISO-8859-1", at most 255; empty: none
  /// @}
};

/// Those options that a server may not follow, as bits of a set.
enum SCA_TikaOption : unsigned long {
  SCA_TikaOptionMarkdown = 1,
  SCA_TikaOptionPassword = 2,
  SCA_TikaOptionOcr = 4,
  SCA_TikaOptionOcrLanguage = 8,
  SCA_TikaOptionNoEmbedded = 16,
  SCA_TikaOptionServerTimeout = 32,
  SCA_TikaOptionFileName = 64,
  SCA_TikaOptionContentType = 128
};

/// @return What a message calls the options of a set, such as "password, OCR language".
SCA_API std::string SCA_TikaOptionNames(unsigned long options);

/// @return The options of a request that are not as `SCA_TikaRequestOptions` has them by itself.
SCA_API unsigned long SCA_TikaOptionsIn(const SCA_TikaRequestOptions& options);

/// Checks what a caller can get wrong. Nothing that passes can add a line to a request.
/// @param complaint  Receives what is wrong, without the value: one English line in static storage;
///                   untouched otherwise. May be null.
/// @return 0, or `SCA_ErrorOptionInvalid`.
SCA_API unsigned long SCA_CheckTikaOptions(const SCA_TikaRequestOptions& options,
                                           const char** complaint);

#endif  // SCA_CLIENT_SCA_TIKAREQUESTOPTIONS_H
