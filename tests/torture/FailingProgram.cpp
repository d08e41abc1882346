// Given to a program by LD_PRELOAD: all that happens between the begin and the end of its main is
// exposed to the failure that the variable SCA_TORTURE_PLAN names, as "CALL ERROR NTH LASTING". The
// numbers of calls go to the file SCA_TORTURE_COUNTS.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "tests/torture/FailingCalls.h"

namespace {

using Main = int (*)(int, char**, char**);

Main realMain = nullptr;

int RunMain(int count, char** words, char** environment) {
  CallPlan plan;
  if (const char* text = std::getenv("SCA_TORTURE_PLAN")) {
    std::sscanf(text, "%d %d %lu %d", &plan.call, &plan.error, &plan.nth, &plan.isLasting);
  }
  const char* name = std::getenv("SCA_TORTURE_COUNTS");
  ::unsetenv("LD_PRELOAD");  // what the program starts is spared
  int status = 0;
  {
    const ExposedToFailure exposed(plan);
    status = realMain(count, words, environment);
  }
  if (std::FILE* file = name != nullptr ? std::fopen(name, "w") : nullptr) {
    for (const unsigned long number : CountedCalls()) std::fprintf(file, "%lu ", number);
    std::fclose(file);
  }
  return status;
}

}  // namespace

// The C library's own, called before main.
extern "C" int __libc_start_main(Main main, int count, char** words, void (*begin)(),  // NOLINT
                                 void (*end)(), void (*endOfLoader)(), void* stack) {
  realMain = main;
  const auto next =
      reinterpret_cast<decltype(&__libc_start_main)>(::dlsym(RTLD_NEXT, "__libc_start_main"));
  return next(&RunMain, count, words, begin, end, endOfLoader, stack);
}
