/// The ordered list of an object's members.
#ifndef SCA_FOUNDATION_SCA_FIELDLIST_H
#define SCA_FOUNDATION_SCA_FIELDLIST_H

#include <cstdint>

#include "foundation/SCA_Field.h"

/// A doubly linked list that links members through themselves; it allocates nothing. It owns its
/// members. A member is in at most one list. Names are compared byte by byte; lookups give the
/// first match from the head and take linear time.
///
/// int results are 1 for success and 0 for failure; a failed operation changes nothing, except that
/// a `SCA_Field**` receives null. Members and places that are given belong to this list. Threads:
/// one at a time.
class SCA_API SCA_FieldList : public SCA_Object {
 public:
  SCA_FieldList();
  ~SCA_FieldList() override;  ///< Deletes the members.
  SCA_FieldList(const SCA_FieldList&) = delete;
  SCA_FieldList& operator=(const SCA_FieldList&) = delete;

  unsigned long Count() const { return count_; }

  /// @name Linking; the list owns the member then
  /// @param item  In no list yet.
  /// @return 0 for a null or nameless member, and for a null place.
  /// @{
  int AddItemToHead(SCA_Field* item);
  int AddItemToTail(SCA_Field* item);
  int InsertItemBefore(SCA_Field* item, SCA_Field* place);
  int InsertItemAfter(SCA_Field* item, SCA_Field* place);
  /// @}

  /// @name Lookup; a null name and a position from `Count()` on find nothing
  /// @{
  int GetItem(const char* name, SCA_Field** item) const;
  SCA_Field* GetListItem(const char* name) const;
  int GetItemByPos(unsigned long position, SCA_Field** item) const;
  const char* GetNameByPos(unsigned long position) const;
  SCA_Field* GetListItemByPos(unsigned long position) const;
  SCA_Field* GetHead() const { return head_; }
  SCA_Field* GetTail() const { return tail_; }
  int GetHeadItem(SCA_Field** item) const;
  /// @return 1 when there is such a member. @note Inherited.
  int IsItemValid(const char* name) const;
  /// @}

  /// @name Removal; 0 when there is no such member
  /// The member belongs to the caller then, without neighbours and without parent.
  /// @{
  int RemoveListItem(SCA_Field* item);
  int RemoveItem(const char* name);
  /// @}
  /// @name Deletion; 0 when there is no such member
  /// @{
  int DeleteListItem(SCA_Field* item);
  int DeleteItem(const char* name);
  int DeleteHeadItem();
  int DeleteTailItem();
  int DeleteItemByPos(unsigned long position);
  /// Deletes every member, and theirs, however deep, with little stack. @return 1.
  int Clear();
  /// @}

  /// @name Order; 0 when there is no such member, 1 also when it stands there already
  /// @{
  int MoveItemToHead(const char* name);
  int MoveItemToTail(const char* name);
  int MoveItemUp(const char* name);
  int MoveItemDown(const char* name);
  /// @}

  /// Takes over all members of another list, after those that are here.
  /// @param other   Not this list.
  /// @param parent  Becomes the parent of each.
  void TakeAll(SCA_FieldList* other, SCA_ConfigObj* parent);

 private:
  void Link(SCA_Field* item, SCA_Field* place);
  void Unlink(SCA_Field* item);
  int Move(SCA_Field* item, SCA_Field* place);
  void Splice(SCA_FieldList* other, SCA_Field* place);

  SCA_Field* head_ = nullptr;
  SCA_Field* tail_ = nullptr;
  std::uint32_t count_ = 0;
};

#endif  // SCA_FOUNDATION_SCA_FIELDLIST_H
