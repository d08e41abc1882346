#include "platform/SCA_Path.h"

#include <pwd.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "platform/SCA_Text.h"
#include "platform/posix/SCA_Posix.h"

namespace {

constexpr mode_t kPrivateDirectory = 0700;
constexpr std::size_t kAccountSize = 16384;

bool IsSeparator(char c) {
  return c == '/' || c == '\\';
}

int Empty(char* target) {
  target[0] = '\0';
  return 0;
}

int Fit(char* target, unsigned long size, std::string_view text) {
  if (text.size() >= size) return Empty(target);
  std::memmove(target, text.data(), text.size());
  target[text.size()] = '\0';
  return 1;
}

const char* Environment(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

// The account's entry in the password database.
class Account {
 public:
  // @return A field of it; empty when there is none.
  const char* Get(char* passwd::*field) {
    passwd* found = nullptr;
    const bool isFound = ::getpwuid_r(::geteuid(), &entry_, buffer_, sizeof buffer_, &found) == 0 &&
                         found != nullptr && found->*field != nullptr;
    return isFound ? found->*field : "";
  }

 private:
  passwd entry_{};
  char buffer_[kAccountSize];
};

// A relative one is invalid and to be ignored, as the XDG base directories have it.
int UserDirectory(const char* variable, const char* inHome, char* directory, unsigned long size) {
  const char* configured = Environment(variable);
  if (*configured == '/') return Fit(directory, size, configured);
  Account account;
  const char* home = Environment("HOME");
  if (*home == '\0') home = account.Get(&passwd::pw_dir);
  if (*home == '\0') return Empty(directory);
  const int length = std::snprintf(directory, size, "%s/%s", home, inHome);
  return static_cast<unsigned long>(length) < size ? 1 : Empty(directory);
}

bool IsExecutable(const char* path) {
  struct stat status {};
  return ::stat(path, &status) == 0 && S_ISREG(status.st_mode) && ::access(path, X_OK) == 0;
}

SCA_Result CreateDirectory(const char* path) {
  char part[SCA_MaxPath];
  const std::string_view text(path);
  for (std::size_t end = 0; end < text.size();) {
    end = std::min(text.find('/', end + 1), text.size());
    if (Fit(part, sizeof part, text.substr(0, end)) == 0) return SCA_Result(ENAMETOOLONG);
    if (SCA_DirectoryExists(part) != 0) continue;
    if (::mkdir(part, kPrivateDirectory) == 0) continue;
    const SCA_Result failure = SCA_SystemError();
    // Another process may have made it meanwhile.
    if (SCA_DirectoryExists(part) != 0) continue;
    return failure.Code() == EEXIST ? SCA_Result(ENOTDIR) : failure;
  }
  return SCA_DirectoryExists(path) != 0 ? SCA_Done : SCA_Result(ENOENT);
}

}  // namespace

int SCA_GetExeFileName(char* path, unsigned long size, unsigned long* error) {
  char target[SCA_MaxPath];
  path[0] = '\0';
  const ssize_t length = ::readlink("/proc/self/exe", target, sizeof target);
  if (length < 0) return SCA_SystemError().Store(error);
  const std::string_view text(target, static_cast<std::size_t>(length));
  const bool fits = text.size() < sizeof target && Fit(path, size, text) != 0;
  return fits ? 1 : SCA_Fail(ENAMETOOLONG, error);
}

int SCA_GetDirName(const char* path, char* directory, unsigned long size) {
  const std::string_view text(path);
  std::size_t end = text.find_last_of("/\\");
  if (end == std::string_view::npos) return Fit(directory, size, ".");
  while (end > 0 && IsSeparator(text[end - 1])) --end;
  return Fit(directory, size, end == 0 ? "/" : text.substr(0, end));
}

int SCA_NormalizePath(const char* path, char* normalized, unsigned long size) {
  unsigned long length = 0;
  for (const char* c = path; *c != '\0'; ++c) {
    const bool isRepeated = length > 0 && normalized[length - 1] == '/';
    if (IsSeparator(*c) && isRepeated) continue;
    if (length + 1 >= size) return Empty(normalized);
    normalized[length++] = IsSeparator(*c) ? '/' : *c;
  }
  normalized[length] = '\0';
  return 1;
}

int SCA_FormatPath(char* path, unsigned long size, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(path, size, format, arguments);
  va_end(arguments);
  if (length >= 0 && static_cast<unsigned long>(length) < size) {
    return SCA_NormalizePath(path, path, size);
  }
  return Empty(path);
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
  return CreateDirectory(path).Store(error);
}

int SCA_GetUserName(char* name, unsigned long size) {
  Account account;
  const char* text = Environment("LOGNAME");
  if (*text == '\0') text = account.Get(&passwd::pw_name);
  char number[24];
  std::snprintf(number, sizeof number, "%lu", static_cast<unsigned long>(::geteuid()));
  return Fit(name, size, *text != '\0' ? text : number);
}

int SCA_GetHostName(char* name, unsigned long size) {
  char text[260] = "";
  return ::gethostname(text, sizeof text - 1) == 0 &&
                 SCA_CopyText(name, size, text, SCA_TextFit::Refuse) != 0
             ? 1
             : 0;
}

int SCA_GetUserAppConfDir(char* directory, unsigned long size) {
  return UserDirectory("XDG_CONFIG_HOME", ".config", directory, size);
}

int SCA_GetUserCacheDir(char* directory, unsigned long size) {
  return UserDirectory("XDG_CACHE_HOME", ".cache", directory, size);
}

int SCA_FindProgram(const char* name, char* path, unsigned long size) {
  if (std::strchr(name, '/') != nullptr) return Fit(path, size, name);
  char system[260] = "";
  ::confstr(_CS_PATH, system, sizeof system);
  const char* const configured = std::getenv("PATH");
  const std::string_view directories = configured != nullptr ? configured : system;
  for (std::size_t begin = 0; begin <= directories.size();) {
    const std::size_t end = std::min(directories.find(':', begin), directories.size());
    const std::string_view directory = directories.substr(begin, end - begin);
    begin = end + 1;
    if (directory.empty()) continue;
    const int length = std::snprintf(path, size, "%.*s/%s", static_cast<int>(directory.size()),
                                     directory.data(), name);
    if (static_cast<unsigned long>(length) < size && IsExecutable(path)) return 1;
  }
  return Empty(path);
}

int SCA_IsOwnPath(const char* path) {
  struct stat status {};
  return ::stat(path, &status) == 0 && (status.st_uid == ::geteuid() || status.st_uid == 0) &&
                 (status.st_mode & (S_IWGRP | S_IWOTH)) == 0
             ? 1
             : 0;
}
