#include "foundation/SCA_List.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using List = SCA_List<const int*>;
using Node = SCA_ListItem<const int*>;

const int kItems[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

const int* Item(int number) {
  return &kItems[number];
}

// Every node as number, name and id, such as "3b7 4-": checked in both directions.
std::string Shape(const List& list) {
  std::string text;
  unsigned long count = 0;
  const Node* last = nullptr;
  for (const Node* node = list.GetHead(); node != nullptr; node = node->GetNext()) {
    EXPECT_EQ(node->GetPrev(), last);
    EXPECT_EQ(node->IsValid(), node->GetName() != nullptr ? 1 : 0);
    text += count++ > 0 ? " " : "";
    text += std::to_string(*node->GetItem());
    text += node->GetName() != nullptr ? node->GetName() : "";
    text += node->GetId() == SCA_NoItemId ? "-" : std::to_string(node->GetId());
    last = node;
  }
  EXPECT_EQ(list.GetTail(), last);
  EXPECT_EQ(list.Count(), count);
  return text;
}

// Items 0a10, 1b11, 2-, 3b13: two of one name, one with neither name nor id.
void Fill(List* list) {
  list->AddItemToTail(Item(0), "a", 10UL);
  list->AddItemToTail(Item(1), "b", 11UL);
  list->AddItemToTail(Item(2));
  list->AddItemToTail(Item(3), "b", 13UL);
}

struct Row {
  std::function<int(List&)> operation;
  int result;
  const char* shape;
};

void Check(const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.shape);
    List list(0);
    Fill(&list);
    EXPECT_EQ(row.operation(list), row.result);
    EXPECT_EQ(Shape(list), row.shape);
  }
}

constexpr char kUnchanged[] = "0a10 1b11 2- 3b13";

TEST(List, InsertsAtEveryPlaceWithEveryKindOfId) {
  unsigned long id = 99;
  Node* made = nullptr;
  const auto place = [](List& list) { return list.GetListItem(11); };
  Check({
      {[](List& l) { return l.AddItemToHead(Item(9)); }, 1, "9- 0a10 1b11 2- 3b13"},
      {[&](List& l) { return l.AddItemToHead(Item(9), &id); }, 1, "90 0a10 1b11 2- 3b13"},
      {[](List& l) { return l.AddItemToTail(Item(9)); }, 1, "0a10 1b11 2- 3b13 9-"},
      {[&](List& l) { return l.AddItemToTail(Item(9), "x", &made); }, 1, "0a10 1b11 2- 3b13 9x-"},
      {[&](List& l) { return l.AddItemBefore(Item(9), place(l)); }, 1, "0a10 9- 1b11 2- 3b13"},
      {[&](List& l) { return l.AddItemAfter(Item(9), place(l)); }, 1, "0a10 1b11 9- 2- 3b13"},
      {[](List& l) { return l.AddItemBefore(Item(9), nullptr); }, 0, kUnchanged},
      {[](List& l) { return l.AddItemByPos(Item(9), 0); }, 1, "9- 0a10 1b11 2- 3b13"},
      {[&](List& l) { return l.AddItemByPos(Item(9), 2, &id); }, 1, "0a10 1b11 90 2- 3b13"},
      {[](List& l) { return l.AddItemByPos(Item(9), 4, 8UL); }, 1, "0a10 1b11 2- 3b13 98"},
      {[&](List& l) { return l.InsertItemBefore(new Node(Item(9), "x"), place(l)); }, 1,
       "0a10 9x- 1b11 2- 3b13"},
      {[&](List& l) { return l.InsertItemAfter(new Node(Item(9)), l.GetTail(), &id); }, 1,
       "0a10 1b11 2- 3b13 90"},
      {[](List& l) { return l.InsertItemBefore(nullptr, l.GetHead()); }, 0, kUnchanged},
  });
  EXPECT_EQ(id, 0U);
}

TEST(List, RemovesRenamesAndMoves) {
  const int* item = nullptr;
  Check({
      {[](List& l) { return l.DeleteHeadItem(); }, 1, "1b11 2- 3b13"},
      {[](List& l) { return l.DeleteTailItem(); }, 1, "0a10 1b11 2-"},
      {[&](List& l) { return l.DeleteItem(11, &item); }, 1, "0a10 2- 3b13"},
      {[](List& l) { return l.DeleteItem("b"); }, 1, "0a10 2- 3b13"},
      {[](List& l) { return l.DeleteItemByPos(2); }, 1, "0a10 1b11 3b13"},
      {[](List& l) { return l.SetItemName(SCA_NoItemId, "new"); }, 1, "0a10 1b11 2new- 3b13"},
      {[](List& l) {
         l.ChangeItemName("a", "long");
         return l.ChangeItemName("long", l.GetItemNameByPos(0) + 2);
       },
       1, "0ng10 1b11 2- 3b13"},
      {[](List& l) { return l.SetItemId("b", 5); }, 1, "0a10 1b5 2- 3b13"},
      {[](List& l) { return l.MoveItemToHead("b"); }, 1, "1b11 0a10 2- 3b13"},
      {[](List& l) { return l.MoveItemToTail(10); }, 1, "1b11 2- 3b13 0a10"},
      {[](List& l) { return l.MoveItemUp(13); }, 1, "0a10 1b11 3b13 2-"},
      {[](List& l) { return l.MoveItemDown("a"); }, 1, "1b11 0a10 2- 3b13"},
      {[](List& l) { return l.MoveItemDown(SCA_NoItemId); }, 1, "0a10 1b11 3b13 2-"},
  });
  EXPECT_EQ(item, Item(1));
}

