/// A message of the control protocol: a name and one configuration object.
/// Threads: one at a time.
#ifndef SCA_CONTROL_SCA_NETMESSAGE_H
#define SCA_CONTROL_SCA_NETMESSAGE_H

#include <cstdint>

#include "foundation/SCA_ConfigObj.h"

/// Capacity of a message's name in bytes, the terminating zero included.
constexpr unsigned long SCA_MaxCommandName = 64;

/// A request is named by its command, a reply by "OK" or "ERR". int results are 1 or 0.
class SCA_API SCA_NetMessage : public SCA_Object {
 public:
  SCA_NetMessage();
  /// Deep copies; not valid when there was no memory for one.
  SCA_NetMessage(const SCA_NetMessage& source);
  SCA_NetMessage& operator=(const SCA_NetMessage& source);

  /// Sets the name and empties the data.
  /// @return 0 for a name that does not fit, with the old message kept: a cut name would be another
  ///         command.
  int Init(const char* name);
  /// @return 0 for a name that does not fit, with the old one kept.
  int SetCommandName(const char* name);
  /// @return The name; lives as long as the message.
  const char* GetCommandName() const { return name_; }

  /// The data, which the message owns.
  SCA_ConfigObj* GetData() { return &data_; }
  const SCA_ConfigObj* GetData() const { return &data_; }

  /// Two numbers that travel with the message and mean nothing to the protocol.
  std::uint32_t first = 0;
  std::uint32_t second = 0;

 private:
  char name_[SCA_MaxCommandName] = "";
  SCA_ConfigObj data_;
};

#endif  // SCA_CONTROL_SCA_NETMESSAGE_H
