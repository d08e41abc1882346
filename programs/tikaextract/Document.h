/// A document of a run.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_DOCUMENT_H
#define SCA_PROGRAMS_TIKAEXTRACT_DOCUMENT_H

#include <memory>
#include <string>

#include "programs/tikaextract/Options.h"
#include "programs/tikaextract/Spool.h"

struct Document {
  std::string path;                    ///< its name, as records and messages have it
  std::string output;                  ///< where its text goes, below the output directory
  std::string extension;               ///< without its dot
  std::string complaint;               ///< not empty: why there is nothing to extract at this path
  std::shared_ptr<const Spool> input;  ///< its content, when it comes from standard input

  /// @return The path at which its bytes are read.
  const std::string& Source() const { return input != nullptr ? input->Path() : path; }
};

/// @param output  Where its text goes without its ending, below the output directory. A name that
///                is too long there is shortened, always to the same.
Document MakeDocument(const Options& options, const std::string& path, const std::string& output);

/// @return Where the text of a document goes under -o.
std::string OutputPath(const Options& options, const Document& document);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_DOCUMENT_H
