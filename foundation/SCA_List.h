/// The keyed list from which every list of the library derives.
#ifndef SCA_FOUNDATION_SCA_LIST_H
#define SCA_FOUNDATION_SCA_LIST_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "platform/SCA_Object.h"

/// The id of a node that has none, and the answer of lookups by position or id that find nothing.
constexpr unsigned long SCA_NoItemId = 0xFFFFFFFF;

/// What the comparator of `SortItems` compares: it gets pointers to two of them.
struct SCA_ListSortEntry {
  void* node;
  const char* name;  ///< null for an unnamed node
};

/// Comparator that orders by name, byte by byte; unnamed nodes come first.
SCA_API int SCA_ListSortCallbackA(const void* left, const void* right);

template <class T>
class SCA_List;

/// A node of a list: one item, not owned, with an optional id and an optional name. The validity
/// flag is 1 when the node has a name; a node without one is no failure. @note Inherited.
template <class T>
class SCA_API SCA_ListItem : public SCA_Object {
 public:
  explicit SCA_ListItem(T item) : item_(item) {}
  /// Copies the name; null gives an unnamed node, as does a name that cannot be copied.
  SCA_ListItem(T item, const char* name) : item_(item) {
    if (name != nullptr) SetName(name);
  }
  SCA_ListItem(const SCA_ListItem&) = delete;
  SCA_ListItem& operator=(const SCA_ListItem&) = delete;

  SCA_ListItem* GetNext() const { return next_; }
  SCA_ListItem* GetPrev() const { return prev_; }
  unsigned long GetId() const { return id_; }
  T GetItem() const { return item_; }
  /// @return Null when the node has no name.
  const char* GetName() const { return name_.get(); }

 private:
  friend class SCA_List<T>;

  // The old name stays when there is no memory for the new one, which may lie within the old.
  int SetName(const char* name) {
    const std::size_t size = std::strlen(name) + 1;
    std::unique_ptr<char[]> copy(new (std::nothrow) char[size]);
    if (copy == nullptr) return 0;
    std::memcpy(copy.get(), name, size);
    name_ = std::move(copy);
    SetValid(1);
    return 1;
  }

  bool HasName(const char* name) const {
    return name_ != nullptr && std::strcmp(name_.get(), name) == 0;
  }

  SCA_ListItem* next_ = nullptr;
  SCA_ListItem* prev_ = nullptr;
  std::uint32_t id_ = SCA_NoItemId;
  T item_;
  std::unique_ptr<char[]> name_;
};

/// A doubly linked list of items with ids and names. It owns its nodes, never the items. Neither
/// ids nor names need be unique: every lookup gives the first match from the head. Names are
/// compared byte by byte. Lookups are linear; what is done to a node once found takes constant
/// time. Only insertions, names and sorting allocate.
///
/// Ids are 32-bit: the counter wraps from 0xFFFFFFFF, which is also `SCA_NoItemId`, to 0.
///
/// int results are 1 for success and 0 for failure; a failed operation changes nothing.
/// Threads: one at a time; owners of shared lists lock them.
template <class T>
class SCA_API SCA_List : public SCA_Object {
 public:
  using Node = SCA_ListItem<T>;
  using Comparator = int (*)(const void*, const void*);

  explicit SCA_List(unsigned long firstItemId)
      : nextItemId_(Narrow(firstItemId)), firstItemId_(nextItemId_) {
    SetValid(1);
  }
  ~SCA_List() override {
    mostSpares_ = 0;
    DeleteNodes();
    while (spares_ != nullptr) TakeSpare()->Destroy();
  }
  SCA_List(const SCA_List&) = delete;
  SCA_List& operator=(const SCA_List&) = delete;

  /// May be read by any thread while another one changes the list.
  unsigned long Count() const { return count_.Get(); }
  /// @return The id that the next insertion with a counted id takes. @note Inherited.
  unsigned long GetNextItemId() const { return nextItemId_; }
  void SetNextItemId(unsigned long id) { nextItemId_ = Narrow(id); }
  /// Deletes the nodes; the next item id is the first one again. @return 1.
  int Clear() {
    DeleteNodes();
    nextItemId_ = firstItemId_;
    return 1;
  }

  /// @name Insertion
  /// With `unsigned long*` the node takes its id from the counter, reported through the pointer;
  /// with `unsigned long` the given one; otherwise it has none. A name is copied; null gives an
  /// unnamed node, as does a name for which there is no memory.
  /// @return 0 when the node cannot be allocated.
  /// @{
  int AddItemToHead(T item) { return Insert(item, nullptr, head_, {}); }
  int AddItemToHead(T item, unsigned long* id) { return Insert(item, nullptr, head_, Counted(id)); }
  int AddItemToHead(T item, unsigned long id) { return Insert(item, nullptr, head_, Given(id)); }
  int AddItemToHead(T item, const char* name) { return Insert(item, name, head_, {}); }

