#include "control/SCA_ControlKey.h"

#include <cerrno>
#include <cstring>

#include "platform/SCA_Error.h"
#include "platform/SCA_File.h"
#include "platform/SCA_Hex.h"
#include "platform/SCA_Lock.h"
#include "platform/SCA_Path.h"
#include "platform/SCA_Result.h"
#include "platform/SCA_Sha256.h"

namespace {

constexpr unsigned long kMaxPath = 4096;

int ReadDefaultFile(void* /*context*/, const char* /*host*/, unsigned short /*port*/,
                    SCA_ControlKey* key, unsigned long* error) {
  char path[kMaxPath];
  if (SCA_GetControlKeyFile(path, sizeof path) == 0) return SCA_Fail(ENOENT, error);
  return SCA_LoadControlKey(path, key, error);
}

struct Provider {
  SCA_ControlKeyProvider call = ReadDefaultFile;
  void* context = nullptr;
};

SCA_Lock providerLock;
Provider currentProvider SCA_GUARDED_BY(providerLock);

}  // namespace

void SCA_SetControlKeyProvider(SCA_ControlKeyProvider provider, void* context) {
  const SCA_LockGuard guard(providerLock);
  currentProvider = provider != nullptr ? Provider{provider, context} : Provider();
}

int SCA_GetControlKey(const char* host, unsigned short port, SCA_ControlKey* key,
                      unsigned long* error) {
  Provider provider;
  {
    const SCA_LockGuard guard(providerLock);
    provider = currentProvider;
  }
  if (provider.call(provider.context, host, port, key, error) == 0) return 0;
  const bool isKey = key->length >= SCA_MinControlKey && key->length <= SCA_MaxControlKey;
  return isKey ? 1 : SCA_Fail(SCA_ErrorKeyInvalid, error);
}

int SCA_GetControlKeyFile(char* path, unsigned long size) {
  char directory[kMaxPath];
  return SCA_GetUserAppConfDir(directory, sizeof directory) != 0 &&
                 SCA_FormatPath(path, size, "%s/Tika Service/control.key", directory) != 0
             ? 1
             : 0;
}

int SCA_LoadControlKey(const char* fileName, SCA_ControlKey* key, unsigned long* error) {
  SCA_File file;
  char text[2 * SCA_MaxControlKey + 16];
  unsigned long length = 0;
  if (file.Open(fileName, SCA_FileOpenRead, error) == 0) return 0;
  if (file.IsPrivate() == 0) return SCA_Fail(SCA_ErrorKeyExposed, error);
  if (file.Read(text, sizeof text, &length, error) == 0) return 0;
  while (length > 0 && std::strchr(" \t\r\n", text[length - 1]) != nullptr) --length;
  if (length % 2 != 0 || length < 2 * SCA_MinControlKey || length > 2 * SCA_MaxControlKey ||
      SCA_FromHex(text, length, key->bytes) == 0) {
    return SCA_Fail(SCA_ErrorKeyInvalid, error);
  }
  key->length = length / 2;
  return 1;
}

int SCA_CreateControlKey(const char* fileName, unsigned long* error) {
  if (SCA_FileExists(fileName) != 0) return 1;
  char directory[kMaxPath];
  if (SCA_GetDirName(fileName, directory, sizeof directory) == 0) {
    return SCA_Fail(ENAMETOOLONG, error);
  }
  if (SCA_CreateDirectory(directory, error) == 0) return 0;
  unsigned char bytes[SCA_ControlKeySize];
  if (SCA_RandomBytes(bytes, sizeof bytes) == 0) return SCA_Fail(ENOSYS, error);
  char text[2 * sizeof bytes + 2];
  SCA_ToHex(bytes, sizeof bytes, text);
  text[sizeof text - 2] = '\n';
  SCA_ReplacementFile file;
  if (file.Open(fileName, SCA_FileAccess::Private, error) == 0 ||
      file.Write(text, sizeof text - 1, error) == 0) {
    return 0;
  }
  // Another process may have been faster: there is one key, and it does not matter who made it.
  return file.CommitNew(SCA_FileCommit::Durable, error) != 0 || *error == EEXIST ? 1 : 0;
}
