/// What the service host itself uses of the machine.
#ifndef SCA_PROGRAMS_TIKASVC_SELFFIGURES_H
#define SCA_PROGRAMS_TIKASVC_SELFFIGURES_H

struct SelfFigures {
  unsigned long long memory = 0;  ///< bytes held in memory
  unsigned long threads = 0;
  unsigned long descriptors = 0;
};

/// @return What could be found out; the rest is 0.
SelfFigures GetSelfFigures();

#endif  // SCA_PROGRAMS_TIKASVC_SELFFIGURES_H