  int AddItemToTail(T item) { return Insert(item, nullptr, nullptr, {}); }
  int AddItemToTail(T item, unsigned long* id) {
    return Insert(item, nullptr, nullptr, Counted(id));
  }
  int AddItemToTail(T item, unsigned long id) { return Insert(item, nullptr, nullptr, Given(id)); }
  int AddItemToTail(T item, const char* name) { return Insert(item, name, nullptr, {}); }
  int AddItemToTail(T item, const char* name, unsigned long* id) {
    return Insert(item, name, nullptr, Counted(id));
  }
  int AddItemToTail(T item, const char* name, unsigned long id) {
    return Insert(item, name, nullptr, Given(id));
  }
  /// @param node  Receives the new node, which the list owns.
  int AddItemToTail(T item, const char* name, Node** node) {
    const int added = Insert(item, name, nullptr, {});
    if (added != 0) *node = tail_;
    return added;
  }

  /// @param place  A node of this list; null fails.
  int AddItemBefore(T item, Node* place) {
    return place != nullptr ? Insert(item, nullptr, place, {}) : 0;
  }
  int AddItemBefore(T item, Node* place, unsigned long* id) {
    return place != nullptr ? Insert(item, nullptr, place, Counted(id)) : 0;
  }
  int AddItemAfter(T item, Node* place) {
    return place != nullptr ? Insert(item, nullptr, place->next_, {}) : 0;
  }
  int AddItemAfter(T item, Node* place, unsigned long* id) {
    return place != nullptr ? Insert(item, nullptr, place->next_, Counted(id)) : 0;
  }

  /// @param position  The item's position afterwards, at most `Count()`; a greater one fails.
  int AddItemByPos(T item, unsigned long position) {
    return InsertByPos(item, nullptr, position, {});
  }
  int AddItemByPos(T item, unsigned long position, unsigned long* id) {
    return InsertByPos(item, nullptr, position, Counted(id));
  }
  int AddItemByPos(T item, unsigned long position, unsigned long id) {
    return InsertByPos(item, nullptr, position, Given(id));
  }
  int AddItemByPos(T item, unsigned long position, const char* name) {
    return InsertByPos(item, name, position, {});
  }

  /// Link a node that the caller made with `new` and that is in no list; the list owns it then.
  /// @return 0 when either node is null.
  int InsertItemBefore(Node* node, Node* place) {
    return node != nullptr && place != nullptr ? Link(node, place) : 0;
  }
  int InsertItemAfter(Node* node, Node* place) {
    return node != nullptr && place != nullptr ? Link(node, place->next_) : 0;
  }
  int InsertItemAfter(Node* node, Node* place, unsigned long* id) {
    if (InsertItemAfter(node, place) == 0) return 0;
    GiveId(node, Counted(id));
    return 1;
  }
  /// @}

  /// @name Lookup
  /// A null name, an absent id and a position from `Count()` on find nothing.
  /// @{
  Node* GetHead() const { return head_; }
  Node* GetTail() const { return tail_; }
  int GetHead(Node** node) const { return HandOut(head_, node); }
  int GetTail(Node** node) const { return HandOut(tail_, node); }
  int GetHeadItem(T* item) const { return HandOutItem(head_, item); }
  int GetTailItem(T* item) const { return HandOutItem(tail_, item); }

  Node* GetListItem(unsigned long id) const {
    return Find([wanted = Narrow(id)](const Node& node) { return node.id_ == wanted; });
  }
  Node* GetListItem(const char* name) const {
    if (name == nullptr) return nullptr;
    return Find([name](const Node& node) { return node.HasName(name); });
  }
  Node* GetListItemByPos(unsigned long position) const {
    return Find([position](const Node&) mutable { return position-- == 0; });
  }
  int GetItem(unsigned long id, T* item) const { return HandOutItem(GetListItem(id), item); }
  int GetItem(const char* name, T* item) const { return HandOutItem(GetListItem(name), item); }
  int GetItemByPos(unsigned long position, T* item) const {
    return HandOutItem(GetListItemByPos(position), item);
  }
  /// @return The position from 0, or 0xFFFFFFFF.
  unsigned long GetItemPos(unsigned long id) const {
    unsigned long position = 0;
    for (const Node* node = head_; node != nullptr; node = node->next_, ++position) {
      if (node->id_ == Narrow(id)) return position;
    }
    return SCA_NoItemId;
  }
  /// @return The id of the node after (before) the one with the given id, or 0xFFFFFFFF.
  unsigned long GetNextItemId(unsigned long id) const {
    const Node* node = GetListItem(id);
    return node != nullptr && node->next_ != nullptr ? node->next_->id_ : SCA_NoItemId;
  }
  unsigned long GetPrevItemId(unsigned long id) const {
    const Node* node = GetListItem(id);
    return node != nullptr && node->prev_ != nullptr ? node->prev_->id_ : SCA_NoItemId;
  }
  /// @return The node's name, "" when it has none, null without such a node. Valid while the node
  ///         keeps the name.
  const char* GetItemNameById(unsigned long id) const { return NameOf(GetListItem(id)); }
  const char* GetItemNameByPos(unsigned long position) const {
    return NameOf(GetListItemByPos(position));
  }
  /// @return 1 when a node has this name; 0 for a null or empty one. @note Inherited.
  int IsItemValid(const char* name) const {
    return name != nullptr && *name != '\0' && GetListItem(name) != nullptr ? 1 : 0;
  }
  /// @}

