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
  const ReportCapture reports;
  const std::string longest(SCA_MaxFieldName, 'n');
  const std::string tooLong = longest + 'n';
  EXPECT_EQ(SCA_Field(longest.c_str(), nullptr).IsValid(), 1);
  for (const char* name : {static_cast<const char*>(nullptr), "a\x01z", tooLong.c_str()}) {
    SCA_Field field(name, nullptr);
    EXPECT_EQ(field.IsValid(), 0);
    EXPECT_EQ(field.GetName(), nullptr);
    EXPECT_EQ(reports.All().back(), Level2("SCA_Field", "Invalid field name.").back());
    SCA_ConfigObj object("o", nullptr);
    EXPECT_EQ(object.AddField(&field) + object.GetFields().AddItemToHead(&field), 0);
  }
  SCA_Field field("f", nullptr);
  const std::string value(SCA_MaxFieldValue + 1, 'v');
  EXPECT_EQ(field.SetValue(value.data(), SCA_MaxFieldValue), 1);
  EXPECT_EQ(field.SetValue(value.data(), SCA_MaxFieldValue + 1) + field.SetValue("a\0b", 3) +
                field.SetValue("a\x01", 2),
            0);
  EXPECT_EQ(field.GetValueLength(), SCA_MaxFieldValue + 1) << "the old value is kept";
  EXPECT_EQ(field.SetValue("", 0), 1);
  EXPECT_EQ(field.GetValueLength(), 1U) << "an empty value is one";
  EXPECT_EQ(field.SetValue(nullptr, 7), 1);
  EXPECT_EQ(field.GetValueLength(), 0U);
}

TEST(Field, ReadsItsRecordAndNoOther) {
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
      {record(longName, longValue), 4 + SCA_MaxFieldName + SCA_MaxFieldValue},
      {record(longName + 'n', "v"), 0},
      {"2\x01n\x01v\x01", 0},
      {"1?n\x01v\x01", 0},
      {"1\x01n\x01v", 0},
  };
  SCA_ConfigObj parent("p", nullptr);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.bytes.substr(0, 20));
    const std::string bytes = "x" + row.bytes;
    SCA_Field read("old", nullptr);
    unsigned long position = 1;
    EXPECT_EQ(read.ReadData(bytes.c_str(), &position, &parent), row.end > 0 ? 1 : 0);
    EXPECT_EQ(position, 1 + row.end);
    EXPECT_EQ(read.GetParent(), row.end > 0 ? &parent : nullptr);
  }
}

TEST(Field, ComparesAndCopiesItsOwnKindOnly) {
  SCA_Field field("n", nullptr);
  field.SetValue("v", 1);
  SCA_Field same("n", nullptr);
  same.SetValue("v", 1);
  EXPECT_EQ(field.Compare(&same), 1);
  SCA_Field otherName("m", nullptr);
  SCA_Field otherValue("n", nullptr);
  otherValue.SetValue("w", 1);
  SCA_Field none("n", nullptr);
  SCA_ConfigObj object("another name", nullptr);
  const std::pair<SCA_Field*, const char*> rows[] = {{&otherName, "Different field name"},
                                                     {&otherValue, "Different field value"},
                                                     {&none, "Different field value"},
                                                     {&object, "Different field type"}};
  const ReportCapture reports;
  for (const auto& [other, difference] : rows) {
    EXPECT_EQ(field.Compare(other), 0);
    EXPECT_EQ(reports.All().back(), Level2("SCA_Field", difference).back());
  }
  same.SetValue("", 0);
  EXPECT_EQ(same.Compare(&none), 0) << "an empty value and none";
  EXPECT_EQ(field.CopyFrom(&object) + object.CopyFrom(&field), 0);
  const SCA_Owned<SCA_Field> clone(none.Clone());
  EXPECT_EQ(clone->Compare(&none), 1);
}

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
  struct {
    std::function<int(SCA_FieldList&)> operation;
    int result;
    const char* names;
  } const rows[] = {
      {[&](SCA_FieldList& l) { return l.AddItemToHead(make("x")); }, 1, "xabcb"},
      {[&](SCA_FieldList& l) { return l.InsertItemAfter(make("x"), l.GetTail()); }, 1, "abcbx"},
      {[&](SCA_FieldList& l) { return l.InsertItemAfter(l.GetHead(), nullptr); }, 0, "abcb"},
      {[](SCA_FieldList& l) { return l.DeleteItem("b"); }, 1, "acb"},
      {[](SCA_FieldList& l) { return l.DeleteHeadItem() + l.DeleteTailItem(); }, 2, "bc"},
      {[](SCA_FieldList& l) { return l.MoveItemToTail("b"); }, 1, "acbb"},
      {[](SCA_FieldList& l) { return l.MoveItemUp("c"); }, 1, "acbb"},
      {[](SCA_FieldList& l) { return l.MoveItemDown("a"); }, 1, "bacb"},
      {[&](SCA_FieldList& l) {
         return l.GetItem("c", &out) + l.GetItemByPos(3, &out) + l.GetHeadItem(&out) +
                l.IsItemValid("b") + static_cast<int>(l.GetNameByPos(2)[0] == 'c');
       },
       5, "abcb"},
      {[&](SCA_FieldList& l) {
         return l.GetItem(nullptr, &out) + l.GetItemByPos(4, &out) + l.IsItemValid("x") +
                static_cast<int>(l.GetNameByPos(4) != nullptr);
       },
       0, "abcb"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.names);
    SCA_FieldList list;
    for (const char* name : {"a", "b", "c", "b"}) list.AddItemToTail(make(name));
    EXPECT_EQ(row.operation(list), row.result);
    EXPECT_EQ(Names(list), row.names);
  }
}

