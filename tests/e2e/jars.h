/// The Tika servers that scripts/setup keeps in the user's cache directory.
#ifndef SCA_TESTS_E2E_JARS_H
#define SCA_TESTS_E2E_JARS_H

#include <cstdlib>
#include <filesystem>
#include <string>

inline std::string CachedJar(const std::string& name) {
  const auto variable = [](const char* key) {
    const char* value = std::getenv(key);
    return std::string(value != nullptr ? value : "");
  };
  const std::string cache = variable("XDG_CACHE_HOME");
  return (cache.empty() ? variable("HOME") + "/.cache" : cache) + "/sca_tika/" + name;
}

/// The one used by default, which TIKA_SERVER_JAR may replace.
inline std::string DefaultJar() {
  const char* named = std::getenv("TIKA_SERVER_JAR");
  return named != nullptr && *named != '\0' ? named : CachedJar("tika-server-standard-3.3.2.jar");
}

/// A server of the fourth line, which no registry has yet: the one that TIKA4_SERVER_JAR names, or
/// of the distribution that lies unpacked in the cache directory; empty when there is none.
inline std::string Tika4Jar() {
  const char* named = std::getenv("TIKA4_SERVER_JAR");
  if (named != nullptr && *named != '\0') return named;
  const std::string cached = CachedJar("tika-server-standard-4.0.0/tika-server-standard-4.0.0.jar");
  return std::filesystem::is_regular_file(cached) ? cached : "";
}

#endif  // SCA_TESTS_E2E_JARS_H
