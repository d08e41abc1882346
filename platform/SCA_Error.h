/// Every error code that an operation of the library can store, and its text.
///
/// Ranges: 1 to 199 are the operating system's `errno` values (`ETIMEDOUT` for every time-out,
/// `ECONNRESET` when the peer closed the connection); 200 to 999 are HTTP reply codes (interim
/// replies, 100 to 199, are skipped and never become an error code); 100100 to 100199 are the
/// library's documented codes; 100200 to 100299 tell further causes apart.
#ifndef SCA_PLATFORM_SCA_ERROR_H
#define SCA_PLATFORM_SCA_ERROR_H

#include "platform/SCA_Object.h"

constexpr unsigned long SCA_ErrorNoJar = 100113;      ///< the server's JAR file does not exist
constexpr unsigned long SCA_ErrorCancelled = 100120;  ///< stopped by a cancel event or a callback
constexpr unsigned long SCA_ErrorAlreadyActive = 100128;  ///< the server is already active
constexpr unsigned long SCA_ErrorCannotCreate = 100137;   ///< not created, or connected already
constexpr unsigned long SCA_ErrorInvalidData = 100138;    ///< missing, malformed or unfit data
constexpr unsigned long SCA_ErrorRootConfig = 100139;     ///< the root configuration was refused
constexpr unsigned long SCA_ErrorNotStarted = 100189;     ///< the Java process was not started
constexpr unsigned long SCA_ErrorProcessEnded = 100190;   ///< the Java process ended by itself
constexpr unsigned long SCA_ErrorTika422 = 100191;        ///< the Tika server answered HTTP 422
constexpr unsigned long SCA_ErrorTika500 = 100194;        ///< the Tika server answered HTTP 500

constexpr unsigned long SCA_ErrorHostName = 100200;         ///< a host name did not resolve
constexpr unsigned long SCA_ErrorHostNameInvalid = 100201;  ///< empty or over-long host name
constexpr unsigned long SCA_ErrorHeaderTooLong = 100202;    ///< HTTP header exceeds its buffer
constexpr unsigned long SCA_ErrorNotRegularFile = 100203;   ///< a pipe, socket or device
constexpr unsigned long SCA_ErrorFileShrank = 100204;       ///< fewer bytes than the file announced
constexpr unsigned long SCA_ErrorCommandLine = 100205;   ///< a command line that cannot be started
constexpr unsigned long SCA_ErrorFileForeign = 100206;   ///< not one of the library's files
constexpr unsigned long SCA_ErrorFileDamaged = 100207;   ///< a file cut or changed
constexpr unsigned long SCA_ErrorFileNewer = 100208;     ///< a file of a later version
constexpr unsigned long SCA_ErrorDataTooLarge = 100209;  ///< an object beyond its limits
constexpr unsigned long SCA_ErrorInterimReplies = 100210;   ///< HTTP 1xx and no final reply
constexpr unsigned long SCA_ErrorContentEncoding = 100211;  ///< a reply that is compressed
constexpr unsigned long SCA_ErrorFileGrew = 100212;         ///< more bytes than the file announced
constexpr unsigned long SCA_ErrorNoTikaFolders = 100250;  ///< a jar without what it needs beside it
constexpr unsigned long SCA_ErrorOptionInvalid = 100213;  ///< an option that no request can have
constexpr unsigned long SCA_ErrorOptionRefused = 100214;  ///< one that the server cannot follow
constexpr unsigned long SCA_ErrorExtractionOff = 100230;  ///< switched off in the settings
constexpr unsigned long SCA_ErrorNoService = 100231;      ///< no service takes such files
constexpr unsigned long SCA_ErrorQueueFull = 100232;      ///< too many requests are pending
constexpr unsigned long SCA_ErrorStopping = 100233;       ///< the dispatcher takes no more
constexpr unsigned long SCA_ErrorNoServer = 100234;       ///< no server could be reached
constexpr unsigned long SCA_ErrorServersDied = 100235;    ///< connections broke on one file
constexpr unsigned long SCA_ErrorTimeLimit = 100236;      ///< a file's time limit has passed
constexpr unsigned long SCA_ErrorTextTooLong = 100237;    ///< a text beyond its limit of size
constexpr unsigned long SCA_ErrorFrame = 100220;  ///< bytes that are not the control protocol
constexpr unsigned long SCA_ErrorFrameTooLarge = 100221;  ///< a message beyond a frame's limit
constexpr unsigned long SCA_ErrorFrameForged = 100222;    ///< a frame without its proof
constexpr unsigned long SCA_ErrorLoginRefused = 100223;   ///< the two ends have different keys
constexpr unsigned long SCA_ErrorLoginMissing =
    100224;                                       ///< a port without login, for a client with a key
constexpr unsigned long SCA_ErrorNoKey = 100225;  ///< no key for a port with login
constexpr unsigned long SCA_ErrorKeyExposed = 100226;       ///< a key that others may read
constexpr unsigned long SCA_ErrorKeyInvalid = 100227;       ///< a key file with other content
constexpr unsigned long SCA_ErrorConnectionLimit = 100228;  ///< the server has too many connections
constexpr unsigned long SCA_ErrorTooManyLogins = 100229;  ///< too many wrong ones from one address
constexpr unsigned long SCA_ErrorSocketPath = 100240;     ///< relative, or too long for a socket
constexpr unsigned long SCA_ErrorSocketTaken = 100241;    ///< something else is in its place
constexpr unsigned long SCA_ErrorPeerAccount = 100242;    ///< an account without permission
constexpr unsigned long SCA_ErrorNoGroup = 100243;        ///< no group has that name
constexpr unsigned long SCA_ErrorNoLocalHost = 100244;    ///< no service host on this machine

/// @return One English line for the code, without its number and without a line end: "Connection
///         refused", "the server answered HTTP 503". Never null; static storage. For codes that
///         the library does not know, "unknown error".
SCA_API const char* SCA_ErrorText(unsigned long code);

#endif  // SCA_PLATFORM_SCA_ERROR_H