template <class T>
void ExpectKept(T number) {
  SCA_ConfigObj object("o", nullptr);
  T read = 0;
  EXPECT_EQ(object.AddField("n", number, 0) + object.GetField("n", &read), 2);
  EXPECT_EQ(read, number);
}

TEST(ConfigObj, NumbersSurviveAtTheEndsOfTheirTypes) {
  ExpectKept<unsigned short>(USHRT_MAX);
  ExpectKept(INT_MIN);
  ExpectKept(UINT_MAX);
  ExpectKept(0xFFFFFFFFUL);
  ExpectKept(ULLONG_MAX);
  SCA_ConfigObj object("o", nullptr);
  EXPECT_EQ(object.AddField("wide", (1UL << 32) + 1, 0), 0);
  object.AddField("beyond", (1ULL << 32) + 1, 0);
  object.AddField("most", UINT_MAX, 0);
  object.AddField("least", INT_MIN, 0);
  object.AddConfigObj("child");
  unsigned short us = 0;
  int i = 0;
  unsigned long ul = 7;
  EXPECT_EQ(object.GetField("beyond", &ul) + object.GetField("most", &us) +
                object.GetField("most", &i) + object.GetField("least", &ul) +
                object.GetField("child", &ul),
            0)
      << "what does not fit the type is refused";
  for (const char* text : {"", " 1", "1 ", "+1", "0x1", "1.0", "1e3", "x"}) {
    SCA_ConfigObj bad("o", nullptr);
    bad.AddField("n", text, 0);
    EXPECT_EQ(bad.GetField("n", &ul), 0) << text;
  }
  EXPECT_EQ(ul, 7U) << "a failed read writes nothing";
}

TEST(ConfigObj, EveryLinkingFormChecksBeforeItChanges) {
  struct {
    std::function<int(SCA_ConfigObj&, SCA_Field*)> add;
    int form;  // as the report of a duplicate has it; 0 when it is linked all the same
    bool setsParent;
  } const forms[] = {
      {[](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField("a", m, 1); }, 12, true},
      {[](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField("a", m, 0); }, 0, true},
      {[](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField(m); }, 0, true},
      {[](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField(m, 1); }, 13, true},
      {[](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField(m, 1, 0); }, 14, false},
      {[](SCA_ConfigObj& o, SCA_Field* m) { return o.AddField(m, 0, 1); }, 0, true},
  };
  for (const auto& form : forms) {
    SCOPED_TRACE(&form - forms);
    const ReportCapture reports;
    SCA_ConfigObj object("o", nullptr);
    auto* first = new SCA_Field("a", nullptr);
    ASSERT_EQ(form.add(object, first), 1);
    EXPECT_EQ(first->GetParent(), form.setsParent ? &object : nullptr);
    SCA_Owned<SCA_Field> second(new SCA_Field("a", nullptr));
    if (form.form == 0) {
      EXPECT_EQ(form.add(object, second.release()), 1);
      EXPECT_EQ(Names(object.GetFields()), "aa");
      continue;
    }
    EXPECT_EQ(form.add(object, second.get()), 0);
    EXPECT_EQ(Names(object.GetFields()), "a");
    EXPECT_EQ(reports.All(),
              Level2("SCA_ConfigObj", "SCA_ConfigObj::AddField(" + std::to_string(form.form) +
                                          "): Duplicate field name - a"));
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

  SCA_Field* out = nullptr;
  EXPECT_EQ(object.AddField("", &out, 0, 1) + object.AddField(nullptr, &out, 0, 0) +
                object.AddField("text", "a\x01", 0) + object.AddField("taken", 2, 1),
            0);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(object.AddField("new", &out, 0, 1), 1);
  EXPECT_EQ(Names(object.GetFields()), "newtakenwn");
}

TEST(ConfigObj, AnswersForItsMembers) {
  SCA_ConfigObj root("root", nullptr);
  SCA_ConfigObj* child = root.AddConfigObj("child");
  child->AddField("7", "seven", 0);
  child->AddField("4294967295", "most", 0);
  root.AddField("plain", "", 0);
  EXPECT_EQ(root.GetTotalFieldCount(), 5U);
  SCA_Field* field = nullptr;
  EXPECT_EQ(child->GetFieldById(0xFFFFFFFF, &field), 1);
  ASSERT_EQ(child->GetFieldById(7, &field), 1);
  char path[64] = "at ";
  field->GetPathName(path);
  EXPECT_STREQ(path, "at root/child/7");
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
