/// The version of a Tika server, and what servers of its line make of the options of a request.
/// Threads: a value.
#ifndef SCA_CLIENT_SCA_TIKAVERSION_H
#define SCA_CLIENT_SCA_TIKAVERSION_H

#include "client/SCA_TikaRequestOptions.h"
#include "platform/SCA_Object.h"

/// What a server makes of an option.
enum class SCA_TikaSupport {
  Followed,
  Ignored,  ///< the request is served as if the option were not there
  Refused   ///< the request cannot be served: its result would be another
};

class SCA_API SCA_TikaVersion {
 public:
  /// A version that is not known.
  SCA_TikaVersion() = default;
  /// @param text  What a server answers to `GET /version`, such as "Apache Tika 3.3.2"; what
  /// follows
  ///              the numbers ("-SNAPSHOT") is passed over. May be null.
  /// @return The version; one that is not known when the text is no version of Tika.
  static SCA_TikaVersion Parse(const char* text);

  bool IsKnown() const { return line_ != 0; }
  /// @return 1 to 4, the numbers of the lines of Tika that are known; a later line counts as the
  ///         last of them. 0 for a version that is not known.
  unsigned long GetLine() const { return line_; }
  unsigned long GetMajor() const { return major_; }
  unsigned long GetMinor() const { return minor_; }
  unsigned long GetPatch() const { return patch_; }

  /// @return What servers of this version make of an option, as measured on 1.28.5, 3.3.2
  /// and 4.0.0.
  ///         For a version that is not known, every option is refused.
  SCA_TikaSupport GetSupport(SCA_TikaOption option) const;
  /// @return The options of a set that have this support.
  unsigned long Choose(unsigned long options, SCA_TikaSupport support) const;

 private:
  unsigned long line_ = 0;
  unsigned long major_ = 0;
  unsigned long minor_ = 0;
  unsigned long patch_ = 0;
};

#endif  // SCA_CLIENT_SCA_TIKAVERSION_H
