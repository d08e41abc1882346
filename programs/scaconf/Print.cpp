#include "programs/scaconf/Print.h"

#include <cstdio>

namespace {

const char* TypeName(unsigned long fileType) {
  switch (fileType) {
    case SCA_FileTypeServiceRoot:
      return " (root configuration of the service host)";
    case SCA_FileTypeServiceUser:
      return " (user configuration of the service host)";
    case SCA_FileTypeReport:
      return " (report of a message log)";
    default:
      return "";
  }
}

std::string Text(const char* text) {
  return text != nullptr ? text : "";
}

std::string Escape(const std::string& text) {
  std::string shown;
  for (const char byte : text) {
    if (byte == '\\') {
      shown += "\\\\";
    } else if (byte == '\n') {
      shown += "\\n";
    } else if (byte == '\t') {
      shown += "\\t";
    } else if (static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(byte));
      shown += escape;
    } else {
      shown += byte;
    }
  }
  return shown;
}

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

Json MemberToJson(const SCA_Field& member) {
  Json json;
  SetText(&json, "name", Text(member.GetName()));
  if (const SCA_ConfigObj* object = SCA_ToConfigObj(&member)) {
    Json& members = json["members"] = Json::array();
    for (const SCA_Field* child = object->GetFields().GetHead(); child != nullptr;
         child = child->GetNext()) {
      members.push_back(MemberToJson(*child));
    }
  } else {
    SetText(&json, "value", Text(member.GetValue()));
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

Json ToJson(const SCA_ConfigObj& object) {
  return MemberToJson(object);
}
