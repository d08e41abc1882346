#include "foundation/SCA_ConfigObj.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "platform/SCA_Report.h"
#include "tests/support/ReportCapture.h"

namespace {

// The names of the members, in both directions.
std::string Names(const SCA_FieldList& list) {
  std::string text;
  const SCA_Field* last = nullptr;
  unsigned long count = 0;
  for (const SCA_Field* item = list.GetHead(); item != nullptr; item = item->GetNext(), ++count) {
    EXPECT_EQ(item->GetPrev(), last);
    text += item->GetName();
    last = item;
  }
  EXPECT_EQ(list.GetTail(), last);
  EXPECT_EQ(list.Count(), count);
  return text;
}

std::vector<CapturedReport> Level2(const char* source, const std::string& text) {
  return {{SCA_LevelDebug, source, text}};
}

TEST(Field, TakesOnlyWhatCanBeStored) {
  ReportCapture reports;
  const std::string longest(SCA_MaxFieldName, 'n');
  const std::string tooLong = longest + 'n';
  EXPECT_EQ(SCA_Field(longest.c_str(), nullptr).IsValid(), 1);
  EXPECT_EQ(SCA_Field("", nullptr).GetNameLength(), 1U);
  EXPECT_TRUE(reports.All().empty());
  for (const char* name : {static_cast<const char*>(nullptr), "a\x01z", tooLong.c_str()}) {
    SCA_Field field(name, nullptr);
    EXPECT_EQ(field.IsValid(), 0);
    EXPECT_EQ(field.GetName(), nullptr);
    EXPECT_EQ(field.GetNameLength(), 0U);
    EXPECT_EQ(reports.All(), Level2("SCA_Field", "Invalid field name."));
    SCA_ConfigObj object("o", nullptr);
    EXPECT_EQ(object.AddField(&field) + object.GetFields().AddItemToHead(&field), 0);
    reports.Clear();
  }

  SCA_Field field("f", nullptr);
  const std::string value(SCA_MaxFieldValue + 1, 'v');
  EXPECT_EQ(field.SetValue(value.data(), SCA_MaxFieldValue), 1);
  EXPECT_EQ(field.GetValueLength(), SCA_MaxFieldValue + 1);
  EXPECT_EQ(field.SetValue(value.data(), SCA_MaxFieldValue + 1), 0);
  EXPECT_EQ(field.SetValue("a\0b", 3) + field.SetValue("a\x01", 2), 0);
  EXPECT_EQ(field.GetValueLength(), SCA_MaxFieldValue + 1) << "the old value is kept";
  EXPECT_EQ(field.SetValue("abc", 2), 1);
  EXPECT_STREQ(field.GetValue(), "ab");
  EXPECT_EQ(field.SetValue("", 0), 1);
  EXPECT_EQ(field.GetValueLength(), 1U) << "an empty value is one";
  EXPECT_EQ(field.SetValue(nullptr, 7), 1);
  EXPECT_EQ(field.GetValueLength(), 0U);
  EXPECT_EQ(field.GetValue(), nullptr);
}

TEST(Field, WritesAndReadsItsRecord) {
  SCA_Field field("Port", nullptr);
  field.SetValue("9500", 4);
  char buffer[64] = "....";
  unsigned long position = 2;
  EXPECT_EQ(field.WriteData(buffer, 0, &position), 1);
  EXPECT_EQ(std::string(buffer, position),
            "..1\x01Port\x01"
            "9500\x01");
  EXPECT_LE(position - 2, field.GetDataSize());
  EXPECT_EQ(field.GetDataSize(), 5U + 5U + 5U);

  const std::string longName(SCA_MaxFieldName, 'n');
  const std::string longValue(SCA_MaxFieldValue, 'v');
  const auto record = [](const std::string& name, const std::string& value) {
    return "1\x01" + name + "\x01" + value + "\x01";
  };
  struct {
    std::string bytes;
    std::size_t end;  // 0 when it is refused
  } const rows[] = {
      {record("n", "v") + "\x01\x01\x01"
                          "2",
       9},
      {record("", ""), 4},
      {record(longName, longValue), 4 + SCA_MaxFieldName + SCA_MaxFieldValue},
      {record(longName + 'n', "v"), 0},
      {record("n", longValue + 'v'), 0},
      {"2\x01n\x01v\x01", 0},
      {"1?n\x01v\x01", 0},
      {"1\x01n", 0},
      {"1\x01n\x01v", 0},
  };
  SCA_ConfigObj parent("p", nullptr);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.bytes.substr(0, 20));
    const std::string bytes = "x" + row.bytes;
    SCA_Field read("old", nullptr);
    position = 1;
    EXPECT_EQ(read.ReadData(bytes.c_str(), &position, &parent), row.end > 0 ? 1 : 0);
    EXPECT_EQ(position, 1 + row.end);
    EXPECT_EQ(read.GetParent(), row.end > 0 ? &parent : nullptr);
  }
  SCA_ConfigObj object("o", nullptr);
  position = 0;
  EXPECT_EQ(object.ReadData("2\x01o\x01"
                            "0\x01",
                            &position, nullptr),
            0);
}

