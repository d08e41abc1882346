/// What Tika tells of a document, as programs and as people read it.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_METADATARECORD_H
#define SCA_PROGRAMS_TIKAEXTRACT_METADATARECORD_H

#include <string>

#include "client/SCA_TikaMetadata.h"
#include "programs/common/Json.h"

class DocumentReport;

/// Sets what is known of every document: type, language, title and so on, null where Tika tells
/// nothing, the exceptions, and all of Tika's own names under "metadata".
void SetMetadata(nlohmann::ordered_json* record, const SCA_TikaMetadata& metadata);

/// Sets the outcome of an embedded document, which has no request of its own.
void SetCompleteness(nlohmann::ordered_json* record, SCA_TikaFinding finding,
                     const std::string& cause);

/// Sets the names of the embedded documents, and how many there are.
void SetEmbedded(nlohmann::ordered_json* record, const DocumentReport& report);

/// @return Lines for people, the last one empty; none of them moves a terminal's cursor.
std::string DescribeMetadata(const std::string& path, const SCA_TikaMetadata& metadata,
                             SCA_TikaFinding finding, const DocumentReport& report);
/// @return One line: the path, the type, and the language where it is known.
std::string DescribeType(const std::string& path, const SCA_TikaMetadata& metadata);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_METADATARECORD_H
