#include "programs/tikaextract/Document.h"

#include <climits>
#include <filesystem>

#include "platform/SCA_Text.h"
#include "programs/tikaextract/Digest.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kDigestDigits = 16;  // enough that no two names get the same by chance
constexpr std::size_t kAsideRoom = 64;     // for the name of the file aside

std::string ShortDigest(const std::string& text) {
  return DigestOfText(text).substr(0, kDigestDigits);
}

// The begin of a name, and a digest of all of it.
std::string Shorten(const std::string& name, std::size_t most, const std::string& ending) {
  const std::string tail = "~" + ShortDigest(name) + ending;
  const auto kept = static_cast<unsigned long>(most - tail.size());
  return name.substr(0, SCA_CutLength(name.c_str(), kept)) + tail;
}

// Each name for itself; a path that is too long as a whole becomes one name.
std::string Fit(const Options& options, const std::string& output) {
  const std::string ending = options.choice.TextEnding();
  fs::path fitting;
  const fs::path whole = output + ending;
  for (auto name = whole.begin(); name != whole.end(); ++name) {
    const bool isLast = std::next(name) == whole.end();
    const std::string text = name->string();
    if (text.size() <= NAME_MAX) {
      fitting /= text;
    } else {
      fitting /= Shorten(text, NAME_MAX, isLast ? ending : "");
    }
  }
  if (options.outputDir.size() + fitting.native().size() + kAsideRoom <= PATH_MAX) {
    return fitting.string();
  }
  const std::string last = fs::path(output).filename().string() + "~" + ShortDigest(output);
  return last.size() + ending.size() < NAME_MAX ? last + ending : Shorten(last, NAME_MAX, ending);
}

}  // namespace

Document MakeDocument(const Options& options, const std::string& path, const std::string& output) {
  std::string extension = fs::path(path).extension().string();
  if (!extension.empty()) extension.erase(0, 1);
  return {
      path, options.outputDir.empty() ? std::string() : Fit(options, output), extension, {}, {}};
}

std::string OutputPath(const Options& options, const Document& document) {
  return (fs::path(options.outputDir) / document.output).string();
}
