// Index allocators beside a naive reference, and what tables that share one can do to each other.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "platform/asic/BankAwareBlockAllocator.h"
#include "platform/asic/FirstFreeIndexAllocator.h"
#include "platform/asic/GenericIndexAllocatorStub.h"
#include "platform/asic/SwTable.h"
#include "platform/l3/L3EcmpGroupLevel1SharedAllocator.h"
#include "platform/l3/L3EcmpMember1SharedAllocator.h"

namespace {

using Asic::Index;

/// A key of a size; two of one number are the same.
struct Key {
  U32 number;
  U32 size = 1;
  std::shared_ptr<void> kept = nullptr;  ///< something whose end the test sees

  U32 hash(U32 seed) const { return seed ^ number / 4; }  // four keys of one hash
  U32 getBlockSize() const { return size; }
  friend bool operator==(Key const& a, Key const& b) { return a.number == b.number; }
};

constexpr Vell::TypeData keyData{"Key", {}, {}};
constexpr Vell::TypeData const* types[] = {&keyData, &keyData};
constinit Vell::ModuleInspectData module{"IndexAllocatorTest", types};
constexpr Vell::ZarnType blockType{&module, 0};
constexpr Vell::ZarnType singleType{&module, 1};

class Table final : public Asic::SwKnownIndexTable {
 public:
  Table() : SwKnownIndexTable("") {}
  Vell::ZarnType typeData() const override { return {&module, 0}; }
};

template <class Allocator>
class Concrete final : public Allocator {
 public:
  Vell::ZarnType typeData() const override { return {&module, 0}; }
};

/// An allocator that tables have entered, each with a set of the keys that it holds.
template <class Allocator>
struct Shared {
  Vell::Ptr<Concrete<Allocator>> allocator{new Concrete<Allocator>};
  Vell::Ptr<Table> first{new Table}, second{new Table};
  std::set<U32> held[2];

  explicit Shared(U32 size, U32 banks = 1) {
    enter(*first, 0, blockType);
    enter(*second, 1, singleType);
    allocator->sizeIs(size);
    if constexpr (requires { allocator->bankCountIs(banks); }) {
      allocator->splAllocationIs(blockType);
      allocator->bankCountIs(banks);
      allocator->smallBlockRowsIs(2);
    }
  }
  void enter(Table& table, U32 number, Vell::ZarnType type, U32 rows = 0) {
    auto const holds = [this, number](void const* key) {
      return held[number].contains(static_cast<Key const*>(key)->number);
    };
    allocator->setTableAttr(table, {type, &Asic::indexKeyType<Key>, holds, rows});
  }
  void release(U32 number) {
    Key const key{number};
    allocator->releaseIndexFromTable(blockType, &key, *first);
  }
};

/// Who holds what, found out by looking at every index.
class Reference {
 public:
  Reference(U32 size, U32 banks) : owner_(size), bank_((size + banks - 1) / banks) {}

  bool isFree(U32 first, U32 size) const {
    if (size == 0 || first + size > owner_.size()) return false;
    if (first / bank_ != (first + size - 1) / bank_) return false;
    for (U32 i = first; i < first + size; ++i)
      if (owner_[i]) return false;
    return true;
  }
  bool hasRoom(U32 size) const {
    for (U32 i = 0; i < owner_.size(); ++i)
      if (isFree(i, size)) return true;
    return false;
  }
  void take(U32 first, U32 size, U32 key) {
    for (U32 i = first; i < first + size; ++i) owner_[i] = key;
    first_[key] = first;
  }
  void release(U32 key) {
    for (auto& each : owner_)
      if (each == key) each.reset();
    first_.erase(key);
  }
  std::optional<U32> firstOf(U32 key) const {
    auto const found = first_.find(key);
    return found == first_.end() ? std::nullopt : std::optional(found->second);
  }
  std::optional<U32> ownerOf(U32 index) const { return owner_[index]; }
  U32 used() const {
    return static_cast<U32>(std::ranges::count_if(owner_, [](auto& each) { return !!each; }));
  }

