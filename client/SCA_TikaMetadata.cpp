#include "client/SCA_TikaMetadata.h"

#include <algorithm>
#include <cstdlib>
#include <initializer_list>

namespace {

using Names = std::initializer_list<const char*>;

constexpr const char* kExceptionPrefixes[] = {"X-TIKA:EXCEPTION:", "tk:exception:"};
// Stands among the exceptions, but names the parser that failed.
constexpr char kFailedParser[] = "embedded-parser";
constexpr std::size_t kLongestException = 500;

std::string First(const SCA_TikaMetadata& metadata, Names names) {
  for (const char* name : names) {
    const std::string* const value = metadata.Find(name);
    if (value != nullptr && !value->empty()) return *value;
  }
  return {};
}

std::vector<std::string> All(const SCA_TikaMetadata& metadata, Names names) {
  std::vector<std::string> values;
  for (const char* name : names) {
    for (const auto& [key, value] : metadata.fields) {
      if (key == name && !value.empty()) values.push_back(value);
    }
    if (!values.empty()) break;
  }
  return values;
}

// "EMBEDDED_exception" and "embedded-exception" alike become the latter.
std::string KindOf(std::string_view name) {
  std::string kind;
  for (const char c : name) {
    kind += c == '_' ? '-' : (c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c);
  }
  return kind;
}

// The first line of a stack trace: "org.apache.tika.X: message" becomes "X: message".
std::string FirstLine(std::string_view trace) {
  std::string_view line = trace.substr(0, trace.find_first_of("\r\n"));
  const std::string_view type = line.substr(0, line.find_first_of(": "));
  const std::size_t dot = type.rfind('.');
  if (dot != std::string_view::npos) line.remove_prefix(dot + 1);
  if (line.size() > kLongestException) {
    // At the boundary of a character.
    std::size_t length = kLongestException;
    while (length > 0 && (static_cast<unsigned char>(line[length]) & 0xC0U) == 0x80) --length;
    line = line.substr(0, length);
  }
  return std::string(line);
}

// The last is the one of an embedded document that is judged by itself.
bool IsOfTheWholeDocument(const SCA_TikaException& exception) {
  return exception.kind == "runtime" || exception.kind == "container-exception" ||
         exception.kind == "embedded-exception";
}

SCA_TikaFinding FindingOf(const SCA_TikaException& exception) {
  const auto isOf = [&exception](const char* type) { return exception.text.rfind(type, 0) == 0; };
  if (isOf("EncryptedDocumentException")) return SCA_TikaFinding::Locked;
  if (isOf("ZeroByteFileException")) return SCA_TikaFinding::Empty;
  return SCA_TikaFinding::Damaged;
}

}  // namespace

const std::string* SCA_TikaMetadata::Find(std::string_view name) const {
  const auto found = std::find_if(fields.begin(), fields.end(),
                                  [name](const auto& field) { return field.first == name; });
  return found != fields.end() ? &found->second : nullptr;
}

std::string SCA_TikaMetadata::GetContentType() const {
  return First(*this, {"Content-Type"});
}

std::string SCA_TikaMetadata::GetLanguage() const {
  return First(*this, {"language", "dc:language"});
}

std::string SCA_TikaMetadata::GetTitle() const {
  return First(*this, {"dc:title", "title"});
}

std::vector<std::string> SCA_TikaMetadata::GetAuthors() const {
  return All(*this, {"dc:creator", "meta:author", "Author"});
}

std::string SCA_TikaMetadata::GetCreated() const {
  return First(*this, {"dcterms:created", "meta:creation-date", "Creation-Date"});
}

std::string SCA_TikaMetadata::GetModified() const {
  return First(*this, {"dcterms:modified", "Last-Modified"});
}

unsigned long SCA_TikaMetadata::GetPages() const {
  const std::string pages = First(*this, {"xmpTPg:NPages", "meta:page-count", "Page-Count"});
  const bool isNumber = !pages.empty() && pages.size() <= 9 &&
                        pages.find_first_not_of("0123456789") == std::string::npos;
  return isNumber ? std::strtoul(pages.c_str(), nullptr, 10) : 0;
}

std::string SCA_TikaMetadata::GetParser() const {
  std::string last;
  for (const std::string& parser :
       All(*this, {"X-TIKA:Parsed-By", "X-Parsed-By", "tk:parsed-by"})) {
    last = parser;
    if (parser.find("DefaultParser") == std::string::npos) break;  // which only hands on
  }
  return last;
}

std::string SCA_TikaMetadata::GetName() const {
  return First(*this, {"resourceName", "X-TIKA:resourceName", "tk:resource-name"});
}

std::string SCA_TikaMetadata::GetEmbeddedPath() const {
  return First(*this, {"X-TIKA:final_embedded_resource_path", "X-TIKA:embedded_resource_path",
                       "tk:final-embedded-resource-path", "tk:embedded-resource-path"});
}

std::vector<SCA_TikaException> SCA_TikaMetadata::GetExceptions() const {
  std::vector<SCA_TikaException> exceptions;
  for (const auto& [name, value] : fields) {
    for (const std::string_view prefix : kExceptionPrefixes) {
      if (name.rfind(prefix, 0) != 0) continue;
      const std::string kind = KindOf(std::string_view(name).substr(prefix.size()));
      if (kind != kFailedParser) exceptions.push_back({kind, FirstLine(value)});
    }
  }
  return exceptions;
}

const char* SCA_TikaFindingText(SCA_TikaFinding finding) {
  switch (finding) {
    case SCA_TikaFinding::Complete:
      return "complete";
    case SCA_TikaFinding::Truncated:
      return "truncated";
    case SCA_TikaFinding::Locked:
      return "locked";
    case SCA_TikaFinding::Empty:
      return "empty file";
    case SCA_TikaFinding::Damaged:
      return "damaged";
  }
  return "unknown";
}

void SCA_TikaCompleteness::AddText(const char* text, unsigned long length) {
  hasText_ = hasText_ ||
             std::string_view(text, length).find_first_not_of(" \t\r\n\f\v") != std::string::npos;
}

void SCA_TikaCompleteness::AddDocument(const SCA_TikaMetadata& metadata) {
  const bool isEmbedded = hasDocument_;
  if (!isEmbedded) {
    hasDocument_ = true;
    failure_ = SCA_TikaFinding::Complete;
    cause_.clear();
  }
  for (const SCA_TikaException& exception : metadata.GetExceptions()) {
    const bool isFailure = !isEmbedded && IsOfTheWholeDocument(exception);
    if (isFailure && failure_ == SCA_TikaFinding::Complete) {
      failure_ = FindingOf(exception);
      cause_.clear();  // more important than what was noted before
    }
    hasNote_ = true;
    if (!cause_.empty()) continue;
    const std::string path = isEmbedded ? metadata.GetEmbeddedPath() : std::string();
    cause_ = exception.text.empty() ? exception.kind : exception.text;
    if (isEmbedded) cause_ += " in the embedded document '" + path + "'";
  }
}

SCA_TikaFinding SCA_TikaCompleteness::GetFinding() const {
  if (hasText_ && hasNote_) return SCA_TikaFinding::Truncated;
  if (failure_ != SCA_TikaFinding::Complete) return failure_;
  return hasNote_ ? SCA_TikaFinding::Truncated : SCA_TikaFinding::Complete;
}
