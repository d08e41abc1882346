#include "programs/scaconf/Print.h"

#include <cstdio>

#include "programs/common/Escape.h"
#include "programs/common/Json.h"
#include "settings/SCA_TikaConfigOrv.h"

namespace {

using Json = nlohmann::ordered_json;

const char* TypeName(unsigned long fileType) {
  switch (fileType) {
    case SCA_FileTypeServiceRoot:
      return " (root configuration of the service host)";
    case SCA_FileTypeServiceUser:
      return " (user configuration of the service host)";
    case SCA_FileTypeSettings:
      return " (settings of text extraction)";
    case SCA_FileTypeHistory:
      return " (deaths that a service host remembers)";
    case SCA_FileTypeReport:
      return " (report of a message log)";
    default:
      return "";
  }
}

std::string Text(const char* text) {
  return text != nullptr ? text : "";
}

// NOLINTNEXTLINE(misc-no-recursion): files have a limited depth
void PrintMember(const SCA_Field& member, const std::string& indent) {
  const std::string name = Escape(Text(member.GetName()));
  const SCA_ConfigObj* object = SCA_ToConfigObj(&member);
  if (object == nullptr) {
    std::printf("%s%s = %s\n", indent.c_str(), name.c_str(),
                Escape(Text(member.GetValue())).c_str());
    return;
  }
  std::printf("%s[%s]\n", indent.c_str(), name.c_str());
  for (const SCA_Field* child = object->GetFields().GetHead(); child != nullptr;
       child = child->GetNext()) {
    PrintMember(*child, indent + "  ");
  }
}

// NOLINTNEXTLINE(misc-no-recursion): files have a limited depth
Json MemberToJson(const SCA_Field& member) {
  Json json = NewJsonObject();
  SetJsonText(&json, "name", Text(member.GetName()));
  if (const SCA_ConfigObj* object = SCA_ToConfigObj(&member)) {
    Json& members = json["members"] = Json::array();
    for (const SCA_Field* child = object->GetFields().GetHead(); child != nullptr;
         child = child->GetNext()) {
      members.push_back(MemberToJson(*child));
    }
  } else {
    SetJsonText(&json, "value", Text(member.GetValue()));
  }
  return json;
}

}  // namespace

std::string Summary(const SCA_ConfigFileInfo& info) {
  return "file type " + std::to_string(info.fileType) + TypeName(info.fileType) +
         ", format version " + std::to_string(info.formatVersion) + ", " +
         std::to_string(info.fileSize) + " bytes";
}

void PrintText(const SCA_ConfigObj& object) {
  PrintMember(object, "");
}

nlohmann::ordered_json ToJson(const SCA_ConfigObj& object) {
  return MemberToJson(object);
}