 private:
  std::vector<std::optional<U32>> owner_;
  std::map<U32, U32> first_;
  U32 bank_;
};

template <class Allocator>
Index allocated(Allocator& allocator, Key const& key) {
  if constexpr (requires { allocator.newIndexForBlock(blockType, &key); })
    return allocator.newIndexForBlock(blockType, &key);
  else
    return allocator.newIndexForKey(blockType, &key);
}

template <class Allocator>
void agreesWithAReference(U32 size, U32 banks, U32 largest) {
  Shared<Allocator> shared(size, banks);
  auto& allocator = *shared.allocator;
  Reference reference(size, banks);
  std::mt19937 random(5);
  for (U32 step = 0; step < 40'000; ++step) {
    Key const key{static_cast<U32>(random() % 60), 1 + static_cast<U32>(random() % largest)};
    U32 const index = random() % (size + 2);
    auto const first = reference.firstOf(key.number);
    switch (random() % 4) {
      case 0: {
        auto const got = allocated(allocator, key);
        ASSERT_EQ(got.isExhausted(), !first && !reference.hasRoom(key.size));
        if (first) {
          ASSERT_EQ(got.value(), *first);
        } else if (!got.isExhausted()) {
          ASSERT_TRUE(reference.isFree(got.value(), key.size));
          reference.take(got.value(), key.size, key.number);
        }
        break;
      }
      case 1: {
        bool const fits = first ? *first == index : reference.isFree(index, key.size);
        ASSERT_EQ(allocator.recoverIndexForKey(index, blockType, &key), fits);
        if (fits && !first) reference.take(index, key.size, key.number);
        break;
      }
      case 2:
        shared.release(key.number);
        reference.release(key.number);
        break;
      default:
        if (index < size && random() % 8 == 0) {
          allocator.markIndexAvailable(index, blockType);
          if (auto const owner = reference.ownerOf(index)) reference.release(*owner);
        }
    }
    ASSERT_EQ(allocator.totalUsedIndices(), reference.used());
    auto const found = allocator.keyForIndex(index, blockType);
    auto const* const gif = found.getGif();
    auto const owner = index < size ? reference.ownerOf(index) : std::nullopt;
    ASSERT_EQ(gif != nullptr, owner.has_value());
    ASSERT_EQ(allocator.isIndexAssigned(index, blockType), owner.has_value());
    if (!owner) continue;
    ASSERT_EQ(static_cast<Key const*>(gif->voidPtrIs(blockType))->number, *owner);
  }
}

TEST(IndexAllocator, singleIndicesAgreeWithAReference) {
  agreesWithAReference<Asic::FirstFreeIndexAllocator>(50, 1, 1);
}
TEST(IndexAllocator, blocksAgreeWithAReferenceAndNeverCrossABank) {
  agreesWithAReference<Asic::BankAwareBlockAllocator>(90, 4, 7);
}

TEST(IndexAllocator, aCandidateForAnotherPlaceIsTheLastToBeGiven) {
  Shared<Asic::FirstFreeIndexAllocator> shared(4);
  auto& allocator = *shared.allocator;
  for (U32 index : {0, 0, 2, 3, 9}) allocator.candidateIs(index);
  EXPECT_EQ(allocated(allocator, Key{1}).value(), 1u);
  Key const owner{2};
  EXPECT_TRUE(allocator.recoverIndexForKey(3, blockType, &owner)) << "whose place it was";
  EXPECT_EQ(allocated(allocator, Key{4}).value(), 0u) << "there is no other";
  shared.release(1);
  shared.release(4);
  EXPECT_EQ(allocated(allocator, Key{5}).value(), 1u) << "0 is a candidate as before";
  for (U32 index : {0, 2, 3}) allocator.candidateDel(index);
  EXPECT_EQ(allocated(allocator, Key{6}).value(), 2u) << "0 is still another's candidate";
  allocator.candidateDel(0);
  shared.release(6);
  EXPECT_EQ(allocated(allocator, Key{7}).value(), 0u);
}

TEST(IndexAllocator, theLowestIndexAndTheSmallestRunComeFirst) {
  Shared<Asic::FirstFreeIndexAllocator> single(300'000);
  for (U32 i = 0; i < 70'000; ++i) ASSERT_EQ(allocated(*single.allocator, Key{i}).value(), i);
  for (U32 i : {64, 4096, 69'999}) single.release(i);
  for (U32 expected : {64, 4096, 69'999, 70'000})
    EXPECT_EQ(allocated(*single.allocator, Key{100'000 + expected}).value(), expected);

  Shared<Asic::BankAwareBlockAllocator> blocks(400, 4);
  auto& allocator = *blocks.allocator;
  EXPECT_EQ(allocated(allocator, Key{1, 60}).value(), 0u);
  EXPECT_EQ(allocated(allocator, Key{2, 30}).value(), 60u) << "what is left of a bank";
  EXPECT_EQ(allocated(allocator, Key{3, 2}).value(), 98u) << "a small one from the high end";
  EXPECT_EQ(allocated(allocator, Key{4, 9}).value(), 100u);
  EXPECT_EQ(allocated(allocator, Key{5, 8}).value(), 90u);
  EXPECT_EQ(allocator.longestFreeRun(), 100u);
  EXPECT_TRUE(allocated(allocator, Key{6, 101}).isExhausted());
  EXPECT_TRUE(allocated(allocator, Key{7, 0}).isExhausted()) << "no rows, nothing to hold";
}

TEST(IndexAllocator, sizesThatAreUnknownOneOrGrow) {
  Shared<Asic::FirstFreeIndexAllocator> unknown(0);
  EXPECT_EQ(unknown.allocator->size(), Asic::GenericIndexAllocator::sizeIfUnknown);
  unknown.allocator->sizeIs(2);
  unknown.allocator->sizeIs(0);
  EXPECT_EQ(unknown.allocator->size(), 2u) << "one table knows more than the others";
  Shared<Asic::FirstFreeIndexAllocator> assumed(0);
  assumed.allocator->candidateIs(0);
  assumed.allocator->candidateIs(1);
  assumed.allocator->candidateDel(0);
  EXPECT_EQ(allocated(*assumed.allocator, Key{1}).value(), 0u);
  assumed.allocator->sizeIs(2);
  EXPECT_EQ(assumed.allocator->size(), Asic::GenericIndexAllocator::sizeIfUnknown) << "in use";
  Shared<Asic::FirstFreeIndexAllocator> one(1);
  EXPECT_EQ(allocated(*one.allocator, Key{1}).value(), 0u);
  EXPECT_TRUE(allocated(*one.allocator, Key{2}).isExhausted());
  one.allocator->sizeIs(5000);
  for (U32 i = 1; i < 5000; ++i) ASSERT_EQ(allocated(*one.allocator, Key{i + 1}).value(), i);
  EXPECT_TRUE(allocated(*one.allocator, Key{9999}).isExhausted());
  one.allocator->sizeIs(10);
  EXPECT_EQ(one.allocator->size(), 5000u) << "never smaller";

  Shared<Asic::BankAwareBlockAllocator> blocks(40, 4);
  allocated(*blocks.allocator, Key{1, 10});
  blocks.allocator->sizeIs(45);
  EXPECT_TRUE(allocated(*blocks.allocator, Key{2, 11}).isExhausted()) << "edges stay";
  for (U32 i = 0; i < 3; ++i)
    EXPECT_FALSE(allocated(*blocks.allocator, Key{10 + i, 10}).isExhausted());
  EXPECT_EQ(allocated(*blocks.allocator, Key{3, 5}).value(), 40u);
}

// The first has 2 rows and the second 8, or does not say; they have the same keys.
TEST(IndexAllocator, noTableGetsAnIndexThatItHasNoRowFor) {
  for (U32 rows : {8, 0}) {
    Shared<Asic::FirstFreeIndexAllocator> shared(8);
    auto& allocator = *shared.allocator;
    shared.enter(*shared.first, 0, blockType, 2);
    shared.enter(*shared.second, 1, blockType, rows);
    auto const* const small = shared.first.get();
    auto const* const large = shared.second.get();
    auto const index = [&](U32 number, Asic::SwTable const* asking) {
      Key const key{number};
      return allocator.newIndexForKey(blockType, &key, asking).value();
    };
    EXPECT_EQ(allocator.sizeFor(*small), 2u);
    EXPECT_EQ(allocator.sizeFor(*large), 8u);
    Key const third{3};
    EXPECT_FALSE(allocator.requestIndexForKey(2, blockType, &third, small));
    shared.held[1] = {1, 2, 3};
    for (U32 number : {1, 2, 3}) EXPECT_EQ(index(number, large), number - 1);
    EXPECT_EQ(index(1, small), 0u) << "one key, one index";
    EXPECT_EQ(index(3, small), Index().value()) << "its index lies beyond";
    EXPECT_TRUE(allocator.indexForKey(blockType, &third, small).isExhausted());
    EXPECT_FALSE(allocator.recoverIndexForKey(2, blockType, &third, small));
    EXPECT_EQ(index(4, small), Index().value()) << "full, as far as it reaches";

    // Whoever has no row for it does not keep it either.
    shared.held[0] = {3, 4};
    shared.held[1] = {2};
    EXPECT_FALSE(allocator.isIndexVerticallyShared(2, blockType, *large));
    allocator.releaseIndexFromTable(blockType, &third, *large);
    EXPECT_FALSE(allocator.isIndexAssigned(2, blockType));
    EXPECT_EQ(index(4, large), 2u) << "the smaller table has the key, and no room";
    shared.release(1);
    EXPECT_EQ(index(3, large), 0u) << "where both have a row";
    EXPECT_EQ(index(3, small), 0u);
    shared.held[1] = {2, 3, 4};
    allocator.tableAttrDel(*small);
    EXPECT_EQ(index(5, large), 3u);
  }
}

TEST(IndexAllocator, blocksStayWithinTheTableThatAsks) {
  Shared<Asic::BankAwareBlockAllocator> shared(40, 2);
  auto& allocator = *shared.allocator;
  shared.enter(*shared.first, 0, blockType, 26);
  auto const index = [&](Key const& key) {
    return allocator.newIndexForBlock(blockType, &key, shared.first.get()).value();
  };
  EXPECT_EQ(index({1, 15}), 0u);
  EXPECT_EQ(index({2, 6}), 20u) << "the rest of the first bank is too short";
  EXPECT_EQ(index({3, 6}), Index().value());
  EXPECT_EQ(index({4, 5}), 15u);
  shared.release(2);
  EXPECT_EQ(index({5, 2}), 24u) << "the high end of its rows";
}

TEST(IndexAllocator, theEndOfAKeyMayCallBack) {
  Shared<Asic::BankAwareBlockAllocator> shared(8, 4);
  auto& allocator = *shared.allocator;
  Index again;
  {
    std::shared_ptr<void> const noted(nullptr, [&](void*) {
      again = allocated(allocator, Key{2, 2});
    });
    allocated(allocator, Key{1, 2, noted});
  }
  auto const first = Key{1};
  auto const index = allocator.indexForKey(blockType, &first);
  shared.release(1);
  EXPECT_EQ(again, index);
}

TEST(SharedAllocators, thereIsOneOfEachTypeFromTheFirstTableToTheLast) {
  using Stub = Asic::GenericIndexAllocatorStub;
  auto const type = TessarL3Tunnel::L3EcmpGroupLevel1SharedAllocator::type();
  Vell::Ptr<Table> const one(new Table), two(new Table);
  auto const shared = Stub::createSharedAllocator(one->typeData(), type, *one);
  EXPECT_EQ(Stub::createSharedAllocator(two->typeData(), type, *two), shared);
  auto const other = TessarL3Common::L3EcmpMember1SharedAllocator::type();
  EXPECT_NE(Stub::createSharedAllocator(one->typeData(), other, *one), shared);
  Stub::freeSharedAllocator(one->typeData(), other, *one);
  for (auto const& table : {one, two})
    shared->setTableAttr(*table,
                         {blockType, &Asic::indexKeyType<Key>, [](auto*) { return false; }});
  Stub::freeSharedAllocator(one->typeData(), type, *one);
  EXPECT_EQ(Stub::createSharedAllocator(two->typeData(), type, *two), shared);
  Stub::freeSharedAllocator(two->typeData(), type, *two);
  auto const fresh = Stub::createSharedAllocator(two->typeData(), type, *two);
  EXPECT_NE(fresh, shared);
  Stub::freeSharedAllocator(two->typeData(), type, *two);
}

}  // namespace
