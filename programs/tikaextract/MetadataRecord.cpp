#include "programs/tikaextract/MetadataRecord.h"

#include "programs/common/Escape.h"
#include "programs/tikaextract/DocumentReport.h"

namespace {

using Json = nlohmann::ordered_json;

struct Field {
  const char* key;
  const char* label;  // for people
  std::string (SCA_TikaMetadata::*get)() const;
};

constexpr Field kFields[] = {
    {"contentType", "type", &SCA_TikaMetadata::GetContentType},
    {"language", "language", &SCA_TikaMetadata::GetLanguage},
    {"title", "title", &SCA_TikaMetadata::GetTitle},
    {"created", "created", &SCA_TikaMetadata::GetCreated},
    {"modified", "modified", &SCA_TikaMetadata::GetModified},
    {"parser", "parser", &SCA_TikaMetadata::GetParser},
};

// A name with several values has a list of them. Sorted, since names are looked up: there may be
// tens of thousands.
Json AllFields(const SCA_TikaMetadata& metadata) {
  nlohmann::json all = nlohmann::json::object();
  for (const auto& [name, value] : metadata.fields) {
    nlohmann::json& member = all[name];
    if (member.is_null()) {
      member = value;
    } else if (member.is_array()) {
      member.push_back(value);
    } else {
      member = nlohmann::json::array({member, value});
    }
  }
  return all;
}

void AddLine(std::string* lines, const std::string& label, const std::string& value) {
  if (!value.empty()) *lines += "  " + label + ": " + Printable(value) + "\n";
}

}  // namespace

void SetMetadata(Json* record, const SCA_TikaMetadata& metadata) {
  for (const Field& field : kFields) {
    const std::string value = (metadata.*field.get)();
    (*record)[field.key] = value.empty() ? Json(nullptr) : Json(value);
  }
  (*record)["authors"] = metadata.GetAuthors();
  const unsigned long pages = metadata.GetPages();
  (*record)["pages"] = pages == 0 ? Json(nullptr) : Json(pages);
  Json exceptions = Json::array();
  for (const SCA_TikaException& exception : metadata.GetExceptions()) {
    exceptions.push_back({{"kind", exception.kind}, {"text", exception.text}});
  }
  (*record)["exceptions"] = std::move(exceptions);
  (*record)["metadata"] = AllFields(metadata);
}

void SetCompleteness(Json* record, SCA_TikaFinding finding, const std::string& cause) {
  const bool isComplete = finding == SCA_TikaFinding::Complete;
  (*record)["outcome"] = isComplete ? "extracted" : SCA_TikaFindingText(finding);
  (*record)["error"] = isComplete ? Json(nullptr) : Json(cause);
  (*record)["complete"] = isComplete;
}

void SetEmbedded(Json* record, const DocumentReport& report) {
  Json embedded = Json::array();
  for (const EmbeddedNote& note : report.Embedded()) {
    embedded.push_back(
        {{"path", note.path},
         {"contentType", note.contentType},
         {"exception", note.exception.empty() ? Json(nullptr) : Json(note.exception)}});
  }
  (*record)["embeddedCount"] = report.EmbeddedCount();
  (*record)["embedded"] = std::move(embedded);
}

std::string DescribeMetadata(const std::string& path, const SCA_TikaMetadata& metadata,
                             SCA_TikaFinding finding, const DocumentReport& report) {
  std::string lines = Printable(path) + "\n";
  for (const Field& field : kFields) AddLine(&lines, field.label, (metadata.*field.get)());
  for (const std::string& author : metadata.GetAuthors()) AddLine(&lines, "author", author);
  if (metadata.GetPages() != 0) AddLine(&lines, "pages", std::to_string(metadata.GetPages()));
  for (const EmbeddedNote& note : report.Embedded()) {
    const std::string type = note.contentType.empty() ? "" : " (" + note.contentType + ")";
    const std::string exception = note.exception.empty() ? "" : ": " + note.exception;
    AddLine(&lines, "embedded", note.path + type + exception);
  }
  if (report.EmbeddedCount() > report.Embedded().size()) {
    const unsigned long long more = report.EmbeddedCount() - report.Embedded().size();
    AddLine(&lines, "embedded", std::to_string(more) + " more");
  }
  for (const SCA_TikaException& exception : metadata.GetExceptions()) {
    AddLine(&lines, "exception", exception.kind + ": " + exception.text);
  }
  AddLine(&lines, "text", SCA_TikaFindingText(finding));
  return lines + "\n";
}

std::string DescribeType(const std::string& path, const SCA_TikaMetadata& metadata) {
  const std::string type = metadata.GetContentType();
  const std::string language = metadata.GetLanguage();
  return Printable(path) + ": " + (type.empty() ? "unknown type" : Printable(type)) +
         (language.empty() ? std::string() : "; " + Printable(language)) + "\n";
}
