#include "programs/tikaextract/Printer.h"

#include <cerrno>
#include <cstdio>

#include "programs/tikaextract/MetadataRecord.h"

namespace {

bool Write(std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

}  // namespace

bool Printer::Print(const Job& job, const Result& result) {
  if (options_.jsonl) return PrintRecord(job, result) && PrintEmbedded(job);
  if (options_.choice.ShowsMetadata()) {
    PrintMetadata(job);
    return true;
  }
  if (!options_.outputDir.empty() || !result.IsExtracted()) return true;
  auto* const text = static_cast<BufferedText*>(job.store);
  text->ForEachBlock(Write);
  return text->Complaint().empty();
}

void Printer::PrintMetadata(const Job& job) const {
  const SCA_TikaMetadata* const metadata = job.Metadata();
  if (metadata == nullptr) return;
  const std::string& path = job.document.path;
  const bool isTypeAlone = !options_.choice.HasText();
  Write(isTypeAlone ? DescribeType(path, *metadata)
                    : DescribeMetadata(path, *metadata, job.MetadataFinding(), *job.report));
}

bool Printer::PrintRecord(const Job& job, const Result& result) {
  nlohmann::ordered_json record;
  SetJsonText(&record, "path", job.document.path);
  record["size"] = job.bytes;
  record["outcome"] = result.Word();
  if (result.complaint.empty()) {
    record["error"] = nullptr;
  } else {
    SetJsonText(&record, "error", result.complaint);
  }
  record["milliseconds"] = job.request != nullptr ? job.request->GetDuration() : 0;
  SetJsonText(&record, "server", job.request != nullptr ? job.request->GetServer() : "");
  const bool hasText = result.IsExtracted() && options_.choice.HasText();
  if (options_.choice.IsReport()) SetReport(job, result, &record);
  if (options_.choice.HasText()) record["textLength"] = hasText ? job.TextLength() : 0;
  if (hasText && !options_.outputDir.empty()) {
    SetJsonText(&record, "textPath", OutputPath(options_, job.document));
  }
  if (!hasText || !options_.outputDir.empty()) {
    Write(JsonText(record) + "\n");
    return true;
  }
  return PrintWithText(JsonText(record), job, {0, job.TextLength()});
}

void Printer::SetReport(const Job& job, const Result& result,
                        nlohmann::ordered_json* record) const {
  if (options_.choice.HasText()) {
    (*record)["complete"] = result.IsExtracted() && result.finding == SCA_TikaFinding::Complete;
  }
  if (!options_.choice.ShowsMetadata() || job.Metadata() == nullptr) return;
  SetMetadata(record, *job.Metadata());
  if (options_.choice.HasText()) SetEmbedded(record, *job.report);
}

// A record for each embedded document; its fields were written into the store as they came.
bool Printer::PrintEmbedded(const Job& job) const {
  if (job.report == nullptr || !job.report->IsWhole()) return true;
  auto* const store = static_cast<BufferedText*>(job.store);
  for (const EmbeddedRecord& embedded : job.report->Records()) {
    std::string fields;
    const auto take = [&fields](std::string_view block) {
      fields += block;
      return true;
    };
    if (!store->ForEachBlock({embedded.fields, embedded.end}, take)) return false;
    nlohmann::ordered_json record;
    SetJsonText(&record, "path", job.document.path);
    record["textLength"] = embedded.fields - embedded.text;
    std::string line = JsonText(record);
    line.back() = ',';
    line.append(fields, 1);
    if (!PrintWithText(std::move(line), job, {embedded.text, embedded.fields})) return false;
  }
  return true;
}

// A text of any size: the record is written piece by piece.
bool Printer::PrintWithText(std::string line, const Job& job, const BufferedText::Part& part) {
  line.back() = ',';
  auto* const text = static_cast<BufferedText*>(job.store);
  const auto blocks = [text, &part](const TextTake& take) {
    return text->ForEachBlock(part, take);
  };
  const bool isWhole = Write(line) && WriteJsonText("text", blocks, Write) && Write("}\n");
  if (isWhole || text->Complaint().empty()) return true;
  // What is out remains a string without an end.
  Write("\n");
  return false;
}

unsigned long Printer::Flush() {
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return 0;
  return static_cast<unsigned long>(errno);
}
