#include "supervision/SCA_ClassArchiveName.h"

#include <algorithm>
#include <filesystem>
#include <initializer_list>

#include "platform/SCA_Hex.h"
#include "platform/SCA_Sha256.h"

namespace {

namespace fs = std::filesystem;

// Other contents of the digest, or of the training run, need another number.
constexpr char kForm[] = "class archive 2";
constexpr int kFirstMajor = 13;
constexpr std::size_t kDigestBytes = 16;
// From here on references to objects have another width, and archives with them.
constexpr unsigned long kWideHeapMb = 32768;

bool BeginsWithOne(const std::string& word, std::initializer_list<const char*> beginnings) {
  return std::any_of(beginnings.begin(), beginnings.end(), [&](const char* beginning) {
    return word.compare(0, std::char_traits<char>::length(beginning), beginning) == 0;
  });
}

bool ChoosesArchive(const std::string& word) {
  return BeginsWithOne(word, {"-XX:SharedArchiveFile", "-XX:ArchiveClassesAtExit", "-Xshare:",
                              "-XX:-UseSharedSpaces", "-XX:+AutoCreateSharedArchive", "-XX:AOT"});
}

// Properties, limits of memory and logging leave classes as they are.
bool Matters(const std::string& word) {
  return !BeginsWithOne(word, {"-D", "-Xmx", "-Xms", "-Xmn", "-Xss", "-Xlog", "-verbose"});
}

}  // namespace

bool SCA_CanArchive(const SCA_JavaRuntime& java, const std::vector<std::string>& words) {
  return java.major >= kFirstMajor && std::none_of(words.begin(), words.end(), ChoosesArchive);
}

std::string SCA_ClassArchiveName(const SCA_JavaRuntime& java, const SCA_TikaLaunch& launch,
                                 const std::vector<std::string>& words) {
  std::error_code error;
  const fs::path jar = fs::absolute(launch.fileName, error).lexically_normal();
  const std::uintmax_t size = error ? 0 : fs::file_size(jar, error);
  const auto time = error ? fs::file_time_type() : fs::last_write_time(jar, error);
  if (error) return {};
  SCA_Sha256 sum;
  // With its zero each text ends where it ends.
  const auto add = [&sum](const std::string& text) { sum.Update(text.c_str(), text.size() + 1); };
  add(kForm);
  add(java.program);
  add(java.version);
  add(jar.native());
  add(std::to_string(size));
  add(std::to_string(time.time_since_epoch().count()));
  add(launch.heapSize < kWideHeapMb ? "narrow" : "wide");
  for (const std::string& word : words) {
    if (Matters(word)) add(word);
  }
  char digits[2 * SCA_DigestSize + 1];
  SCA_ToHex(sum.Finish().data(), kDigestBytes, digits);
  return jar.stem().native() + "-" + digits + ".jsa";
}