TEST(Field, ComparesAndCopiesItsOwnKindOnly) {
  struct {
    const char *name, *value, *difference;
  } const rows[] = {{"n", "v", nullptr},
                    {"m", "w", "Different field name"},
                    {"n", "w", "Different field value"},
                    {"n", nullptr, "Different field value"}};
  ReportCapture reports;
  SCA_Field field("n", nullptr);
  field.SetValue("v", 1);
  for (const auto& row : rows) {
    SCA_Field other(row.name, nullptr);
    if (row.value != nullptr) other.SetValue(row.value, 1);
    EXPECT_EQ(field.Compare(&other), row.difference == nullptr ? 1 : 0);
    EXPECT_EQ(reports.All(), row.difference == nullptr ? std::vector<CapturedReport>()
                                                       : Level2("SCA_Field", row.difference));
    reports.Clear();
  }
  SCA_Field empty("n", nullptr);
  SCA_Field none("n", nullptr);
  empty.SetValue("", 0);
  EXPECT_EQ(empty.Compare(&none), 0);
  EXPECT_EQ(reports.All(), Level2("SCA_Field", "Different value length"));
  reports.Clear();
  SCA_ConfigObj object("another name", nullptr);
  EXPECT_EQ(field.Compare(&object), 0);
  EXPECT_EQ(reports.All(), Level2("SCA_Field", "Different field type"));
  EXPECT_EQ(field.CopyFrom(&object) + object.CopyFrom(&field), 0);
  EXPECT_STREQ(field.GetName(), "n");
  const SCA_Owned<SCA_Field> clone(none.Clone());
  EXPECT_EQ(clone->Compare(&none), 1);
}

struct ListRow {
  const char* what;
  std::function<int(SCA_FieldList&)> operation;
  int result;
  const char* names;
};

// The place of a virtual operation in its table, as a pointer to it says.
template <class Member>
std::size_t Slot(Member member) {
  std::size_t offset = 0;
  static_assert(sizeof member >= sizeof offset);
  std::memcpy(&offset, &member, sizeof offset);
  return offset / sizeof(void*);
}

TEST(Field, VirtualOperationsStandInTheDocumentedOrder) {
  const std::size_t slots[] = {
      Slot(&SCA_Field::Destroy),        Slot(&SCA_Field::GetDataSize),
      Slot(&SCA_Field::GetFieldCount),  Slot(&SCA_Field::GetFieldByIndex),
      Slot(&SCA_Field::GetFieldByName), Slot(&SCA_Field::GetTotalFieldCount),
      Slot(&SCA_Field::CopyFrom),       Slot(&SCA_Field::WriteData),
      Slot(&SCA_Field::ReadData),       Slot(&SCA_Field::Compare),
      Slot(&SCA_Field::Clone),          Slot(&SCA_ConfigObj::GetPathName)};
  for (std::size_t i = 1; i < std::size(slots); ++i) EXPECT_EQ(slots[i], slots[i - 1] + 1) << i;
}

