#include "foundation/SCA_FieldList.h"

#include <cstring>

#include "foundation/SCA_ConfigObj.h"

SCA_FieldList::SCA_FieldList() {
  SetValid(1);
}

SCA_FieldList::~SCA_FieldList() {
  Clear();
}

// Before `place`, at the tail when that is null.
void SCA_FieldList::Link(SCA_Field* item, SCA_Field* place) {
  item->next_ = place;
  item->prev_ = place != nullptr ? place->prev_ : tail_;
  (item->prev_ != nullptr ? item->prev_->next_ : head_) = item;
  (place != nullptr ? place->prev_ : tail_) = item;
  ++count_;
}

void SCA_FieldList::Unlink(SCA_Field* item) {
  (item->prev_ != nullptr ? item->prev_->next_ : head_) = item->next_;
  (item->next_ != nullptr ? item->next_->prev_ : tail_) = item->prev_;
  item->next_ = item->prev_ = nullptr;
  --count_;
}

int SCA_FieldList::Move(SCA_Field* item, SCA_Field* place) {
  if (item == nullptr) return 0;
  if (item == place) return 1;
  Unlink(item);
  Link(item, place);
  return 1;
}

// All members of the other list, before `place`.
void SCA_FieldList::Splice(SCA_FieldList* other, SCA_Field* place) {
  if (other->head_ == nullptr) return;
  SCA_Field* before = place != nullptr ? place->prev_ : tail_;
  other->head_->prev_ = before;
  other->tail_->next_ = place;
  (before != nullptr ? before->next_ : head_) = other->head_;
  (place != nullptr ? place->prev_ : tail_) = other->tail_;
  count_ += other->count_;
  other->head_ = other->tail_ = nullptr;
  other->count_ = 0;
}

void SCA_FieldList::TakeAll(SCA_FieldList* other, SCA_ConfigObj* parent) {
  for (SCA_Field* item = other->head_; item != nullptr; item = item->next_) item->parent_ = parent;
  Splice(other, nullptr);
}

int SCA_FieldList::AddItemToHead(SCA_Field* item) {
  if (item == nullptr || item->GetName() == nullptr) return 0;
  Link(item, head_);
  return 1;
}

int SCA_FieldList::AddItemToTail(SCA_Field* item) {
  if (item == nullptr || item->GetName() == nullptr) return 0;
  Link(item, nullptr);
  return 1;
}

int SCA_FieldList::InsertItemBefore(SCA_Field* item, SCA_Field* place) {
  if (item == nullptr || item->GetName() == nullptr || place == nullptr) return 0;
  Link(item, place);
  return 1;
}

int SCA_FieldList::InsertItemAfter(SCA_Field* item, SCA_Field* place) {
  if (item == nullptr || item->GetName() == nullptr || place == nullptr) return 0;
  Link(item, place->next_);
  return 1;
}

int SCA_FieldList::GetItem(const char* name, SCA_Field** item) const {
  *item = GetListItem(name);
  return *item != nullptr ? 1 : 0;
}

SCA_Field* SCA_FieldList::GetListItem(const char* name) const {
  if (name == nullptr) return nullptr;
  SCA_Field* item = head_;
  while (item != nullptr && std::strcmp(item->GetName(), name) != 0) item = item->next_;
  return item;
}

int SCA_FieldList::GetItemByPos(unsigned long position, SCA_Field** item) const {
  *item = GetListItemByPos(position);
  return *item != nullptr ? 1 : 0;
}

const char* SCA_FieldList::GetNameByPos(unsigned long position) const {
  const SCA_Field* item = GetListItemByPos(position);
  return item != nullptr ? item->GetName() : nullptr;
}

SCA_Field* SCA_FieldList::GetListItemByPos(unsigned long position) const {
  SCA_Field* item = position < count_ ? head_ : nullptr;
  while (position-- > 0 && item != nullptr) item = item->next_;
  return item;
}

int SCA_FieldList::GetHeadItem(SCA_Field** item) const {
  *item = head_;
  return head_ != nullptr ? 1 : 0;
}

int SCA_FieldList::IsItemValid(const char* name) const {
  return GetListItem(name) != nullptr ? 1 : 0;
}

int SCA_FieldList::RemoveListItem(SCA_Field* item) {
  if (item == nullptr) return 0;
  Unlink(item);
  item->parent_ = nullptr;
  return 1;
}

int SCA_FieldList::RemoveItem(const char* name) {
  return RemoveListItem(GetListItem(name));
}

int SCA_FieldList::DeleteListItem(SCA_Field* item) {
  const SCA_Owned<SCA_Field> removed(item);
  return RemoveListItem(item);
}

int SCA_FieldList::DeleteItem(const char* name) {
  return DeleteListItem(GetListItem(name));
}

int SCA_FieldList::DeleteHeadItem() {
  return DeleteListItem(head_);
}

int SCA_FieldList::DeleteTailItem() {
  return DeleteListItem(tail_);
}

int SCA_FieldList::DeleteItemByPos(unsigned long position) {
  return DeleteListItem(GetListItemByPos(position));
}

int SCA_FieldList::Clear() {
  while (head_ != nullptr) {
    // An object's members come up into this list first, so that deleting it goes no deeper.
    if (SCA_ConfigObj* object = SCA_ToConfigObj(head_)) Splice(&object->GetFields(), head_->next_);
    DeleteHeadItem();
  }
  return 1;
}

int SCA_FieldList::MoveItemToHead(const char* name) {
  return Move(GetListItem(name), head_);
}

int SCA_FieldList::MoveItemToTail(const char* name) {
  return Move(GetListItem(name), nullptr);
}

int SCA_FieldList::MoveItemUp(const char* name) {
  SCA_Field* item = GetListItem(name);
  return Move(item, item != nullptr && item->prev_ != nullptr ? item->prev_ : item);
}

int SCA_FieldList::MoveItemDown(const char* name) {
  SCA_Field* item = GetListItem(name);
  return Move(item, item != nullptr && item->next_ != nullptr ? item->next_->next_ : item);
}
