/// The Java that a server would be started with. Internal to the library.
/// Threads: free functions; the environment must not change meanwhile.
#ifndef SCA_SUPERVISION_SCA_JAVARUNTIME_H
#define SCA_SUPERVISION_SCA_JAVARUNTIME_H

#include <string>
#include <vector>

struct SCA_JavaRuntime {
  std::string program;  ///< full path, links resolved
  std::string version;  ///< all that it says of its version and build
  int major = 0;        ///< 17 of "17.0.15", 8 of "1.8.0_402"; 0 when it is not known
};

/// Finds the `java` of the search path and its version. That is in the file `release` beside it,
/// which is read in no time; a script in its place is run with `-version`.
/// @return False when there is none, or its version cannot be told.
/// @throws std::bad_alloc
bool SCA_FindJava(SCA_JavaRuntime* java);

/// The major version in a text that has one between double quotes: `JAVA_VERSION="17.0.15"` in a
/// `release` file, `openjdk version "1.8.0_402"` of `java -version`. @return 0 without one.
int SCA_JavaMajor(const std::string& text);

/// Splits options as a JVM splits JAVA_TOOL_OPTIONS: at white space, with either kind of quotes to
/// group.
std::vector<std::string> SCA_JavaWords(const std::string& options);

/// The options that reach every JVM from the environment, and then the server's own.
std::vector<std::string> SCA_JavaWordsInForce(const std::string& options);

#endif  // SCA_SUPERVISION_SCA_JAVARUNTIME_H