TEST(FieldList, KeepsItsOrder) {
  const auto make = [](const char* name) { return new SCA_Field(name, nullptr); };
  SCA_Field* out = nullptr;
  const ListRow rows[] = {
      {"head", [&](SCA_FieldList& l) { return l.AddItemToHead(make("x")); }, 1, "xabcb"},
      {"before", [&](SCA_FieldList& l) { return l.InsertItemBefore(make("x"), l.GetTail()); }, 1,
       "abcxb"},
      {"after", [&](SCA_FieldList& l) { return l.InsertItemAfter(make("x"), l.GetTail()); }, 1,
       "abcbx"},
      {"nowhere", [&](SCA_FieldList& l) { return l.InsertItemAfter(l.GetHead(), nullptr); }, 0,
       "abcb"},
      {"null", [](SCA_FieldList& l) { return l.AddItemToTail(nullptr); }, 0, "abcb"},
      {"delete by name", [](SCA_FieldList& l) { return l.DeleteItem("b"); }, 1, "acb"},
      {"delete nothing", [](SCA_FieldList& l) { return l.DeleteItem("B"); }, 0, "abcb"},
      {"delete by position", [](SCA_FieldList& l) { return l.DeleteItemByPos(2); }, 1, "abb"},
      {"delete past the end", [](SCA_FieldList& l) { return l.DeleteItemByPos(4); }, 0, "abcb"},
      {"delete the ends", [](SCA_FieldList& l) { return l.DeleteHeadItem() + l.DeleteTailItem(); },
       2, "bc"},
      {"to head", [](SCA_FieldList& l) { return l.MoveItemToHead("c"); }, 1, "cabb"},
      {"to tail", [](SCA_FieldList& l) { return l.MoveItemToTail("b"); }, 1, "acbb"},
      {"up", [](SCA_FieldList& l) { return l.MoveItemUp("c"); }, 1, "acbb"},
      {"head up", [](SCA_FieldList& l) { return l.MoveItemUp("a"); }, 1, "abcb"},
      {"down", [](SCA_FieldList& l) { return l.MoveItemDown("a"); }, 1, "bacb"},
      {"what is not there", [](SCA_FieldList& l) { return l.MoveItemDown(nullptr); }, 0, "abcb"},
      {"clear", [](SCA_FieldList& l) { return l.Clear(); }, 1, ""},
      {"lookups",
       [&](SCA_FieldList& l) {
         return l.GetItem("c", &out) + l.GetItemByPos(3, &out) + l.GetHeadItem(&out) +
                l.IsItemValid("b") + static_cast<int>(l.GetNameByPos(2)[0] == 'c');
       },
       5, "abcb"},
      {"failed lookups",
       [&](SCA_FieldList& l) {
         return l.GetItem(nullptr, &out) + l.GetItemByPos(4, &out) + l.IsItemValid("x") +
                static_cast<int>(l.GetNameByPos(4) != nullptr);
       },
       0, "abcb"},
  };
  for (const ListRow& row : rows) {
    SCOPED_TRACE(row.what);
    SCA_FieldList list;
    for (const char* name : {"a", "b", "c", "b"}) list.AddItemToTail(make(name));
    EXPECT_EQ(row.operation(list), row.result);
    EXPECT_EQ(Names(list), row.names);
  }
}