  /// @name Removal of nodes; the items live on
  /// @return 0 when there is no such node.
  /// @{
  int DeleteHeadItem() { return DeleteListItem(head_); }
  int DeleteTailItem() { return DeleteListItem(tail_); }
  int DeleteItem(unsigned long id) { return DeleteListItem(GetListItem(id)); }
  /// @param item  Receives the removed node's item.
  int DeleteItem(unsigned long id, T* item) {
    Node* node = GetListItem(id);
    return HandOutItem(node, item) != 0 ? DeleteListItem(node) : 0;
  }
  int DeleteItem(const char* name) { return DeleteListItem(GetListItem(name)); }
  int DeleteItemByPos(unsigned long position) { return DeleteListItem(GetListItemByPos(position)); }
  /// @param node  A node of this list, or null.
  int DeleteListItem(Node* node) {
    if (RemoveListItem(node) == 0) return 0;
    Discard(node);
    return 1;
  }
  /// Unlinks a node of this list; the caller owns it then.
  int RemoveListItem(Node* node) {
    if (node == nullptr) return 0;
    (node->prev_ != nullptr ? node->prev_->next_ : head_) = node->next_;
    (node->next_ != nullptr ? node->next_->prev_ : tail_) = node->prev_;
    node->next_ = node->prev_ = nullptr;
    count_.Set(count_.Get() - 1);
    return 1;
  }
  /// @}

  /// @name Names and ids
  /// An empty new name leaves the node's name as it is and counts as success.
  /// @return 0 for a null name, without such a node, or when the name cannot be copied.
  /// @{
  int SetItemName(unsigned long id, const char* name) { return Rename(GetListItem(id), name); }
  int ChangeItemName(const char* oldName, const char* newName) {
    return Rename(GetListItem(oldName), newName);
  }
  /// The same as `ChangeItemName`. @note Inherited.
  int RenameItem(const char* oldName, const char* newName) {
    return ChangeItemName(oldName, newName);
  }
  int SetItemId(const char* name, unsigned long id) {
    Node* node = GetListItem(name);
    if (node == nullptr) return 0;
    node->id_ = Narrow(id);
    return 1;
  }
  /// @}

  /// @name Order
  /// @return 0 without such a node; 1 also when it stands there already.
  /// @{
  int MoveItemToHead(unsigned long id) { return Move(GetListItem(id), head_); }
  int MoveItemToHead(const char* name) { return Move(GetListItem(name), head_); }
  int MoveItemToTail(unsigned long id) { return Move(GetListItem(id), nullptr); }
  int MoveItemToTail(const char* name) { return Move(GetListItem(name), nullptr); }
  int MoveItemUp(unsigned long id) { return MoveUp(GetListItem(id)); }
  int MoveItemUp(const char* name) { return MoveUp(GetListItem(name)); }
  int MoveItemDown(unsigned long id) { return MoveDown(GetListItem(id)); }
  int MoveItemDown(const char* name) { return MoveDown(GetListItem(name)); }

  /// @param comparator  As for qsort, of two `SCA_ListSortEntry`. The order of equal nodes is not
  ///                    defined.
  /// @return 0 without the memory for an array of 16 bytes per node.
  int SortItems(Comparator comparator) {
    if (Count() < 2) return 1;
    std::unique_ptr<SCA_ListSortEntry[]> entries(new (std::nothrow) SCA_ListSortEntry[Count()]);
    if (entries == nullptr) return 0;
    std::size_t filled = 0;
    for (Node* node = head_; node != nullptr; node = node->next_) {
      entries[filled++] = {node, node->GetName()};
    }
    std::qsort(entries.get(), filled, sizeof(SCA_ListSortEntry), comparator);
    head_ = tail_ = nullptr;
    count_.Set(0);
    for (std::size_t i = 0; i < filled; ++i) Link(static_cast<Node*>(entries[i].node), nullptr);
    return 1;
  }
  int SortItemsByName() { return SortItems(SCA_ListSortCallbackA); }
  /// @}

