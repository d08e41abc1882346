/// The table that finds a command's handler by its name.
#ifndef SCA_CONTROL_SCA_NAMEHASHTABLE_H
#define SCA_CONTROL_SCA_NAMEHASHTABLE_H

#include <array>
#include <cstdint>
#include <memory>
#include <new>

#include "foundation/SCA_List.h"

/// Names in 256 buckets, by the sum of their bytes. Names are compared byte by byte; of two equal
/// ones the first is found.
/// Threads: filled by one thread, then read by any.
template <class Handler>
class SCA_NameHashTable : public SCA_Object {
 public:
  SCA_NameHashTable() { SetValid(1); }
  SCA_NameHashTable(const SCA_NameHashTable&) = delete;
  SCA_NameHashTable& operator=(const SCA_NameHashTable&) = delete;

  /// @return The bucket of a name: the sum of its bytes modulo 256.
  static unsigned Hash(const char* name) {
    unsigned sum = 0;
    for (; *name != '\0'; ++name) sum += static_cast<unsigned char>(*name);
    return sum % kBuckets;
  }

  /// Adds a name, which is copied. @return 0 when memory is exhausted.
  int Add(const char* name, Handler handler) {
    std::unique_ptr<Bucket>& bucket = buckets_[Hash(name)];
    if (bucket == nullptr) {
      bucket.reset(new (std::nothrow) Bucket(0));
      if (bucket == nullptr) return 0;
      ++bucketsInUse_;
    }
    return bucket->AddItemToTail(handler, name);
  }

  /// @param handler  Untouched when there is no such name. @return 1 or 0.
  int Find(const char* name, Handler* handler) const {
    const std::unique_ptr<Bucket>& bucket = buckets_[Hash(name)];
    return bucket != nullptr ? bucket->GetItem(name, handler) : 0;
  }

  unsigned long GetBucketsInUse() const { return bucketsInUse_; }

 private:
  static constexpr unsigned kBuckets = 256;
  using Bucket = SCA_List<Handler>;

  std::array<std::unique_ptr<Bucket>, kBuckets> buckets_;
  std::uint32_t bucketsInUse_ = 0;
};

#endif  // SCA_CONTROL_SCA_NAMEHASHTABLE_H