TEST(ConfigObj, NumbersSurviveAtTheEndsOfTheirTypes) {
  SCA_ConfigObj object("o", nullptr);
  const unsigned long long beyond32 = (1ULL << 32) + 1;
  EXPECT_EQ(object.AddField("us", static_cast<unsigned short>(USHRT_MAX), 0) +
                object.AddField("i", INT_MIN, 0) + object.AddField("ui", UINT_MAX, 0) +
                object.AddField("ul", 0xFFFFFFFFUL, 0) + object.AddField("ull", ULLONG_MAX, 0) +
                object.AddField("beyond", beyond32, 0),
            6);
  EXPECT_EQ(object.AddField("wide", static_cast<unsigned long>(beyond32), 0), 0);
  unsigned short us = 0;
  int i = 0;
  unsigned int ui = 0;
  unsigned long ul = 0;
  unsigned long long ull = 0;
  EXPECT_EQ(object.GetField("us", &us) + object.GetField("i", &i) + object.GetField("ui", &ui) +
                object.GetField("ul", &ul) + object.GetField("ull", &ull),
            5);
  EXPECT_EQ(us, USHRT_MAX);
  EXPECT_EQ(i, INT_MIN);
  EXPECT_EQ(ui, UINT_MAX);
  EXPECT_EQ(ul, 0xFFFFFFFF);
  EXPECT_EQ(ull, ULLONG_MAX);
  EXPECT_EQ(object.GetField("beyond", &ull), 1);
  EXPECT_EQ(ull, beyond32);
  EXPECT_EQ(object.GetField("beyond", &ul) + object.GetField("ul", &us) +
                object.GetField("ui", &i) + object.GetField("i", &ul),
            0)
      << "what does not fit the type is refused";
  for (const char* text : {"", " 1", "1 ", "+1", "-1", "0x1", "1.0", "1e3", "4294967296", "x"}) {
    SCA_ConfigObj bad("o", nullptr);
    bad.AddField("n", text, 0);
    EXPECT_EQ(bad.GetField("n", &ul), 0) << text;
  }
  EXPECT_EQ(ul, 0xFFFFFFFF) << "a failed read writes nothing";
  SCA_Field* none = nullptr;
  object.AddField("none", &none, 1, 0);
  object.AddConfigObj("child");
  EXPECT_EQ(object.GetField("none", &ul) + object.GetField("child", &ul), 0);
}

TEST(ConfigObj, TextsAreCutAtTheBuffer) {
  SCA_ConfigObj object("o", nullptr);
  object.AddField("text", "abcdef", 0);
  object.AddField("none", static_cast<const char*>(nullptr), 0);
  object.AddConfigObj("child");
  char buffer[8] = "????";
  EXPECT_EQ(object.GetField("child", buffer, sizeof buffer), 0);
  EXPECT_EQ(object.GetField("absent", buffer, sizeof buffer), 0);
  EXPECT_STREQ(buffer, "????");
  EXPECT_EQ(object.GetField("text", buffer, 0), 0);
  EXPECT_EQ(object.GetField("text", buffer, 4), 1);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(object.GetField("none", buffer, 4), 1);
  EXPECT_STREQ(buffer, "");
}

TEST(ConfigObj, EveryLinkingFormChecksBeforeItChanges) {
  struct {
    const char* what;
    std::function<int(SCA_ConfigObj&, SCA_Field*)> add;
    const char* report;  // of a duplicate; null when it is linked all the same
    bool setsParent;
  } const forms[] = {
      {"renaming", [](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField("a", m, 1); },
       "SCA_ConfigObj::AddField(12): Duplicate field name - a", true},
      {"renaming, unchecked", [](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField("a", m, 0); },
       nullptr, true},
      {"plain", [](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField(m); }, nullptr, true},
      {"checked", [](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField(m, 1); },
       "SCA_ConfigObj::AddField(13): Duplicate field name - a", true},
      {"without parent", [](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField(m, 1, 0); },
       "SCA_ConfigObj::AddField(14): Duplicate field name - a", false},
      {"with parent", [](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField(m, 0, 1); }, nullptr,
       true},
      {"new",
       [](SCA_ConfigObj& o, SCA_Field*) {
         SCA_Field* made = nullptr;
         return o.AddField("a", &made, 1, 1);
       },
       "SCA_ConfigObj::AddField(15): Duplicate field name - a", true},
  };
  for (const auto& form : forms) {
    SCOPED_TRACE(form.what);
    ReportCapture reports;
    SCA_ConfigObj object("o", nullptr);
    SCA_Owned<SCA_Field> first(new SCA_Field("a", nullptr));
    ASSERT_EQ(form.add(object, first.get()), 1);
    if (first->GetNext() == nullptr && object.GetFields().GetHead() == first.get()) {
      EXPECT_EQ(first->GetParent(), form.setsParent ? &object : nullptr);
      first.release();
    }
    SCA_Owned<SCA_Field> second(new SCA_Field("a", nullptr));
    second->SetValue("2", 1);
    const int linked = form.add(object, second.get());
    EXPECT_EQ(linked, form.report == nullptr ? 1 : 0);
    EXPECT_EQ(reports.All(), form.report == nullptr ? std::vector<CapturedReport>()
                                                    : Level2("SCA_ConfigObj", form.report));
    EXPECT_EQ(Names(object.GetFields()), form.report == nullptr ? "aa" : "a");
    if (linked != 0) second.release();
    char value[4];
    EXPECT_EQ(object.GetField("a", value, sizeof value), 1);
    EXPECT_STREQ(value, "") << "the first of a name stays the one that is found";
  }
}

