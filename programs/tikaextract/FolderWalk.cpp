#include "programs/tikaextract/FolderWalk.h"

#include "programs/common/Escape.h"

namespace fs = std::filesystem;

FolderWalk::FolderWalk(const Options& options, const Setup& setup, OnFolder onFolder)
    : options_(options), setup_(setup), onFolder_(std::move(onFolder)), filter_(options, setup) {}

std::string FolderWalk::Begin(const std::string& root, const std::string& output,
                              const std::string& start) {
  root_ = root;
  output_ = output;
  taken_ = ofOtherKinds_ = excluded_ = 0;
  walk_ = Walk();
  // A folder that was excluded meanwhile is one without documents.
  if (!start.empty() && !filter_.EnterFrom(root, fs::path(start).parent_path().string())) return {};
  if (!start.empty() && !filter_.IsOpen(start)) return {};
  const fs::path path = start.empty() ? fs::path(root) : fs::path(root) / start;
  // Texts may lie beside their documents, but then the folder is named itself.
  if (!start.empty() && IsOutputDir(path)) return {};
  std::string complaint = EnterFolder(path, start);
  if (!complaint.empty()) return complaint;
  std::error_code error;
  walk_ = Walk(path, error);
  return error ? error.message() : std::string();
}

// The documents come in the order of the file system: sorting them would need all their names at
// once.
bool FolderWalk::Next(Document* document) {
  while (walk_ != Walk()) {
    const fs::path path = walk_->path();
    const std::string inRoot = path.lexically_relative(root_).string();
    *document = MakeDocument(options_, path.string(), (fs::path(output_) / inRoot).string());
    std::error_code error;
    const bool isFile = walk_->is_regular_file(error);
    const bool isFolder = !isFile && !walk_->is_symlink(error) && walk_->is_directory(error);
    if (isFolder) {
      const bool isOpen = options_.recursive && !IsOutputDir(path) && filter_.IsOpen(inRoot);
      if (isOpen) document->complaint = EnterFolder(path, inRoot);
      if (!isOpen || !document->complaint.empty()) walk_.disable_recursion_pending();
      if (!isOpen && options_.recursive) ++excluded_;
    }
    walk_.increment(error);
    if (error) document->complaint = error.message();
    if (!document->complaint.empty()) return true;
    if (!isFile || IsText(path)) continue;
    switch (filter_.Judge(inRoot, document->extension)) {
      case FolderFilter::Verdict::Taken:
        ++taken_;
        return true;
      case FolderFilter::Verdict::OtherKind:
        ++ofOtherKinds_;
        break;
      case FolderFilter::Verdict::Excluded:
        ++excluded_;
        break;
    }
  }
  return false;
}

// A folder that cannot be entered would end the whole walk.
std::string FolderWalk::EnterFolder(const fs::path& path, const std::string& folder) {
  std::error_code unreadable;
  const fs::directory_iterator attempt(path, unreadable);
  if (unreadable) return unreadable.message();
  std::string complaint = filter_.Enter(folder, path.string());
  if (complaint.empty() && onFolder_) complaint = onFolder_(folder);
  return complaint;
}

bool FolderWalk::IsOutputDir(const fs::path& path) const {
  std::error_code ignored;
  return !options_.outputDir.empty() && fs::equivalent(path, options_.outputDir, ignored);
}

// Where texts lie beside their documents, they are none.
bool FolderWalk::IsText(const fs::path& path) const {
  if (path.extension() != options_.choice.TextEnding() || !IsOutputDir(root_)) return false;
  std::error_code ignored;
  return fs::is_regular_file(fs::path(path).replace_extension(), ignored);
}

std::string FolderWalk::Note() const {
  if (taken_ != 0 || ofOtherKinds_ + excluded_ == 0) return {};
  std::string text = "nothing was taken from " + Quoted(root_) + ":";
  if (ofOtherKinds_ != 0) {
    text += " " + std::to_string(ofOtherKinds_) + " files have other extensions than " +
            Printable(setup_.Settings().GetFileExtensions()) +
            " (--ext LIST takes others, --ext '*' takes all)";
  }
  if (excluded_ != 0) {
    text += std::string(ofOtherKinds_ != 0 ? ";" : "") + " " + std::to_string(excluded_) +
            " files and folders are left out by --include, --exclude or " +
            FolderFilter::kIgnoreFile;
  }
  return text;
}
