#include "programs/tikaextract/Advice.h"

#include <cerrno>

#include "platform/SCA_Error.h"

namespace {

struct Advice {
  unsigned long code;
  const char* text;
};

constexpr Advice kAdvice[] = {
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
    {SCA_ErrorFileShrank, "try again when nobody writes to it"},
    {SCA_ErrorFileGrew, "copy it first, when nobody writes to it"},
    {SCA_ErrorContentEncoding, "turn off compression in the proxy before the Tika server"},
    {SCA_ErrorInvalidData, "check that the server is a Tika server of version 1.x to 3.x"},
    {SCA_ErrorServersDied, "it may need more memory than they have: raise their heaps"},
    {SCA_ErrorTimeLimit, "raise --time-limit"},
    {SCA_ErrorTextTooLong, "raise --text-limit if the document has so much text"},
};

}  // namespace

std::string Explain(unsigned long code) {
  for (const Advice& advice : kAdvice) {
    if (advice.code == code) return std::string(SCA_ErrorText(code)) + "; " + advice.text;
  }
  return std::string(SCA_ErrorText(code)) + "; --verbose shows more";
}
