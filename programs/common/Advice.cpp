#include "programs/common/Advice.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "platform/SCA_Error.h"

namespace {

struct Advice {
  unsigned long code;
  const char* text;
};

constexpr Advice kDocument[] = {
    {SCA_ErrorTika422, "it is empty, encrypted or damaged: open it in its own program"},
    {SCA_ErrorTika500, "try another version of Tika, or look for the cause with --verbose"},
    {ETIMEDOUT, "raise --timeout if the document is large"},
    {ECONNRESET, "the server may have run out of memory: raise its heap (--java-heap)"},
    {EPIPE, "the server may have refused the file or run out of memory"},
    {ECONNREFUSED, "check that the server runs and listens on that port"},
    {SCA_ErrorHostName, "check the name of the server"},
    {ENOENT, "check the name"},
    {EACCES, "check its permissions"},
    {EISDIR, "name the files in it, or use -r"},
    {ENOSPC, "make room and try again"},
    {EDQUOT, "make room and try again"},
    {ELOOP, "it is a link where none may be: remove it"},
    {EEXIST, "something else, or another document's text, is in the way: use another directory"},
    {SCA_ErrorNotRegularFile, "copy its content into a file first"},
    {SCA_ErrorFileShrank, "try again while no program writes to it"},
    {SCA_ErrorFileGrew, "copy it first, while no program writes to it"},
    {SCA_ErrorContentEncoding, "turn off compression in the proxy in front of the Tika server"},
    {SCA_ErrorInvalidData, "check that the server is a Tika server of version 1.x to 4.x"},
    {SCA_ErrorServersDied, "it may need more memory than they have: raise their heaps"},
    {SCA_ErrorTimeLimit, "raise --time-limit"},
    {SCA_ErrorTextTooLong, "raise --text-limit if the document has so much text"},
};
constexpr char kOtherDocument[] = "--verbose shows more";

constexpr char kNobodyListens[] =
    "no service host listens there: check the address, and that tikasvc runs";
constexpr char kWrongAccount[] =
    "run this as root, as the host's account, or as a member of its --control-group";
constexpr char kCopyKey[] = "copy the host's control.key and name it with --key";

constexpr Advice kServiceHost[] = {
    {ECONNREFUSED, kNobodyListens},
    {ENOENT, kNobodyListens},
    {ETIMEDOUT, "check the address and the firewall, and whether the host hangs"},
    {ECONNRESET, "check that tikasvc runs there, and its log"},
    {EACCES, kWrongAccount},
    {SCA_ErrorPeerAccount, kWrongAccount},
    {SCA_ErrorHostName, "check the name"},
    {SCA_ErrorNoKey, kCopyKey},
    {SCA_ErrorLoginRefused, kCopyKey},
    {SCA_ErrorLoginMissing, "it may be an impostor"},
    {SCA_ErrorTooManyLogins,
     "wait a few seconds, and find the client that fails to log in: the host's debug log names it"},
    {SCA_ErrorKeyExposed, "make the key file readable only by its owner"},
    {SCA_ErrorKeyInvalid, "copy the host's control.key again"},
    {SCA_ErrorFrame, "check the port: something else answers there"},
    {SCA_ErrorConnectionLimit, "try again when other clients have disconnected"},
    {ENOMEM, "end other programs, or give this one more memory"},
    {EMFILE, "raise the limit of open files (ulimit -n)"},
};
constexpr char kOtherHost[] = "check the address, and that tikasvc runs there";

template <std::size_t count>
const char* Find(const Advice (&rows)[count], unsigned long code, const char* otherwise) {
  const auto* found = std::find_if(std::begin(rows), std::end(rows),
                                   [code](const Advice& row) { return row.code == code; });
  return found != std::end(rows) ? found->text : otherwise;
}

}  // namespace

const char* AdviceOn(unsigned long code, ErrorOf subject) {
  return subject == ErrorOf::Document ? Find(kDocument, code, kOtherDocument)
                                      : Find(kServiceHost, code, kOtherHost);
}

std::string Explain(unsigned long code, ErrorOf subject) {
  return std::string(SCA_ErrorText(code)) + "; " + AdviceOn(code, subject);
}