TEST(List, LooksUpByIdNameAndPosition) {
  List list(0);
  Fill(&list);
  const int* item = nullptr;
  EXPECT_EQ(list.GetItem("b", &item), 1);
  EXPECT_EQ(item, Item(1)) << "the first of a name";
  EXPECT_EQ(list.GetItem(13, &item), 1);
  EXPECT_EQ(list.GetItem(12, &item) + list.GetItem("B", &item) + list.GetItemByPos(4, &item) +
                list.GetItem(static_cast<const char*>(nullptr), &item),
            0);
  EXPECT_EQ(item, Item(3)) << "a failed lookup writes nothing";
  EXPECT_EQ(list.GetItemPos(SCA_NoItemId), 2U) << "the first node without an id";
  EXPECT_EQ(list.GetItemPos(12), SCA_NoItemId);
  EXPECT_EQ(list.GetItemPos((1UL << 32) + 13), 3U) << "ids have 32 bits";
  EXPECT_EQ(list.GetNextItemId(13), SCA_NoItemId);
  EXPECT_EQ(list.GetPrevItemId(11), 10U);
  EXPECT_STREQ(list.GetItemNameByPos(2), "");
  EXPECT_EQ(list.GetItemNameByPos(4), nullptr);
  list.AddItemToTail(Item(4), "");
  EXPECT_EQ(list.GetItem("", &item), 1) << "an empty name is a name for lookups ...";
  EXPECT_EQ(list.IsItemValid(""), 0) << "... but never a valid one";
  List empty(0);
  EXPECT_EQ(empty.GetHeadItem(&item) + empty.DeleteTailItem() + empty.MoveItemToHead(0UL), 0);
}

TEST(List, CountsIdsFromTheFirstAndNeverReusesThem) {
  List list(0);
  unsigned long id = 9;
  for (unsigned long expected = 0; expected < 2; ++expected) {
    list.AddItemToTail(Item(0), &id);
    EXPECT_EQ(id, expected);
  }
  list.DeleteItem(0UL);
  list.DeleteItem(1UL);
  list.AddItemToTail(Item(0), &id);
  EXPECT_EQ(id, 2U);
  EXPECT_EQ(list.Clear(), 1);
  EXPECT_EQ(Shape(list), "");
  list.AddItemToTail(Item(0), &id);
  EXPECT_EQ(id, 0U);

  list.SetNextItemId(0xFFFFFFFF);
  list.AddItemToTail(Item(1), &id);
  EXPECT_EQ(id, SCA_NoItemId);
  EXPECT_EQ(list.GetNextItemId(), 0U);
}

TEST(List, SortsAndHandsNodesOver) {
  List list(0);
  EXPECT_EQ(list.SortItemsByName(), 1);
  for (const char* name : {"pear", "", "Apple", "apple"}) list.AddItemToTail(Item(1), name);
  list.AddItemToTail(Item(2));
  EXPECT_EQ(list.SortItemsByName(), 1);
  EXPECT_EQ(Shape(list), "2- 1- 1Apple- 1apple- 1pear-");
  EXPECT_EQ(list.SortItems([](const void* left, const void* right) {
    return SCA_ListSortCallbackA(right, left);
  }),
            1);
  EXPECT_EQ(Shape(list), "1pear- 1apple- 1Apple- 1- 2-");

  List other(0);
  other.AddItemToTail(Item(3));
  Node* node = list.GetListItem("apple");
  EXPECT_EQ(list.RemoveListItem(node), 1);
  EXPECT_EQ(node->GetNext(), nullptr);
  EXPECT_EQ(other.InsertItemAfter(node, other.GetHead()), 1);
  EXPECT_EQ(Shape(list), "1pear- 1Apple- 1- 2-");
  EXPECT_EQ(Shape(other), "3- 1apple-");
}

struct Stocked : List {
  explicit Stocked(std::uint32_t most) : List(0) { KeepSpares(most); }
};

TEST(List, SparesServeLaterInsertionsAndShowNothingOfEarlierOnes) {
  Stocked list(2);
  Fill(&list);
  const Node* const first = list.GetHead();
  const Node* const second = first->GetNext();
  while (list.DeleteHeadItem() != 0) {
  }
  EXPECT_EQ(Shape(list), "");
  list.AddItemToTail(Item(5));
  list.AddItemToTail(Item(6), "c", 7UL);
  list.AddItemToTail(Item(7));
  EXPECT_EQ(list.GetHead(), second) << "the one that was deleted last of those that are kept";
  EXPECT_EQ(list.GetHead()->GetNext(), first);
  EXPECT_EQ(Shape(list), "5- 6c7 7-");
}

}  // namespace
