/// The common base of every class of the library, and the owner type for objects that end by
/// `Destroy()`.
#ifndef SCA_PLATFORM_SCA_OBJECT_H
#define SCA_PLATFORM_SCA_OBJECT_H

#include <memory>

#include "platform/SCA_Atomic.h"

/// Marks what the shared library exports; everything else in it is hidden.
#define SCA_API __attribute__((visibility("default")))

/// Base of every class: a virtual table and a validity flag.
/// Threads: the flag may be read from any thread.
class SCA_API SCA_Object {
 public:
  virtual ~SCA_Object();

  /// Deletes the object, inside the library that allocated it. Only for objects made with `new`.
  virtual void Destroy();

  /// @return 1 once construction has succeeded and while the object can be trusted, else 0.
  int IsValid() const { return valid_.Get(); }

 protected:
  SCA_Object() = default;
  SCA_Object(const SCA_Object&) = default;
  SCA_Object& operator=(const SCA_Object&) = default;

  void SetValid(int valid) { valid_.Set(valid); }

 private:
  SCA_AtomicValue<int> valid_{0};
};

/// Ends an object by its own `Destroy()`; accepts null.
struct SCA_Destroyer {
  template <class T>
  void operator()(T* object) const noexcept {
    if (object != nullptr) object->Destroy();
  }
};

/// Sole owner of an object that ends by `Destroy()`.
template <class T>
using SCA_Owned = std::unique_ptr<T, SCA_Destroyer>;

#endif  // SCA_PLATFORM_SCA_OBJECT_H
