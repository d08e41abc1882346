/// How much memory a program may still take. Internal to the library.
/// Threads: any thread may ask.
#ifndef SCA_PLATFORM_SCA_MEMORY_H
#define SCA_PLATFORM_SCA_MEMORY_H

/// @return Bytes that this machine, or the control group of this process where that has a limit,
///         can give without taking them from other programs; the largest value when the system
///         does not tell. Throws `std::bad_alloc`.
unsigned long long SCA_GetAvailableMemory();

#endif  // SCA_PLATFORM_SCA_MEMORY_H