TEST(ConfigObj, RenamesOnlyWhatItLinks) {
  ReportCapture reports;
  SCA_ConfigObj object("o", nullptr);
  object.AddField("taken", 1, 0);
  SCA_Owned<SCA_Field> member(new SCA_Field("own", nullptr));
  EXPECT_EQ(object.AddField("taken", member.get(), 1), 0);
  EXPECT_EQ(object.AddField(nullptr, member.get(), 0) + object.AddField("\x01", member.get(), 0),
            0);
  EXPECT_STREQ(member->GetName(), "own");
  EXPECT_EQ(object.AddField(member->GetName() + 1, member.get(), 1), 1);
  EXPECT_STREQ(member.release()->GetName(), "wn");

  reports.Clear();
  SCA_Field* out = nullptr;
  EXPECT_EQ(object.AddField("", &out, 0, 1), 0);
  EXPECT_EQ(reports.All(), Level2("SCA_ConfigObj", "SCA_ConfigObj::AddField: Invalid field name."));
  reports.Clear();
  EXPECT_EQ(object.AddField(nullptr, &out, 0, 1), 0);
  EXPECT_EQ(reports.All(), Level2("SCA_ConfigObj", "SCA_ConfigObj::AddField: Invalid field name."));
  EXPECT_EQ(object.AddField(nullptr, &out, 0, 0), 0);
  EXPECT_EQ(object.AddField("text", "a\x01", 0), 0);
  EXPECT_EQ(object.AddField("taken", 2, 1), 0);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(object.AddField("new", &out, 0, 1), 1);
  EXPECT_EQ(Names(object.GetFields()), "newtakenwn");
}

TEST(ConfigObj, AnswersForItsMembers) {
  SCA_ConfigObj root("root", nullptr);
  EXPECT_EQ(root.GetFieldCount() + root.IsFieldExists("x"), 0U);
  EXPECT_EQ(root.GetTotalFieldCount(), 1U);
  EXPECT_EQ(root.GetDataSize(), 5U + 11U);
  SCA_ConfigObj* child = root.AddConfigObj("child");
  child->AddField("7", "seven", 0);
  root.AddField("plain", "", 0);
  EXPECT_EQ(root.GetTotalFieldCount(), 4U);
  EXPECT_EQ(root.GetDataSize(), 16U + (6 + 11) + (2 + 6 + 5) + (6 + 1 + 5));

  SCA_Field* field = nullptr;
  child->AddField("4294967295", "most", 0);
  ASSERT_EQ(child->GetFieldById(0xFFFFFFFF, &field), 1);
  EXPECT_EQ(child->GetFields().RemoveListItem(field), 1);
  field->Destroy();
  ASSERT_EQ(child->GetFieldById(7, &field), 1);
  char path[64] = "at ";
  field->GetPathName(path);
  EXPECT_STREQ(path, "at root/child/7");
  EXPECT_EQ(root.GetFieldByIndex(1, &field), 1);
  EXPECT_STREQ(field->GetName(), "plain");
  EXPECT_EQ(root.GetFieldByIndex(2, &field), 0);
  EXPECT_EQ(field, nullptr);

  SCA_ConfigObj* object = nullptr;
  EXPECT_EQ(root.GetField("plain", &object), 1) << "whatever its kind";
  EXPECT_EQ(SCA_ToConfigObj(object), nullptr);
  EXPECT_EQ(root.GetConfigObj("plain"), nullptr);
  EXPECT_EQ(root.GetConfigObj("child"), child);
  EXPECT_EQ(root.GetField("absent", &object) + root.GetField(nullptr, &object), 0);
}

