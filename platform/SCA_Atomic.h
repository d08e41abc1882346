/// A value that one thread writes and others read, and that is copied like a plain field.
#ifndef SCA_PLATFORM_SCA_ATOMIC_H
#define SCA_PLATFORM_SCA_ATOMIC_H

#include <atomic>

/// Relaxed on purpose: such a value (a flag, a figure, a setting) is read for itself and orders
/// nothing around it. Copying copies the value, so that the records that hold one stay copyable.
/// Threads: any thread may call any operation.
template <class T>
class SCA_AtomicValue {
 public:
  constexpr SCA_AtomicValue(T value = T()) : value_(value) {}
  SCA_AtomicValue(const SCA_AtomicValue& other) : value_(other.Get()) {}
  SCA_AtomicValue& operator=(const SCA_AtomicValue& other) {
    Set(other.Get());
    return *this;
  }

  T Get() const { return value_.load(std::memory_order_relaxed); }
  void Set(T value) { value_.store(value, std::memory_order_relaxed); }
  void Add(T value) { value_.fetch_add(value, std::memory_order_relaxed); }
  void Subtract(T value) { value_.fetch_sub(value, std::memory_order_relaxed); }

 private:
  std::atomic<T> value_;
};

#endif  // SCA_PLATFORM_SCA_ATOMIC_H
