/// A variable of the environment, set for a scope. Only while the process has one thread.
#ifndef SCA_TESTS_SUPPORT_ENVIRONMENT_H
#define SCA_TESTS_SUPPORT_ENVIRONMENT_H

#include <cstdlib>
#include <optional>
#include <string>

class ScopedVariable {
 public:
  ScopedVariable(const char* name, const std::string& value) : name_(name) {
    if (const char* former = std::getenv(name)) former_ = former;
    ::setenv(name, value.c_str(), 1);
  }
  ~ScopedVariable() { former_ ? ::setenv(name_, former_->c_str(), 1) : ::unsetenv(name_); }
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  const char* name_;
  std::optional<std::string> former_;
};

#endif  // SCA_TESTS_SUPPORT_ENVIRONMENT_H
