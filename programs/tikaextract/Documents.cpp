#include "programs/tikaextract/Documents.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "programs/common/Escape.h"

namespace fs = std::filesystem;

namespace {

// The path from the root on. In a working directory that was deleted a path that needs one stays as
// it is: nothing can be opened by it.
fs::path FullPath(const std::string& path) {
  std::error_code error;
  const fs::path full = fs::absolute(path, error);
  return (error ? fs::path(path) : full).lexically_normal();
}

// The last name of a path, also of "docs/" and of ".".
std::string LastName(const std::string& path) {
  const fs::path full = FullPath(path);
  return (full.has_filename() ? full : full.parent_path()).filename().string();
}

bool IsDirectory(const std::string& path) {
  std::error_code ignored;
  return fs::is_directory(path, ignored);
}

// Where the content of a named directory goes, or the text of a named document without its ending.
std::string OutputOfNamed(const Options& options, const std::string& path) {
  if (path == kStandardInput) {
    return options.inputName.empty() ? "stdin" : LastName(options.inputName);
  }
  const bool isMirrored = options.recursive && IsDirectory(path);
  const bool isOnlyOne = options.files.size() == 1 && options.filesFrom.empty();
  return isMirrored && isOnlyOne ? std::string() : LastName(path);
}

// A listed document goes where its path says; one that leads up, where its full path says.
std::string OutputOfListed(const std::string& path) {
  fs::path normal = fs::path(path).lexically_normal();
  if (!normal.empty() && *normal.begin() == "..") normal = FullPath(path);
  return normal.relative_path().string();
}

}  // namespace

Documents::Documents(const Options& options, const Setup& setup, SCA_Event* cancel, Tell tell)
    : options_(options),
      cancel_(cancel),
      tell_(std::move(tell)),
      list_(options.filesFrom, options.zeroSeparated ? '\0' : '\n', cancel),
      walk_(options, setup) {}

// What is read from a pipe can be read once.
bool Documents::CanCount(const Options& options) {
  std::error_code ignored;
  const auto& files = options.files;
  if (std::find(files.begin(), files.end(), kStandardInput) != files.end()) return false;
  return options.filesFrom.empty() ||
         (options.filesFrom != "-" && fs::is_regular_file(options.filesFrom, ignored));
}

bool Documents::Next(Document* document) {
  for (;;) {
    if (NextInDirectory(document)) return true;
    std::string path;
    if (named_ < options_.files.size()) {
      path = options_.files[named_++];
      const std::string output = OutputOfNamed(options_, path);
      if (path == kStandardInput) {
        TakeInput(output, document);
        return true;
      }
      if (Enter(path, output, document)) return true;
      continue;
    }
    if (options_.filesFrom.empty()) return false;
    switch (list_.Next(&path)) {
      case DocumentList::Result::End:
        return false;
      case DocumentList::Result::Failed:
        *document = {options_.filesFrom, "", "", "cannot read the list: " + path, {}};
        return true;
      case DocumentList::Result::Entry:
        if (Enter(path, OutputOfListed(path), document)) return true;
        break;
    }
  }
}

void Documents::TakeInput(const std::string& output, Document* document) {
  *document = MakeDocument(
      options_, options_.inputName.empty() ? std::string(kStandardInput) : options_.inputName,
      output);
  const auto input = std::make_shared<Spool>();
  document->complaint = input->Fill(cancel_);
  document->input = input;
}

// Begins the walk of a directory. @return True when the path itself is to be extracted, or
// complained about.
bool Documents::Enter(const std::string& path, const std::string& output, Document* document) {
  *document = MakeDocument(options_, path, output);
  if (!options_.recursive || !IsDirectory(path)) return true;
  document->complaint = walk_.Begin(path, output);
  isWalking_ = document->complaint.empty();
  return !isWalking_;
}

bool Documents::NextInDirectory(Document* document) {
  if (!isWalking_) return false;
  if (walk_.Next(document)) return true;
  isWalking_ = false;
  const std::string note = walk_.Note();
  if (tell_ && !note.empty()) tell_(note);
  return false;
}

std::string FindNameClash(const Options& options) {
  std::map<std::string, std::string> outputs;
  for (const std::string& file : options.files) {
    const bool isMirrored = options.recursive && IsDirectory(file);
    const std::string output =
        OutputOfNamed(options, file) + (isMirrored ? "" : options.choice.TextEnding());
    const auto [entry, isNew] = outputs.emplace(output, file);
    if (!isNew) {
      return Quoted(entry->second) + " and " + Quoted(file) + " would both be written to " +
             Quoted((fs::path(options.outputDir) / output).string()) +
             ": extract them into different directories";
    }
  }
  return {};
}
