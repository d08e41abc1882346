/// The shared keys of the control port, and where they come from.
/// Threads: any thread may call any of these.
#ifndef SCA_CONTROL_SCA_CONTROLKEY_H
#define SCA_CONTROL_SCA_CONTROLKEY_H

#include "platform/SCA_Object.h"

/// Sizes of a key in bytes: of a new one, and the most and least that a file may hold.
constexpr unsigned long SCA_ControlKeySize = 32;
constexpr unsigned long SCA_MinControlKey = 16;
constexpr unsigned long SCA_MaxControlKey = 64;

struct SCA_ControlKey {
  unsigned char bytes[SCA_MaxControlKey] = {};
  unsigned long length = 0;
};

/// Gives the key of a service host. Called on the thread that connects or opens the port.
/// @param context  The pointer given with the provider.
/// @param host     As given to the connect, valid during the call; "" for this host's own port.
/// @param error    Why there is none: `ENOENT` when no key is known, which lets a client use a port
///                 without login; any other code ends the connect.
/// @return 1 or 0.
using SCA_ControlKeyProvider = int (*)(void* context, const char* host, unsigned short port,
                                       SCA_ControlKey* key, unsigned long* error);

/// Replaces the provider of the whole process; null restores the default, which reads one file for
/// all hosts, `SCA_GetControlKeyFile`. A call under way may still use the previous one.
SCA_API void SCA_SetControlKeyProvider(SCA_ControlKeyProvider provider, void* context);
/// Asks the provider.
/// @param error  The provider's; `SCA_ErrorKeyInvalid` for a key of another size.
SCA_API int SCA_GetControlKey(const char* host, unsigned short port, SCA_ControlKey* key,
                              unsigned long* error);

/// @return 1 with "Tika Service/control.key" below the account's configuration directory; 0 when
///         that is not known or does not fit.
SCA_API int SCA_GetControlKeyFile(char* path, unsigned long size);

/// Reads a key: hexadecimal digits, two a byte, and white space at the end.
/// @param error  `ENOENT` and the like; `SCA_ErrorKeyExposed` for a file that others than its owner
///               may read or write, or that belongs neither to this account nor to root;
///               `SCA_ErrorKeyInvalid` for other content.
SCA_API int SCA_LoadControlKey(const char* fileName, SCA_ControlKey* key, unsigned long* error);

/// Writes a new random key into a file that only its owner may read, unless it exists; makes the
/// directory, with parents.
/// @return 1 also when the file exists, whatever it holds.
SCA_API int SCA_CreateControlKey(const char* fileName, unsigned long* error);

#endif  // SCA_CONTROL_SCA_CONTROLKEY_H
