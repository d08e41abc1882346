/// The contents that have cost Tika servers their lives: whatever the name of a document, what has
/// killed two servers would kill others.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_KILLERS_H
#define SCA_PROGRAMS_TIKAEXTRACT_KILLERS_H

#include <map>
#include <string>

class Killers {
 public:
  struct Content {
    std::string digest;  ///< SHA-256, 64 hexadecimal digits
    std::string path;    ///< a document with this content
  };

  void Add(unsigned long long size, const Content& content) { contents_.emplace(size, content); }
  /// Reads the document only when one of its size is known.
  /// @return Null for a document that may be sent.
  const Content* Find(const std::string& path, unsigned long long size) const;

 private:
  std::multimap<unsigned long long, Content> contents_;  // by size in bytes
};

#endif  // SCA_PROGRAMS_TIKAEXTRACT_KILLERS_H
