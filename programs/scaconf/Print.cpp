#include "programs/scaconf/Print.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "programs/common/Json.h"
#include "programs/common/Utf8.h"

namespace {

using Json = nlohmann::ordered_json;

const char* TypeName(unsigned long fileType) {
  switch (fileType) {
    case SCA_FileTypeServiceRoot:
      return " (root configuration of the service host)";
    case SCA_FileTypeServiceUser:
      return " (user configuration of the service host)";
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

bool IsControl(char32_t character) {
  const bool isDirection = (character >= 0x200E && character <= 0x200F) ||
                           (character >= 0x2028 && character <= 0x202E) ||
                           (character >= 0x2066 && character <= 0x2069);
  return character < 0x20 || (character >= 0x7F && character < 0xA0) || isDirection;
}

std::string EscapeBytes(std::string_view bytes) {
  std::string shown;
  for (const char byte : bytes) {
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned char>(byte));
    shown += escape;
  }
  return shown;
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
  Json json;
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

std::string Escape(const std::string& text) {
  std::string shown;
  for (std::size_t at = 0; at < text.size();) {
    char32_t character = 0;
    const std::size_t decoded = DecodeUtf8(std::string_view(text).substr(at), &character);
    const std::string bytes = text.substr(at, std::max<std::size_t>(decoded, 1));
    at += bytes.size();
    if (bytes == "\\") {
      shown += "\\\\";
    } else if (bytes == "\n") {
      shown += "\\n";
    } else if (bytes == "\t") {
      shown += "\\t";
    } else {
      shown += decoded > 0 && !IsControl(character) ? bytes : EscapeBytes(bytes);
    }
  }
  return shown;
}

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
