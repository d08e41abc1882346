/// What to do about an error, for the programs that print errors.
#ifndef SCA_PROGRAMS_COMMON_ADVICE_H
#define SCA_PROGRAMS_COMMON_ADVICE_H

#include <string>

/// What an error came from: the same code asks for different steps.
enum class ErrorOf {
  Document,    ///< a document, its text, or the Tika server that it was sent to
  ServiceHost  ///< the control connection to a service host
};

/// @return What to do about an error code; static storage.
const char* AdviceOn(unsigned long code, ErrorOf subject);

/// @return "TEXT; ADVICE": the text of an error code, then what to do about it.
std::string Explain(unsigned long code, ErrorOf subject = ErrorOf::Document);

#endif  // SCA_PROGRAMS_COMMON_ADVICE_H
