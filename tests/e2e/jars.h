/// The Tika servers that scripts/setup keeps in the user's cache directory.
#ifndef SCA_TESTS_E2E_JARS_H
#define SCA_TESTS_E2E_JARS_H

#include <cstdlib>
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

#endif  // SCA_TESTS_E2E_JARS_H
