/// Rows of saved fields: a record names each of its fields once, and the row writes and reads it.
/// Internal to the library.
///
///     template <class Record, class Row>
///     bool ForEachField(Record& record, const Row& row) {
///       return row("Host", record.host_) && row("Port", record.port_);
///     }
///     ForEachField(record, SCA_FieldWriter{object});
///     ForEachField(record, SCA_FieldReader{*object});
#ifndef SCA_FOUNDATION_SCA_FIELDROWS_H
#define SCA_FOUNDATION_SCA_FIELDROWS_H

#include "foundation/SCA_ConfigObj.h"

/// Adds the value. @return False when it cannot be stored.
struct SCA_FieldWriter {
  template <class T>
  bool operator()(const char* name, const T& value) const {
    return object->AddField(name, value, 0) != 0;
  }
  template <class T>
  bool operator()(const char* name, const SCA_AtomicValue<T>& value) const {
    return (*this)(name, value.Get());
  }

  SCA_ConfigObj* object;
};

/// Reads the value, which stays as it is when there is none of its type. @return True.
struct SCA_FieldReader {
  template <class T>
  bool operator()(const char* name, T& value) const {
    object.GetField(name, &value);
    return true;
  }
  template <unsigned long N>
  bool operator()(const char* name, char (&text)[N]) const {
    object.GetField(name, text, N);
    return true;
  }
  template <class T>
  bool operator()(const char* name, SCA_AtomicValue<T>& value) const {
    T read = value.Get();
    object.GetField(name, &read);
    value.Set(read);
    return true;
  }

  const SCA_ConfigObj& object;
};

#endif  // SCA_FOUNDATION_SCA_FIELDROWS_H
