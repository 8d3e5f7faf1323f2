#include "kestrel/DICOMObject.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/core/CoreTestSupport.h"

namespace {

using core_test::Element;

constexpr uint16_t Code(const char* vr) { return MakeTypeCode(vr[0], vr[1]); }

uint32_t ValueU32(const VR* element) {
  uint32_t value = 0;
  if (element && element->Data && element->Length == 4) std::memcpy(&value, element->Data, 4);
  return value;
}

// An item that counts its own destruction, to prove that sequence items die with their owner.
int g_destroyedItems = 0;
class CountedItem : public DICOMDataObject {
 public:
  ~CountedItem() override { ++g_destroyedItems; }
};

// A fixed pseudo-random series of adds, removals and lookups, every lookup checked against a
// vector, so a cursor left on the wrong node after a removal shows up.
TEST(ArrayTest, IndexAccessMatchesVectorThroughAddsAndRemovals) {
  Array<int> list;
  std::vector<int> model;
  uint32_t state = 12345;
  auto next = [&state] { return (state = state * 1103515245u + 12345u) >> 16 & 0x7FFF; };
  for (int step = 0; step < 4000; ++step) {
    uint32_t op = next() % 8;
    SCOPED_TRACE("step " + std::to_string(step) + ", size " + std::to_string(model.size()));
    if (op < 3 || model.empty()) {
      list.Add(step);
      model.push_back(step);
    } else if (op == 3) {
      uint32_t index = next() % model.size();
      ASSERT_TRUE(list.RemoveAt(index));
      model.erase(model.begin() + index);
    } else {  // mostly the step after the cursor, sometimes a jump
      uint32_t index = op < 6 ? std::min<uint32_t>(list.CursorIndex + 1, model.size() - 1)
                              : next() % model.size();
      ASSERT_EQ(list.Get(index), model[index]) << "index " << index;
      ASSERT_EQ(list.CursorIndex, index);
      ASSERT_EQ(list.Cursor->Data, model[index]);
    }
    ASSERT_EQ(list.GetSize(), model.size());
  }
  // Out of range: a null value, the cursor stays where it was, nothing is removed.
  uint32_t cursor = list.CursorIndex;
  EXPECT_EQ(list.Get(list.GetSize()), 0);
  EXPECT_EQ(list.CursorIndex, cursor);
  EXPECT_FALSE(list.RemoveAt(list.GetSize()));
  Array<int*> pointers;
  EXPECT_EQ(pointers.Get(0), nullptr);
}

// Every ordering of a multiset with duplicates comes out sorted; the heap property holds after
// every push; popping an empty heap leaves the slot as it was.
TEST(PQueueOfPtrTest, PopsAscendingForEveryPushOrder) {
  std::vector<int> values = {1, 1, 2, 3, 4, 5, 9};
  std::vector<int> order = values;
  do {
    PQueueOfPtr<int*> heap;
    std::vector<int> storage = order;
    for (int& v : storage) {
      heap.Push(&v);
      for (uint32_t i = 1; i < heap.GetSize(); ++i)
        ASSERT_LE(*heap.Get((i - 1) / 2), *heap.Get(i)) << "heap broken at " << i;
    }
    std::vector<int> popped;
    while (heap.GetSize()) popped.push_back(*heap.Pop());
    ASSERT_EQ(popped, values) << "push order " << ::testing::PrintToString(order);
    EXPECT_EQ(*heap.Pop(), 9);
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST(VRTest, ConstructorsRoundAllocateOrAdopt) {
  struct Case {
    uint32_t length;
    bool allocate;
    uint32_t stored;
  };
  for (const Case& c : {Case{5, true, 6}, Case{4, true, 4}, Case{7, false, 8}, Case{2, false, 2}}) {
    SCOPED_TRACE(::testing::Message() << "length " << c.length << " allocate " << c.allocate);
    VR element(0x0010, 0x0010, c.length, c.allocate);
    EXPECT_EQ(element.Length, c.stored);
    EXPECT_EQ(element.Data != nullptr, c.allocate);
    if (c.allocate && c.length % 2) {
      EXPECT_EQ(static_cast<char*>(element.Data)[c.stored - 1], 0);
    }
    EXPECT_TRUE(element.OwnsData);
    EXPECT_EQ(element.Reserved, 0u);
    EXPECT_EQ(element.SequenceItems, nullptr);
    EXPECT_EQ(element.TypeCode, 0);
  }
  char* adopted = new char[5];
  VR adopting(0x0008, 0x0060, 5, static_cast<void*>(adopted));
  EXPECT_EQ(adopting.Length, 5u);  // no rounding, no copy
  EXPECT_EQ(adopting.Data, adopted);
  EXPECT_TRUE(adopting.OwnsData);
  // Not owned: destroying the element must leave the caller's static buffer alone (ASan).
  static char literal[] = "ABC";
  delete new VR(0x0008, 0x0070, 3, literal, false);
  EXPECT_STREQ(literal, "ABC");
}

// Three elements of group 0008 and one of 0010 pushed out of order: two group length elements
// of 12 bytes plus each element's 8 header bytes and even value.
TEST(DICOMObjectTest, PopsInTagOrderAndKeepsLengths) {
  DICOMDataObject object;
  ASSERT_TRUE(object.Push(Element(0x0010, 0x0010, "PN", "Doe^J")));  // 5, counted 6
  ASSERT_TRUE(object.Push(Element(0x0008, 0x0060, "CS", "MR")));
  ASSERT_TRUE(object.Push(Element(0x0008, 0x0016, "UI", "1.2.3")));  // 5, counted 6
  ASSERT_TRUE(object.Push(Element(0x0008, 0x0020, "DA", "20240101")));
  ASSERT_EQ(object.Length, 12u + 12u + (6 + 2 + 6 + 8) + 32u);
  struct Expected {
    uint16_t group, element;
    uint32_t groupLength;  // the value, for element 0
    uint32_t objectLengthAfter;
  };
  const Expected expected[] = {{0x0008, 0x0000, 40, 66}, {0x0008, 0x0016, 0, 52},
                               {0x0008, 0x0020, 0, 36},  {0x0008, 0x0060, 0, 26},
                               {0x0010, 0x0000, 14, 14}, {0x0010, 0x0010, 0, 0}};
  for (const Expected& e : expected) {
    SCOPED_TRACE(::testing::Message() << std::hex << e.group << "," << e.element);
    std::unique_ptr<VR> popped(object.Pop());
    ASSERT_NE(popped, nullptr);
    EXPECT_EQ(popped->Group, e.group);
    EXPECT_EQ(popped->Element, e.element);
    if (e.element == 0) {
      EXPECT_EQ(popped->TypeCode, Code("UL"));
      EXPECT_EQ(ValueU32(popped.get()), e.groupLength);
    }
    EXPECT_EQ(object.Length, e.objectLengthAfter);
  }
  EXPECT_EQ(object.Pop(), nullptr);
  EXPECT_FALSE(object.Sealed);  // drained: filling again
  EXPECT_TRUE(object.Push(Element(0x0008, 0x0060, "CS", "CT")));
  EXPECT_EQ(object.Length, 12u + 10u);
}

// (0002,0001) OB has the long explicit header: the group counts 4 bytes more than the object,
// and popping it takes out only 8 header bytes, leaving those 4 behind.
TEST(DICOMObjectTest, FileMetaVersionCountsLongHeaderInGroupOnly) {
  DICOMDataObject object;
  ASSERT_TRUE(object.Push(Element(0x0002, 0x0001, "OB", std::string("\x01\x00", 2))));
  EXPECT_EQ(object.Length, 12u + 10u);
  ASSERT_TRUE(object.Push(Element(0x0002, 0x0010, "UI", std::string("1.2.840.10008.1.2\0", 18))));
  std::unique_ptr<VR> groupLength(object.Pop());
  EXPECT_EQ(ValueU32(groupLength.get()), 14u + 26u);
  delete object.Pop();  // (0002,0001)
  ASSERT_NE(object.PopGroup, nullptr);
  EXPECT_EQ(object.PopGroup->Length, 26u + 4u);
  delete object.Pop();
  EXPECT_EQ(object.PopGroup->Length, 4u);
  EXPECT_EQ(object.Length, 0u);

  DICOMDataObject other;  // any other VR: the short 8 bytes in the group too
  ASSERT_TRUE(other.Push(Element(0x0002, 0x0001, nullptr, std::string("\x01\x00", 2))));
  std::unique_ptr<VR> otherLength(other.Pop());
  EXPECT_EQ(ValueU32(otherLength.get()), 10u);
}

TEST(DICOMObjectTest, GroupLengthsOfOrdinaryGroupsAreDiscarded) {
  for (uint16_t group : {0x0010, 0x0008, 0x7FE0, 0x0000, 0x0002}) {
    SCOPED_TRACE(::testing::Message() << "group " << std::hex << group);
    bool kept = group == 0x0000 || group == 0x0002;
    DICOMDataObject object;
    // Taken either way: a discarded one is destroyed (ASan sees a double free or a leak).
    EXPECT_TRUE(object.Push(Element(group, 0x0000, "UL", std::string("\xE7\x03\x00\x00", 4))));
    EXPECT_EQ(object.Find(group, 0) != nullptr, kept);
    EXPECT_EQ(object.Length, kept ? 12u + 12u : 0u);
    if (!kept) continue;
    // The synthesized group length comes first, then the caller's own.
    std::unique_ptr<VR> synthesized(object.Pop()), pushed(object.Pop());
    EXPECT_EQ(ValueU32(synthesized.get()), 12u);
    EXPECT_EQ(ValueU32(pushed.get()), 999u);
  }
  DICOMDataObject object;
  auto* undefined = new VR(0x0009, 0x1010, 0, false);
  undefined->Length = 0xFFFFFFFF;
  ASSERT_TRUE(object.Push(undefined));
  EXPECT_EQ(undefined->Length, 0u);
  EXPECT_EQ(object.Length, 12u + 8u);
}

// Find and GetUInt16 work while filling; draining refuses pushes and sees nothing until empty.
TEST(DICOMObjectTest, FindGetUInt16AndDraining) {
  DICOMCommandObject command;
  command.Push(Element(0x0000, 0x0100, "US", std::string("\x30\x80", 2)));
  command.Push(Element(0x0000, 0x0900, "UL", std::string("\x01\x00\x00\x00", 4)));
  command.Push(new VR(0x0000, 0x0800, 2, false));  // length 2, no value
  command.Push(Element(0x0010, 0x0020, "LO", "ID"));
  struct Case {
    uint16_t group, element;
    bool found;
    uint16_t value;
  };
  for (const Case& c : {Case{0x0000, 0x0100, true, 0x8030}, Case{0x0000, 0x0900, true, 0},
                        Case{0x0000, 0x0800, true, 0}, Case{0x0000, 0x0110, false, 0},
                        Case{0x0010, 0x0020, true, 0x4449}, Case{0x0020, 0x0010, false, 0}}) {
    SCOPED_TRACE(::testing::Message() << std::hex << c.group << "," << c.element);
    EXPECT_EQ(command.Find(c.group, c.element) != nullptr, c.found);
    EXPECT_EQ(command.GetUInt16(c.group, c.element), c.value);
  }
  delete command.Pop();
  EXPECT_TRUE(command.Sealed);
  VR* late = Element(0x0008, 0x0060, "CS", "MR");
  EXPECT_FALSE(command.Push(late));  // the caller keeps it
  delete late;
  auto* item = new DICOMDataObject;
  EXPECT_FALSE(command.PushItem(item));
  delete item;
  EXPECT_EQ(command.Find(0x0010, 0x0020), nullptr);
  EXPECT_EQ(command.GetUInt16(0x0000, 0x0100), 0);
  while (VR* popped = command.Pop()) delete popped;
  EXPECT_FALSE(command.Sealed);
  EXPECT_TRUE(command.Push(Element(0x0008, 0x0060, "CS", "MR")));
  EXPECT_NE(command.Find(0x0008, 0x0060), nullptr);
}

// Each item adds its own Length plus 16; the first also adds 16 for the sequence.
TEST(DICOMObjectTest, PushItemAccountingAndRefusals) {
  DICOMDataObject object;
  auto* orphan = new DICOMDataObject;
  EXPECT_FALSE(object.PushItem(orphan));  // nothing pushed yet
  delete orphan;
  ASSERT_TRUE(object.Push(Element(0x0008, 0x1140, "SQ", "")));
  EXPECT_EQ(object.Length, 20u);
  auto* first = new DICOMDataObject;
  first->Push(Element(0x0008, 0x1150, "UI", std::string("1.2\0", 4)));  // Length 24
  auto* second = new DICOMDataObject;
  second->Push(Element(0x0008, 0x1150, "UI", std::string("1.2\0", 4)));
  second->Push(Element(0x0010, 0x0010, "PN", "AB"));  // Length 24 + 22
  ASSERT_TRUE(object.PushItem(first));
  EXPECT_EQ(object.Length, 20u + 16u + 24u + 16u);
  ASSERT_TRUE(object.PushItem(second));
  EXPECT_EQ(object.Length, 76u + 46u + 16u);

  std::unique_ptr<VR> groupLength(object.Pop());
  EXPECT_EQ(ValueU32(groupLength.get()), 8u + 16u + 40u + 62u);
  std::unique_ptr<VR> sequence(object.Pop());
  ASSERT_NE(sequence->SequenceItems, nullptr);
  ASSERT_EQ(sequence->SequenceItems->GetSize(), 2u);
  EXPECT_EQ(sequence->SequenceItems->Get(1), second);
  // Popping takes out the element's own 8 bytes only; what its items added stays counted.
  EXPECT_EQ(object.Length, 138u - 12u - 8u);
  EXPECT_EQ(object.Pop(), nullptr);

  ASSERT_TRUE(object.Push(Element(0x0008, 0x0060, "CS", "MR")));
  EXPECT_TRUE(object.Clear());
  EXPECT_EQ(object.Find(0x0008, 0x0060), nullptr);
  auto* afterClear = new DICOMDataObject;
  EXPECT_FALSE(object.PushItem(afterClear));  // Clear forgets the last element
  delete afterClear;
}

// Items, nested ones included, are destroyed with the object or element that holds them,
// whether it was never popped, partly popped, or the element was popped and deleted.
TEST(DICOMObjectTest, SequenceItemsAreDestroyedWithTheirOwner) {
  for (int pops : {0, 1, 2, 3}) {
    SCOPED_TRACE("pops before destruction " + std::to_string(pops));
    g_destroyedItems = 0;
    {
      DICOMDataObject object;
      object.Push(Element(0x0008, 0x1140, "SQ", ""));
      for (int i = 0; i < 2; ++i) {
        auto* item = new CountedItem;
        item->Push(Element(0x0040, 0xA730, "SQ", ""));
        item->PushItem(new CountedItem);
        object.PushItem(item);
      }
      object.Push(Element(0x0010, 0x0010, "PN", "A^B "));
      for (int i = 0; i < pops; ++i) delete object.Pop();
    }
    EXPECT_EQ(g_destroyedItems, 4);
  }
}

}  // namespace
