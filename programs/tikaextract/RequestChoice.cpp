#include "programs/tikaextract/RequestChoice.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "programs/common/Advice.h"
#include "programs/common/Escape.h"
#include "programs/tikaextract/Options.h"

namespace {

constexpr std::size_t kMostPassword = 1024;  // bytes
constexpr std::size_t kMostName = 1024;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";  // some editors put it first

SCA_TikaContent ContentFor(Aim aim) {
  switch (aim) {
    case Aim::Text:
      return SCA_TikaContent::Text;
    case Aim::CheckedText:
    case Aim::Metadata:
      return SCA_TikaContent::Metadata;
    case Aim::Detection:
      return SCA_TikaContent::Detection;
    case Aim::Markdown:
      return SCA_TikaContent::Markdown;
  }
  return SCA_TikaContent::Text;
}

// The first line of a file, which may begin with a mark of UTF-8 and end with CR LF.
std::string ReadPassword(const std::string& path, std::string* password) {
  errno = 0;
  std::ifstream file(path, std::ios::binary);
  std::string text(kUtf8Mark.size() + kMostPassword + 3, '\0');
  file.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (!file.is_open() || file.bad()) {
    return "cannot read the password file " + Quoted(path) + ": " +
           Explain(errno != 0 ? static_cast<unsigned long>(errno) : EIO);
  }
  text.resize(static_cast<std::size_t>(file.gcount()));
  if (text.compare(0, kUtf8Mark.size(), kUtf8Mark) == 0) text.erase(0, kUtf8Mark.size());
  std::string line = text.substr(0, text.find('\n'));
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.empty()) return "the first line of " + Quoted(path) + " is empty: it is the password";
  if (line.size() > kMostPassword) {
    return "the password in " + Quoted(path) + " is longer than 1024 bytes";
  }
  *password = line;
  return {};
}

}  // namespace

std::string CompleteChoice(RequestChoice* choice) {
  choice->request.content = ContentFor(choice->aim);
  std::string complaint;
  if (!choice->passwordFile.empty()) {
    complaint = ReadPassword(choice->passwordFile, &choice->request.password);
  }
  const char* wrong = "";
  if (complaint.empty() && SCA_CheckTikaOptions(choice->request, &wrong) != 0) complaint = wrong;
  return complaint;
}

SCA_TikaRequestOptions OptionsFor(const RequestChoice& choice, const std::string& path) {
  SCA_TikaRequestOptions options = choice.request;
  std::string name = std::filesystem::path(path).filename().string();
  // A hint is no reason to fail, and "-" is not the name of anything.
  if (choice.sendsName && !choice.IsPlain() && name.size() <= kMostName && name != kStandardInput)
    options.fileName = std::move(name);
  return options;
}
