/// The byte form of a configuration object, as files and control messages carry it:
///
///     plain field:  '1' 0x01 name 0x01 value 0x01
///     object:       '2' 0x01 name 0x01 member ... member '0' 0x01
///
/// Names and values hold any bytes but 0x00 and 0x01. A field without a value reads back as one
/// with an empty value. docs/file-format.md describes it in full. Threads: free functions without
/// shared state; one thread at a time per tree.
#ifndef SCA_FOUNDATION_SCA_CONFIGBYTES_H
#define SCA_FOUNDATION_SCA_CONFIGBYTES_H

#include "foundation/SCA_ConfigObj.h"

/// Limits of what is written and read: objects within one another, the root included; members of
/// all levels together; bytes of the whole form. A text that the limits refuse is never half
/// written.
constexpr unsigned long SCA_MaxConfigDepth = 64;
constexpr unsigned long SCA_MaxConfigMembers = 100000;
constexpr unsigned long SCA_MaxConfigBytes = 64UL << 20;

/// Where and why bytes were refused.
struct SCA_ConfigFault {
  unsigned long long offset = 0;  ///< bytes before the fault
  const char* text = "";          ///< one English line; static storage
};

/// Writes an object into memory.
/// @param buffer   Holds anything after a failure.
/// @param size     Capacity of the buffer in bytes; `GetDataSize()` is always enough.
/// @param written  Receives the bytes written.
/// @param error    `SCA_ErrorDataTooLarge` beyond the limits, `SCA_ErrorInvalidData` for an object
///                 without a name, `ENOBUFS` for a buffer that is too small.
SCA_API int SCA_WriteConfigBytes(const SCA_ConfigObj& object, char* buffer, unsigned long size,
                                 unsigned long* written, unsigned long* error);

/// Reads an object from bytes that may come from anywhere. Takes time linear in their number, and
/// memory for one field to four bytes, or `SCA_MaxConfigMembers` in all.
/// @param object  Receives name and members in place of its own; without members after a failure.
/// @param length  Of the bytes; all of them must belong to the object.
/// @param fault   May be null.
/// @param error   `SCA_ErrorInvalidData` for bytes that are not an object,
///                `SCA_ErrorDataTooLarge` beyond the limits, `ENOMEM`.
SCA_API int SCA_ReadConfigBytes(const char* bytes, unsigned long length, SCA_ConfigObj* object,
                                SCA_ConfigFault* fault, unsigned long* error);

#endif  // SCA_FOUNDATION_SCA_CONFIGBYTES_H
