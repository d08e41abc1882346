/// What a Tika server's jar needs around it, told before it is started.
/// Threads: any; a free function that only looks at the file system.
#ifndef SCA_HOST_SCA_TIKAJAR_H
#define SCA_HOST_SCA_TIKAJAR_H

#include <string>

/// Where a jar runs.
struct SCA_TikaJar {
  /// The path for the command line: as it was given; absolute and without links where the server
  /// runs in another directory than its host.
  std::string path;
  /// The working directory; empty for the host's. From version 4 on a server looks for its plugins
  /// in its working directory: elsewhere it comes up, and fails on every document.
  std::string directory;
  /// From version 4 on a jar is only the beginning of a distribution: its classes are in `lib`, the
  /// parts that read documents in `plugins`.
  bool isComplete = true;
};

/// Tells a jar's version by its file name, as Maven and the distributions write it
/// (`tika-server-standard-4.0.0.jar`). One without a version in its name is taken for version 4
/// when it has the folder `plugins` beside it.
/// @param fileName  Not null; the jar need not exist.
/// @throws std::bad_alloc
SCA_TikaJar SCA_LookAtTikaJar(const char* fileName);

#endif  // SCA_HOST_SCA_TIKAJAR_H
