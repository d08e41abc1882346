#include "programs/tikaextract/Printer.h"

#include <cerrno>
#include <cstdio>

#include "programs/common/Json.h"

namespace {

bool Write(std::string_view text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
}

}  // namespace

bool Printer::Print(const Job& job, const Result& result) {
  if (options_.jsonl) return PrintRecord(job, result);
  if (!options_.outputDir.empty() || !result.IsExtracted()) return true;
  auto* const text = static_cast<BufferedText*>(job.store);
  text->ForEachBlock(Write);
  return text->Complaint().empty();
}

bool Printer::PrintRecord(const Job& job, const Result& result) {
  nlohmann::ordered_json record;
  SetJsonText(&record, "path", job.document.path);
  record["size"] = job.bytes;
  record["outcome"] = SCA_TikaOutcomeText(result.outcome);
  if (result.IsExtracted()) {
    record["error"] = nullptr;
  } else {
    SetJsonText(&record, "error", result.complaint);
  }
  record["milliseconds"] = job.request != nullptr ? job.request->GetDuration() : 0;
  SetJsonText(&record, "server", job.request != nullptr ? job.request->GetServer() : "");
  record["textLength"] = result.IsExtracted() ? job.request->GetTextLength() : 0;
  if (result.IsExtracted() && !options_.outputDir.empty()) {
    SetJsonText(&record, "textPath", OutputPath(options_, job.document));
  }
  std::string line = JsonText(record);
  if (!result.IsExtracted() || !options_.outputDir.empty()) {
    Write(line + "\n");
    return true;
  }
  // A text of any size: the record is written piece by piece.
  line.back() = ',';
  auto* const text = static_cast<BufferedText*>(job.store);
  const auto blocks = [text](const TextTake& take) { return text->ForEachBlock(take); };
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
