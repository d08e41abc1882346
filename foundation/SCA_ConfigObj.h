/// The configuration object: a named, ordered tree of fields and objects. It carries every
/// configuration file, every saved record and every control message.
#ifndef SCA_FOUNDATION_SCA_CONFIGOBJ_H
#define SCA_FOUNDATION_SCA_CONFIGOBJ_H

#include "foundation/SCA_Field.h"
#include "foundation/SCA_FieldList.h"

/// A named object that owns an ordered list of members: plain fields and further objects. Names are
/// compared byte by byte and need not be unique; lookups give the first match from the head and
/// take linear time. To visit all members, walk `GetFields()`.
///
/// Numbers are stored as decimal text. They are read back only when the whole text is a number of
/// the type: no blanks, no plus sign, nothing after it. `unsigned long` and `unsigned int` hold 32
/// bits here, `unsigned long long` 64.
///
/// int results are 1 for success and 0 for failure; a failed operation changes nothing, except an
/// out-parameter that is documented to become null. What is refused is reported at level 2.
///
/// Trees of any depth can be built and cleared. Operations on a whole tree recurse; they are meant
/// for trees that can be saved, which are at most `SCA_MaxConfigDepth` deep. Threads: one at a time
/// per tree.
class SCA_API SCA_ConfigObj : public SCA_Field {
 public:
  /// An empty object.
  /// @param name    As for a field.
  /// @param parent  The object whose member it is to be, or null. Does not link the object.
  SCA_ConfigObj(const char* name, SCA_ConfigObj* parent);
  /// An empty object with an empty name.
  explicit SCA_ConfigObj(SCA_ConfigObj* parent = nullptr);
  /// A deep copy without parent; not valid when there was no memory for it.
  SCA_ConfigObj(const SCA_ConfigObj& source);
  SCA_ConfigObj& operator=(const SCA_ConfigObj&) = delete;
  ~SCA_ConfigObj() override;

  /// The members, in order. Linking through the list does not set the parent.
  SCA_FieldList& GetFields() { return fields_; }
  const SCA_FieldList& GetFields() const { return fields_; }

  /// @name New members, at the tail
  /// With a check that is not 0, an existing member of that name makes them fail.
  /// @{
  /// @return The new object, which this one owns; null on failure.
  SCA_ConfigObj* AddConfigObj(const char* name);
  /// @param value  Zero-terminated; null adds a field without a value.
  int AddField(const char* name, const char* value, int checkDuplicate);
  int AddField(const char* name, unsigned short value, int checkDuplicate);
  int AddField(const char* name, int value, int checkDuplicate);
  int AddField(const char* name, unsigned int value, int checkDuplicate);
  /// Refuses a value above 32 bits.
  int AddField(const char* name, unsigned long value, int checkDuplicate);
  int AddField(const char* name, unsigned long long value, int checkDuplicate);
  /// An empty plain field.
  /// @param out     Receives the field, which this object owns.
  /// @param atTail  0 links it at the head.
  /// @param check   Also refuses a null or empty name.
  int AddField(const char* name, SCA_Field** out, int atTail, int check);
  /// @}

  /// @name Linking existing members at the tail; this object owns them then
  /// On failure the caller keeps the member. A member without a name is refused. It must be in no
  /// list yet, and neither this object nor one above it.
  /// @{
  /// Renames the member, after the check.
  int AddField(const char* name, SCA_Field* member, int check);
  int AddField(SCA_Field* member);
  int AddField(SCA_Field* member, int check);
  /// @param setParent  0 leaves the member's parent as it is.
  int AddField(SCA_Field* member, int check, int setParent);
  /// @}

  /// @name Values of the first member of a name
  /// @return 0, with nothing written, when there is no such member, when it is an object, or when
  ///         its value is not of the type.
  /// @{
  /// @param size  Capacity of the buffer in bytes; 0 fails. A longer value is cut.
  int GetField(const char* name, char* buffer, unsigned long size) const;
  int GetField(const char* name, unsigned short* value) const;
  int GetField(const char* name, int* value) const;
  int GetField(const char* name, unsigned int* value) const;
  int GetField(const char* name, unsigned long* value) const;
  int GetField(const char* name, unsigned long long* value) const;
  /// @}

  /// @name Lookup; a `SCA_Field**` receives null on failure
  /// @{
  /// @param out  Receives the first member of that name, a plain field too: for members that come
  ///             from outside use `GetConfigObj`. Untouched on failure.
  int GetField(const char* name, SCA_ConfigObj** out) const;
  /// @return The first member of that name when it is an object, else null.
  SCA_ConfigObj* GetConfigObj(const char* name) const;
  /// @return 1 when there is such a member. @note Inherited.
  int IsFieldExists(const char* name) const;
  /// Looks up the member that is named by the decimal text of an id.
  int GetFieldById(unsigned long id, SCA_Field** out) const;
  unsigned long GetFieldCount() const override;
  int GetFieldByIndex(unsigned long index, SCA_Field** out) const override;
  int GetFieldByName(const char* name, SCA_Field** out) const override;
  unsigned long GetTotalFieldCount() const override;
  /// @return An upper bound of the byte form of this object.
  unsigned long GetDataSize() const override;
  /// @}

  /// Unlinks the first member of that name, which the caller owns then.
  int RemoveField(const char* name);
  int DeleteFieldByIndex(unsigned long index);
  /// Deletes every member. @return 1.
  int Clear() { return fields_.Clear(); }
  /// Takes the other object's members, which it loses, and a copy of its name; this one's members
  /// are deleted.
  /// @param source  May be below this object, not above it.
  /// @return 0 without the memory for the name.
  int TakeContent(SCA_ConfigObj* source);

  /// @name A field's operations, for the whole tree
  /// @{
  /// Makes this a deep copy of another object; of plain fields refuses it.
  int CopyFrom(const SCA_Field* source) override;
  /// Writes the byte form; unlike a plain field's, fails when the buffer's size does not hold it.
  int WriteData(char* buffer, unsigned long size, unsigned long* position) const override;
  /// Always 0: an object is read by `SCA_ReadConfigBytes`, which knows where the bytes end.
  int ReadData(const char* buffer, unsigned long* position, SCA_ConfigObj* parent) override;
  int Compare(const SCA_Field* other) const override;
  SCA_Field* Clone() const override;
  /// @}

  /// As a field's; a field asks its parent.
  virtual void GetPathName(char* buffer) const;

  /// Reads a file that `Save` has written; name and members become the file's. For the number of
  /// the file's type and for what is wrong with it see `SCA_LoadConfigFile`.
  /// @param error  As in `SCA_LoadConfigFile`. On failure the object has no members.
  int Load(const char* fileName, unsigned long* error);
  /// Writes the object into a file, which is replaced as a whole; see `SCA_SaveConfigFile`.
  int Save(const char* fileName, unsigned long fileType, unsigned long formatVersion,
           unsigned long* error) const;

 private:
  int HasDuplicate(const char* name, int form, int line) const;
  int Link(SCA_Field* member, int setParent);
  template <class T>
  int AddNumber(const char* name, T value, int checkDuplicate);
  template <class T>
  int GetNumber(const char* name, T* value) const;

  SCA_FieldList fields_;
};

#endif  // SCA_FOUNDATION_SCA_CONFIGOBJ_H
