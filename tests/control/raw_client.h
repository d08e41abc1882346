/// A client that sends requests as they are, and gives the replies as texts.
#ifndef SCA_TESTS_CONTROL_RAW_CLIENT_H
#define SCA_TESTS_CONTROL_RAW_CLIENT_H

#include <string>
#include <utility>
#include <vector>

#include "control/SCA_NetTransport.h"
#include "tests/control/fake_host.h"

using Fields = std::vector<std::pair<std::string, std::string>>;

// "OK" or "ERR", and the fields of the reply: "OK ServerId=7 StatusObj{Mark=1}".
inline std::string Text(const SCA_ConfigObj& object) {
  std::string text;
  for (auto* field = object.GetFields().GetHead(); field != nullptr; field = field->GetNext()) {
    const SCA_ConfigObj* child = SCA_ToConfigObj(field);
    text += text.empty() ? "" : " ";
    text += field->GetName() +
            (child != nullptr ? "{" + Text(*child) + "}" : std::string("=") + field->GetValue());
  }
  return text;
}

// Sends requests as they are, and gives the replies as texts.
class RawClient {
 public:
  explicit RawClient(unsigned short port) : transport_(nullptr) {
    unsigned long error = 0;
    EXPECT_EQ(transport_.Connect("127.0.0.1", port, 5000, &error), 1);
  }
  std::string Ask(const std::string& command, const Fields& fields = {}) {
    SCA_NetMessage request;
    EXPECT_EQ(request.Init(command.c_str()), 1);
    for (const auto& [name, value] : fields)
      request.GetData()->AddField(name.c_str(), value.c_str(), 0);
    return Ask(&request);
  }
  std::string Ask(SCA_NetMessage* request) {
    SCA_NetMessage reply;
    unsigned long error = 0;
    if (transport_.SendMessage(0, request, &error) == 0 ||
        transport_.WaitForMessage(10000, &reply, &error) == 0) {
      return SCA_ErrorText(error);
    }
    const std::string fields = Text(*reply.GetData());
    return reply.GetCommandName() + (fields.empty() ? "" : " " + fields);
  }

 private:
  SCA_NetTransport transport_;
};

#endif  // SCA_TESTS_CONTROL_RAW_CLIENT_H
