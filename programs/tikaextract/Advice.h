/// What to do about an error.
#ifndef SCA_PROGRAMS_TIKAEXTRACT_ADVICE_H
#define SCA_PROGRAMS_TIKAEXTRACT_ADVICE_H

#include <string>

/// @return The text of an error code with what to do about it.
std::string Explain(unsigned long code);

#endif  // SCA_PROGRAMS_TIKAEXTRACT_ADVICE_H
