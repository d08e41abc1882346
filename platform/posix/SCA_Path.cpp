#include "platform/SCA_Path.h"

#include <pwd.h>
#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/SCA_Fail.h"
#include "platform/SCA_Text.h"
#include "platform/posix/SCA_Posix.h"

namespace {

constexpr mode_t kPrivateDirectory = 0700;
constexpr std::size_t kAccountSize = 16384;

bool IsSeparator(char c) {
  return c == '/' || c == '\\';
}

int Fit(char* target, unsigned long size, const std::string& text) {
  const int fits = SCA_CopyText(target, size, text.c_str(), SCA_TextFit::Refuse);
  if (fits == 0) target[0] = '\0';
  return fits;
}

const char* Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// A field of the account's entry in the password database; empty when there is none.
std::string Account(char* passwd::*field) {
  char buffer[kAccountSize];
  passwd entry{};
  passwd* found = nullptr;
  const bool isFound = ::getpwuid_r(::geteuid(), &entry, buffer, sizeof buffer, &found) == 0 &&
                       found != nullptr && found->*field != nullptr;
  return isFound ? found->*field : "";
}

}  // namespace

int SCA_GetExeFileName(char* path, unsigned long size, unsigned long* error) {
  char target[SCA_MaxPath];
  path[0] = '\0';
  const ssize_t length = ::readlink("/proc/self/exe", target, sizeof target);
  if (length < 0) return SCA_Fail(SCA_SystemError(), error);
  const std::string text(target, static_cast<std::size_t>(length));
  return text.size() < sizeof target && Fit(path, size, text) != 0 ? 1
                                                                   : SCA_Fail(ENAMETOOLONG, error);
}

int SCA_GetDirName(const char* path, char* directory, unsigned long size) {
  const std::string text(path);
  std::size_t end = text.find_last_of("/\\");
  if (end == std::string::npos) return Fit(directory, size, ".");
  while (end > 0 && IsSeparator(text[end - 1])) --end;
  return Fit(directory, size, end == 0 ? "/" : text.substr(0, end));
}

int SCA_NormalizePath(const char* path, char* normalized, unsigned long size) {
  std::string text;
  for (const char* c = path; *c != '\0'; ++c) {
    if (!IsSeparator(*c)) {
      text += *c;
    } else if (text.empty() || text.back() != '/') {
      text += '/';
    }
  }
  return Fit(normalized, size, text);
}

int SCA_FormatPath(char* path, unsigned long size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(path, size, format, arguments);
  va_end(arguments);
  if (length >= 0 && static_cast<unsigned long>(length) < size) {
    return SCA_NormalizePath(path, path, size);
  }
  path[0] = '\0';
  return 0;
}

int SCA_IsAbsolutePath(const char* path) {
  return IsSeparator(path[0]) || (path[0] != '\0' && path[1] == ':') ? 1 : 0;
}

int SCA_FileExists(const char* path) {
  struct stat status {};
  return ::stat(path, &status) == 0 && !S_ISDIR(status.st_mode) ? 1 : 0;
}

int SCA_DirectoryExists(const char* path) {
  struct stat status {};
  return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode) ? 1 : 0;
}

int SCA_CreateDirectory(const char* path, unsigned long* error) {
  const std::string text(path);
  for (std::size_t end = 0; end < text.size();) {
    end = std::min(text.find('/', end + 1), text.size());
    const std::string part = text.substr(0, end);
    if (SCA_DirectoryExists(part.c_str()) != 0) continue;
    if (::mkdir(part.c_str(), kPrivateDirectory) == 0) continue;
    const unsigned long code = SCA_SystemError();
    // Somebody else may have made it meanwhile.
    if (SCA_DirectoryExists(part.c_str()) != 0) continue;
    return SCA_Fail(code == EEXIST ? ENOTDIR : code, error);
  }
  return SCA_DirectoryExists(path) != 0 ? 1 : SCA_Fail(ENOENT, error);
}

int SCA_GetUserName(char* name, unsigned long size) {
  std::string text = Environment("LOGNAME");
  if (text.empty()) text = Account(&passwd::pw_name);
  return Fit(name, size, text) != 0 && !text.empty() ? 1 : 0;
}

int SCA_GetHostName(char* name, unsigned long size) {
  char text[260] = "";
  return ::gethostname(text, sizeof text - 1) == 0 &&
                 SCA_CopyText(name, size, text, SCA_TextFit::Refuse) != 0
             ? 1
             : 0;
}

int SCA_GetUserAppConfDir(char* directory, unsigned long size) {
  // A relative one is invalid and to be ignored, as the XDG base directories have it.
  const std::string configured = Environment("XDG_CONFIG_HOME");
  if (!configured.empty() && configured.front() == '/') return Fit(directory, size, configured);
  std::string home = Environment("HOME");
  if (home.empty()) home = Account(&passwd::pw_dir);
  directory[0] = '\0';
  return !home.empty() ? Fit(directory, size, home + "/.config") : 0;
}