TEST(ConfigObj, HandsMembersOver) {
  SCA_Owned<SCA_ConfigObj> root(new SCA_ConfigObj("root", nullptr));
  root->AddField("before", 1, 0);
  root->AddConfigObj("child")->AddField("value", "kept", 0);
  SCA_ConfigObj* object = nullptr;
  EXPECT_EQ(root->GetField("child", &object) + root->RemoveField("child"), 2);
  EXPECT_EQ(root->RemoveField("child") + root->DeleteFieldByIndex(1), 0);
  SCA_Owned<SCA_ConfigObj> child(object);
  EXPECT_EQ(child->GetParent(), nullptr);
  EXPECT_EQ(root->DeleteFieldByIndex(0), 1);
  root.reset();
  char value[8];
  EXPECT_EQ(child->GetField("value", value, sizeof value), 1);
  EXPECT_STREQ(value, "kept");
}

TEST(ConfigObj, CopiesAndComparesDeeply) {
  ReportCapture reports;
  SCA_ConfigObj root("root", nullptr);
  SCA_ConfigObj* child = root.AddConfigObj("child");
  child->AddField("n", 7, 0);
  SCA_ConfigObj copy(root);
  const SCA_Owned<SCA_Field> clone(root.Clone());
  EXPECT_EQ(root.Compare(&copy) + root.Compare(clone.get()), 2);
  EXPECT_EQ(SCA_ToConfigObj(clone.get())->GetConfigObj("child")->GetParent(), clone.get());
  EXPECT_TRUE(reports.All().empty());
  child->AddField("more", 8, 0);
  EXPECT_EQ(root.Compare(&copy), 0);
  EXPECT_EQ(reports.All(), Level2("SCA_ConfigObj", "Different field count"));
  EXPECT_EQ(copy.CopyFrom(&root) + copy.CopyFrom(&copy) + root.Compare(&copy), 3);
  reports.Clear();
  copy.GetConfigObj("child")->GetFields().GetTail()->SetValue("9", 1);
  EXPECT_EQ(root.Compare(&copy), 0);
  EXPECT_EQ(reports.All(), Level2("SCA_Field", "Different field value"));
  EXPECT_EQ(root.SetValue("x", 1), 0) << "an object has no value";
}

TEST(ConfigObj, TakesTheContentOfOneOfItsMembers) {
  SCA_ConfigObj root("root", nullptr);
  root.AddField("gone", 1, 0);
  root.AddConfigObj("child")->AddConfigObj("grandchild")->AddField("n", 7, 0);
  EXPECT_EQ(root.TakeContent(root.GetConfigObj("child")), 1);
  EXPECT_STREQ(root.GetName(), "child");
  EXPECT_EQ(Names(root.GetFields()), "grandchild");
  EXPECT_EQ(root.GetConfigObj("grandchild")->GetParent(), &root);
  SCA_ConfigObj nameless(nullptr, nullptr);
  EXPECT_EQ(nameless.TakeContent(root.GetConfigObj("grandchild")), 1);
  EXPECT_EQ(nameless.IsValid(), 1);
  EXPECT_STREQ(root.GetFields().GetHead()->GetName(), "grandchild");
}

TEST(ConfigObj, EndsHoweverDeepItIs) {
  SCA_ConfigObj root("root", nullptr);
  SCA_ConfigObj* object = &root;
  for (int depth = 0; depth < 1000000; ++depth) object = object->AddConfigObj("o");
  EXPECT_EQ(root.Clear(), 1);
  EXPECT_EQ(root.GetFieldCount(), 0U);
}

}  // namespace
