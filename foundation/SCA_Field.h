/// A named text value: the plain member of a configuration object, and the base of objects.
#ifndef SCA_FOUNDATION_SCA_FIELD_H
#define SCA_FOUNDATION_SCA_FIELD_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/SCA_Object.h"

class SCA_ConfigObj;

/// Kinds of members.
constexpr unsigned long SCA_FieldTypePlain = 1;
constexpr unsigned long SCA_FieldTypeObject = 2;

/// The longest name and value in bytes, without their terminating zeros.
constexpr unsigned long SCA_MaxFieldName = 10240;
constexpr unsigned long SCA_MaxFieldValue = 20480;

/// The byte that separates the parts of a record; names and values never hold it, nor a zero byte.
constexpr char SCA_FieldSeparator = '\x01';

/// One named field. Its name and value are private copies. What cannot be stored (a null or
/// over-long name, an over-long value, the bytes 0x00 and 0x01) is refused where it is given, so
/// that every field can be saved and every saved one loaded.
///
/// int results are 1 for success and 0 for failure. Sizes and positions are bytes.
/// Threads: one at a time per tree.
class SCA_API SCA_Field : public SCA_Object {
 public:
  /// @param name    Copied. One that cannot be stored is reported at level 2 and leaves the field
  ///                invalid and nameless; no list takes it then.
  /// @param parent  The object whose member it is to be, or null. Does not link the field.
  SCA_Field(const char* name, SCA_ConfigObj* parent);
  ~SCA_Field() override;
  SCA_Field(const SCA_Field&) = delete;
  SCA_Field& operator=(const SCA_Field&) = delete;

  unsigned long GetType() const { return type_; }
  /// @return The name, or null when there is none. Valid until it changes.
  const char* GetName() const { return hasName_ ? name_.c_str() : nullptr; }
  /// @return The value, or null when there is none. Valid until it changes.
  const char* GetValue() const { return hasValue_ ? value_.c_str() : nullptr; }
  /// @return Bytes with the terminating zero; 0 without a name or a value.
  unsigned long GetNameLength() const { return hasName_ ? name_.size() + 1 : 0; }
  unsigned long GetValueLength() const { return hasValue_ ? value_.size() + 1 : 0; }
  /// Neighbours in the list that holds this member; null at its ends.
  SCA_Field* GetNext() const { return next_; }
  SCA_Field* GetPrev() const { return prev_; }
  /// @return The object whose member it is; null for a root.
  SCA_ConfigObj* GetParent() const { return parent_; }

  /// Stores a copy of `length` bytes; null data leaves the field without a value.
  /// @return 0, with a report at level 2 and the old value kept, for a value that cannot be stored;
  ///         always for an object, which has members instead.
  int SetValue(const char* data, unsigned long length);

  /// Appends the member's path, "root/object/member", to the text in the buffer, which the caller
  /// has made large enough.
  void GetPathName(char* buffer) const;

  /// @return An upper bound of the bytes that `WriteData` writes.
  virtual unsigned long GetDataSize() const;

  /// @name Members: a plain field has none
  /// @{
  virtual unsigned long GetFieldCount() const;
  /// @param out  Receives null on failure.
  virtual int GetFieldByIndex(unsigned long index, SCA_Field** out) const;
  virtual int GetFieldByName(const char* name, SCA_Field** out) const;
  /// @return This member and all below it.
  virtual unsigned long GetTotalFieldCount() const;
  /// @}

  /// Takes over name and value of a plain field.
  /// @return 0 when the source is not of this kind or a copy cannot be allocated; this is
  /// unchanged.
  virtual int CopyFrom(const SCA_Field* source);

  /// Writes the record and moves the position past it.
  /// @param buffer    Holds at least `GetDataSize()` bytes from the position on.
  /// @param size      Not consulted by a plain field.
  /// @param position  In and out.
  virtual int WriteData(char* buffer, unsigned long size, unsigned long* position) const;
  /// Reads a record that this library has written, kind byte and all its separators, and that is
  /// followed by a byte other than 0x01;
  /// bytes from outside go through `SCA_ReadConfigBytes`, which knows where they end.
  /// @param position  In and out; left after the record and every 0x01 that follows it. Unchanged
  ///                  by a failure, which leaves the field partly replaced: discard it.
  /// @param parent    Becomes the parent.
  virtual int ReadData(const char* buffer, unsigned long* position, SCA_ConfigObj* parent);

  /// @return 1 when kind, name and value are equal, lengths included; else 0, with a report of the
  ///         first difference at level 2.
  virtual int Compare(const SCA_Field* other) const;

  /// @return A copy without parent, owned by the caller, to be ended with `Destroy()`; null without
  ///         memory.
  virtual SCA_Field* Clone() const;

 protected:
  /// For objects.
  SCA_Field(unsigned long type, const char* name, SCA_ConfigObj* parent);
  /// Replaces the name, which may be given as a part of the old one.
  /// @return 0 for a name that cannot be stored, with the old one kept.
  int SetName(const char* name);

 private:
  friend class SCA_ConfigObj;     // renames, and sets parents
  friend class SCA_ConfigReader;  // makes fields of bytes that it has checked itself
  friend class SCA_FieldList;     // links members

  // Nameless, for the reader of bytes.
  explicit SCA_Field(SCA_ConfigObj* parent) : parent_(parent), type_(SCA_FieldTypePlain) {
    SetValid(1);
  }
  static int Assign(std::string* text, bool* isPresent, const char* data, std::size_t length);

  SCA_Field* next_ = nullptr;
  SCA_Field* prev_ = nullptr;
  SCA_ConfigObj* parent_;
  std::uint32_t type_;
  bool hasName_ = false;
  bool hasValue_ = false;
  std::string name_;
  std::string value_;
};

/// @return The member as an object, or null when it is null or a plain field. Ask this before using
///         an object from a file or a peer: a plain field may be in its place.
SCA_API SCA_ConfigObj* SCA_ToConfigObj(SCA_Field* member);
SCA_API const SCA_ConfigObj* SCA_ToConfigObj(const SCA_Field* member);

#endif  // SCA_FOUNDATION_SCA_FIELD_H
