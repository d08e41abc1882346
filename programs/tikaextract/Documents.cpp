#include "programs/tikaextract/Documents.h"

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

// Where the content of a named directory goes, or the text of a named document without its ".txt".
std::string OutputOfNamed(const Options& options, const std::string& path) {
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

Document MakeDocument(const std::string& path, const std::string& output) {
  std::string extension = fs::path(path).extension().string();
  if (!extension.empty()) extension.erase(0, 1);
  return {path, output + ".txt", extension, {}};
}

}  // namespace

Documents::Documents(const Options& options, const Setup& setup, SCA_Event* cancel)
    : options_(options),
      setup_(setup),
      list_(options.filesFrom, options.zeroSeparated ? '\0' : '\n', cancel) {}

// What is read from a pipe can be read once.
bool Documents::CanCount(const Options& options) {
  std::error_code ignored;
  return options.filesFrom.empty() ||
         (options.filesFrom != "-" && fs::is_regular_file(options.filesFrom, ignored));
}

bool Documents::Next(Document* document) {
  for (;;) {
    if (NextInDirectory(document)) return true;
    std::string path;
    if (named_ < options_.files.size()) {
      path = options_.files[named_++];
      if (Enter(path, OutputOfNamed(options_, path), document)) return true;
      continue;
    }
    if (options_.filesFrom.empty()) return false;
    switch (list_.Next(&path)) {
      case DocumentList::Result::End:
        return false;
      case DocumentList::Result::Failed:
        *document = {options_.filesFrom, "", "", "cannot read the list: " + path};
        return true;
      case DocumentList::Result::Entry:
        if (Enter(path, OutputOfListed(path), document)) return true;
        break;
    }
  }
}

// Begins the walk of a directory. @return True when the path itself is to be extracted, or
// complained about.
bool Documents::Enter(const std::string& path, const std::string& output, Document* document) {
  *document = MakeDocument(path, output);
  if (!options_.recursive || !IsDirectory(path)) return true;
  std::error_code error;
  walk_ = Walk(path, error);
  walkRoot_ = path;
  walkOutput_ = output;
  document->complaint = error ? error.message() : std::string();
  return static_cast<bool>(error);
}

// A directory's documents come in the order of the file system: sorting them would need
// all their names at once.
bool Documents::NextInDirectory(Document* document) {
  while (walk_ != Walk()) {
    const fs::path path = walk_->path();
    std::error_code error;
    const bool isFile = walk_->is_regular_file(error);
    std::error_code unreadable;
    if (!isFile && walk_->is_directory(error)) {
      // A directory that cannot be entered would end the whole walk.
      const fs::directory_iterator attempt(path, unreadable);
      if (unreadable || IsOutputDir(path)) walk_.disable_recursion_pending();
    }
    walk_.increment(error);
    if (!error) error = unreadable;
    if (error) {
      *document = MakeDocument(path.string(), "");
      document->complaint = error.message();
      return true;
    }
    if (!isFile) continue;
    *document = MakeDocument(path.string(),
                             (fs::path(walkOutput_) / path.lexically_relative(walkRoot_)).string());
    if (setup_.IsTaken(document->extension)) return true;
  }
  return false;
}

bool Documents::IsOutputDir(const fs::path& path) const {
  std::error_code ignored;
  return !options_.outputDir.empty() && fs::equivalent(path, options_.outputDir, ignored);
}

std::string OutputPath(const Options& options, const Document& document) {
  return (fs::path(options.outputDir) / document.output).string();
}

std::string FindNameClash(const Options& options) {
  std::map<std::string, std::string> outputs;
  for (const std::string& file : options.files) {
    const bool isMirrored = options.recursive && IsDirectory(file);
    const std::string output = OutputOfNamed(options, file) + (isMirrored ? "" : ".txt");
    const auto [entry, isNew] = outputs.emplace(output, file);
    if (!isNew) {
      return Quoted(entry->second) + " and " + Quoted(file) + " would both be written to " +
             Quoted((fs::path(options.outputDir) / output).string()) +
             ": extract them into different directories";
    }
  }
  return {};
}
