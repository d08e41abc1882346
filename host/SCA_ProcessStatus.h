/// The process statuses: what state a Tika server is in, and a whole service host. One row each:
/// its number, which files and messages carry, and its words.
#ifndef SCA_HOST_SCA_PROCESSSTATUS_H
#define SCA_HOST_SCA_PROCESSSTATUS_H

constexpr unsigned long SCA_ServerError = 0;     ///< a start failed, or the worker gave up
constexpr unsigned long SCA_ServerInactive = 1;  ///< stopped on request
constexpr unsigned long SCA_ServerIdle = 10;     ///< never started
constexpr unsigned long SCA_ServerActive = 11;   ///< from the start until the worker ends
constexpr unsigned long SCA_ServerPending = 14;  ///< set only from outside

struct SCA_ProcessStatus {
  unsigned long value;
  const char* text;        ///< as `SCA_TikaServer` gives it, "Inactive"
  const char* icon;        ///< resource of a picture
  const char* serverWord;  ///< of a server in a service host's status, "stopped"; an active one may
                           ///< be "starting" or "silent" instead
  const char* serviceWord;  ///< of a whole service host, "suspended"
};

inline constexpr SCA_ProcessStatus SCA_ProcessStatuses[] = {
    {SCA_ServerError, "Error", ":/images/error_16px.png", "error", "error"},
    {SCA_ServerInactive, "Inactive", ":/images/idle_16px.png", "stopped", "suspended"},
    {SCA_ServerIdle, "Idle", ":/images/idle_16px.png", "idle", "idle"},
    {SCA_ServerActive, "Active", ":/images/ready_16px.png", "ready", "active"},
    {SCA_ServerPending, "Pending", ":/images/idle_16px.png", "pending", "pending"},
};

inline constexpr SCA_ProcessStatus SCA_UnknownProcessStatus = {
    0xFFFFFFFF, "Unknown", ":/images/idle_16px.png", "unknown", "unknown"};

/// @return The row of a value; `SCA_UnknownProcessStatus` for any other number.
constexpr const SCA_ProcessStatus& SCA_FindProcessStatus(unsigned long value) {
  for (const SCA_ProcessStatus& status : SCA_ProcessStatuses) {
    if (status.value == value) return status;
  }
  return SCA_UnknownProcessStatus;
}

#endif  // SCA_HOST_SCA_PROCESSSTATUS_H
