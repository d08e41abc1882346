/// A named text value: the plain member of a configuration object, and the base of objects.
#ifndef SCA_FOUNDATION_SCA_FIELD_H
#define SCA_FOUNDATION_SCA_FIELD_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <string_view>

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
  /// Deleting does not count on the object's size: its texts may follow it in the same memory.
  static void* operator new(std::size_t size);
  static void* operator new(std::size_t size, const std::nothrow_t& tag) noexcept;
  static void operator delete(void* memory) noexcept;
  static void operator delete(void* memory, const std::nothrow_t& tag) noexcept;
  SCA_Field(const SCA_Field&) = delete;
  SCA_Field& operator=(const SCA_Field&) = delete;

  unsigned long GetType() const { return type_; }
  /// @return The name, or null when there is none. Valid until it changes.
  const char* GetName() const { return name_.Get(); }
  /// @return The value, or null when there is none. Valid until it changes.
  const char* GetValue() const { return value_.Get(); }
  /// @return Bytes with the terminating zero; 0 without a name or a value.
  unsigned long GetNameLength() const { return name_.Size(); }
  unsigned long GetValueLength() const { return value_.Size(); }
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
  friend class SCA_ConfigObj;  // renames, and sets parents
  friend class SCA_FieldList;  // links members
  friend class SCA_NewField;   // makes fields that have room for their texts

  // A text with its terminating zero, or none. It lies in memory of its own, or in what the maker
  // of the field has put after it.
  class Text {
   public:
    const char* Get() const { return data_; }
    std::string_view View() const { return {data_, length_}; }
    unsigned long Size() const { return data_ != nullptr ? length_ + 1UL : 0; }

    // The data may be a part of the old text. @return 0 without memory, with the old text kept.
    int Assign(std::string_view text);
    // Takes a text that is about to be written there, except for its zero.
    // @param room  For one byte more than the length; outlives the text.
    void Borrow(char* room, std::size_t length) {
      data_ = room;
      data_[length] = '\0';
      length_ = static_cast<std::uint32_t>(length);
      room_ = length_ + 1;
    }
    char* Data() { return data_; }

   private:
    char* data_ = nullptr;
    std::uint32_t length_ = 0;
    std::uint32_t room_ = 0;  // bytes that may be written there
    std::unique_ptr<char[]> own_;
  };

  // Nameless, for makers of fields.
  SCA_Field(unsigned long type, SCA_ConfigObj* parent)
      : type_(static_cast<std::uint32_t>(type)), parent_(parent) {}

  std::uint32_t type_;
  SCA_Field* next_ = nullptr;
  SCA_Field* prev_ = nullptr;
  SCA_ConfigObj* parent_;
  Text name_;
  Text value_;
};

/// @return The member as an object, or null when it is null or a plain field. Ask this before using
///         an object from a file or a peer: a plain field may be in its place.
SCA_API SCA_ConfigObj* SCA_ToConfigObj(SCA_Field* member);
SCA_API const SCA_ConfigObj* SCA_ToConfigObj(const SCA_Field* member);

#endif  // SCA_FOUNDATION_SCA_FIELD_H