 protected:
  /// For a list that is filled and emptied all the time and gets no nodes from elsewhere: keeps up
  /// to `most` deleted nodes for later insertions, which then take no memory.
  void KeepSpares(std::uint32_t most) { mostSpares_ = most; }

 private:
  // Ids have 32 bits, whatever the type that carries them.
  static std::uint32_t Narrow(unsigned long id) { return static_cast<std::uint32_t>(id); }

  // Where a new node's id comes from; without either pointer or id it has none.
  struct IdSource {
    unsigned long* counted = nullptr;
    unsigned long given = SCA_NoItemId;
  };
  static IdSource Counted(unsigned long* id) { return {id, SCA_NoItemId}; }
  static IdSource Given(unsigned long id) { return {nullptr, id}; }

  void GiveId(Node* node, const IdSource& source) {
    if (source.counted != nullptr) *source.counted = nextItemId_;
    node->id_ = source.counted != nullptr ? nextItemId_++ : Narrow(source.given);
  }

  // Links a node that is in no list before `place`, at the tail when that is null.
  int Link(Node* node, Node* place) {
    node->next_ = place;
    node->prev_ = place != nullptr ? place->prev_ : tail_;
    (node->prev_ != nullptr ? node->prev_->next_ : head_) = node;
    (place != nullptr ? place->prev_ : tail_) = node;
    count_.Set(count_.Get() + 1);
    return 1;
  }

  Node* TakeSpare() {
    Node* const node = spares_;
    spares_ = node->next_;
    node->next_ = nullptr;
    --spareCount_;
    return node;
  }

  // Ends a node that is in no list, or keeps it for another item.
  void Discard(Node* node) {
    if (spareCount_ >= mostSpares_) return node->Destroy();
    node->name_.reset();
    node->SetValid(0);
    node->next_ = spares_;
    spares_ = node;
    ++spareCount_;
  }

  Node* MakeNode(T item, const char* name) {
    if (spares_ == nullptr) return new (std::nothrow) Node(item, name);
    Node* const node = TakeSpare();
    node->item_ = item;
    if (name != nullptr) node->SetName(name);
    return node;
  }

  int Insert(T item, const char* name, Node* place, const IdSource& id) {
    Node* node = MakeNode(item, name);
    if (node == nullptr) return 0;
    GiveId(node, id);
    return Link(node, place);
  }

  int InsertByPos(T item, const char* name, unsigned long position, const IdSource& id) {
    if (position > Count()) return 0;
    return Insert(item, name, GetListItemByPos(position), id);
  }

  template <class Predicate>
  Node* Find(Predicate matches) const {
    Node* node = head_;
    while (node != nullptr && !matches(*node)) node = node->next_;
    return node;
  }

  static int HandOut(Node* node, Node** out) {
    if (node == nullptr) return 0;
    *out = node;
    return 1;
  }
  static int HandOutItem(const Node* node, T* item) {
    if (node == nullptr) return 0;
    *item = node->item_;
    return 1;
  }
  static const char* NameOf(const Node* node) {
    if (node == nullptr) return nullptr;
    return node->name_ != nullptr ? node->GetName() : "";
  }

  static int Rename(Node* node, const char* name) {
    if (node == nullptr || name == nullptr) return 0;
    return *name != '\0' ? node->SetName(name) : 1;
  }

  // Relinks a node before `place`, at the tail when that is null.
  int Move(Node* node, Node* place) {
    if (node == nullptr) return 0;
    if (node == place) return 1;
    RemoveListItem(node);
    return Link(node, place);
  }
  int MoveUp(Node* node) {
    return node != nullptr && node->prev_ != nullptr ? Move(node, node->prev_) : Move(node, node);
  }
  int MoveDown(Node* node) {
    return node != nullptr && node->next_ != nullptr ? Move(node, node->next_->next_)
                                                     : Move(node, node);
  }

  void DeleteNodes() {
    while (DeleteHeadItem() != 0) {
    }
  }

  Node* head_ = nullptr;
  Node* tail_ = nullptr;
  std::uint32_t nextItemId_;
  std::uint32_t firstItemId_;
  SCA_AtomicValue<std::uint32_t> count_{0};
  Node* spares_ = nullptr;  // linked by their next nodes
  std::uint32_t spareCount_ = 0;
  std::uint32_t mostSpares_ = 0;
};

#endif  // SCA_FOUNDATION_SCA_LIST_H
