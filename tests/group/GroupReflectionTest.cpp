// Group tables, and the handles of their entries, as the reflection interface shows them.

#include <optional>

#include "SelectiveGroups.h"
#include "platform/vell/Inspect.h"
#include "platform/zarn/ValueText.h"

namespace Group {
namespace {

using Vell::Value;

template <class T>
class GroupReflection : public testing::Test {
 protected:
  using Entry = Asic::EntryReflection<typename T::Entry>;

  static Value key(U32 id) { return Zarn::valueToStrep(Groups<T>::key(id)); }
  static Value entry(U32 mode) { return Entry::toValue(Groups<T>::entry(mode)); }
  /// Each element of a collection: its key, and "entry" or its address, or nothing.
  Events walked(std::string_view name) {
    Events all;
    table_->walk(name, [&](Value const& at, Value const& value) {
      all.push_back(Vell::concatenate(
          at.text() ? *at.text() : std::to_string(*at.number()),
          value.record()   ? Vell::concatenate(" ", Entry::fromValue(value))
          : value.number() ? Vell::concatenate(" handle ", *value.number() == address_)
                           : ""));
    });
    return all;
  }
  Value call(std::string_view name, std::vector<Value> const& with = {}) {
    return table_->call(name, with);
  }
  std::string refusal(std::string_view name, std::vector<Value> const& with) {
    try {
      call(name, with);
    } catch (Vell::InspectError const& error) {
      return error.reason();
    }
    return "none";
  }

  Groups<T> at_{4};
  std::optional<Vell::Inspect> table_{*at_.table};
  U64 address_ = 0;
};
using AllTables = testing::Types<Ecmp, Vxlan, Selective, VxlanSelective>;
TYPED_TEST_SUITE(GroupReflection, AllTables);

TYPED_TEST(GroupReflection, collectionsShowWhatTheTableHolds) {
  auto& at = this->at_.holding({{2, 5}});
  at.table->doInitComplete();
  auto const waiting = needed();
  if constexpr (Groups<TypeParam>::waits) {
    auto entry = at.entry(3);
    entry.ecmpSecondaryBlockPtrHandle = waiting;
    at.table->entryCommit(at.key(9), entry);
    EXPECT_THAT(this->walked("unresolvedEntry"),
                ElementsAre(Vell::concatenate(*this->key(9).text(), " ", entry)));
    EXPECT_EQ(this->table_->figures(0x286).count, 1u);
    EXPECT_EQ(this->call("entryInHwTable", {this->key(9)}), Value(false));
    at.remove(9);
  }
  auto const committed = this->call("entryCommit", {this->key(7), this->entry(1)});
  auto const handle = at.table->entryHandle(at.key(7));
  this->address_ = reinterpret_cast<std::uintptr_t>(handle.get());
  EXPECT_EQ(committed, Value(this->address_));

  auto const seven = *this->key(7).text();
  auto const one = Vell::concatenate(seven, " ", at.entry(1));
  EXPECT_THAT(this->walked("entryHandle"), ElementsAre(seven + " handle 1"));
  EXPECT_THAT(this->walked("resolvedEntry"), ElementsAre(one));
  EXPECT_THAT(this->walked("entry"), ElementsAre(one));
  EXPECT_THAT(this->walked("syncedEntry"), ElementsAre(Vell::concatenate("2 ", at.entry(5))));
  EXPECT_EQ(this->table_->get("entrys"), Value(U64{1}));
  constexpr U32 shift = Groups<TypeParam>::waits ? 1 : 0;
  EXPECT_EQ(this->table_->figures(0x288 + shift).count, 1u);
  EXPECT_EQ(this->table_->figures(0x289 + shift).count, 1u);
  for (auto const* name : {"indexAllocator", "writeResponseSm"})
    EXPECT_NE(this->table_->get(name), Value(U64{0})) << name;
  EXPECT_EQ(this->table_->get("writeAccess"), Value(true));
}

TYPED_TEST(GroupReflection, operationsAreCalledAndRefused) {
  auto& at = this->at_.replayed();
  auto const seven = this->key(7);
  this->call("entryWriteAtIndex", {U64{3}, seven, this->entry(1)});
  at.answer(3);
  EXPECT_EQ(this->call("entryHas", {seven}), Value(true));
  EXPECT_EQ(this->call("swKeyFromHwIndex", {U64{3}}), seven);
  EXPECT_TRUE(this->call("swKeyFromHwIndex", {U64{1}}).empty());
  EXPECT_EQ(this->call("hwIndexOnlyForCrossAgentCommunication", {seven}), Value(U64{3}));
  EXPECT_EQ(this->call("util"), Value(std::string(at.util->featureName())));
  EXPECT_EQ(this->refusal("entryRef", {}), "the reference would end with the call; ask from code");
  EXPECT_EQ(this->refusal("entryCommit", {seven}), "takes 2 arguments, and 1 were given");
  EXPECT_THAT(this->refusal("entryCommit", {seven, seven}), testing::HasSubstr("a record of "));
  EXPECT_THAT(this->refusal("entryRemove", {"nobody"}), testing::HasSubstr("no key: "));
  EXPECT_EQ(this->refusal("doRecoverHwTable", {}), "cannot be called");
  EXPECT_EQ(this->refusal("handleEntry", {seven}), "not public");
  this->call("entryRemove", {seven});
  this->call("entryRemoveAll");
  auto const fresh = Vell::inspectMake(at.table->typeData().data(), "fresh");
  this->table_.emplace(*fresh);
  EXPECT_THAT(this->refusal("entryCommit", {seven, this->entry(1)}),
              testing::HasSubstr("no index allocator yet"));
}

// The queue offers its operations under its own attribute.
TYPED_TEST(GroupReflection, handlesOfNoTableAreMadeAndTheirQueueIsReached) {
  auto const& type = *TypeParam::module().types()[TypeParam::entryHandleTypeNumber];
  std::vector<Value> const key{this->key(7)};
  auto const handle = Vell::inspectMake(type, "", key);
  Vell::Inspect inspect(*handle);
  EXPECT_EQ(inspect.get("key"), key[0]);
  EXPECT_EQ(inspect.get("swTable"), Value(U64{0}));
  EXPECT_EQ(this->at_.table->entrys(), 0u);
  auto const call = [&](char const* operation, std::vector<Value> const& with = {}) {
    return inspect.callOn(0x185, operation, with);
  };
  auto const holds = [](Value const& value, U32 mode) {
    return TestFixture::Entry::fromValue(value) == Groups<TypeParam>::entry(mode);
  };
  for (U32 mode : {1, 2}) call("pendingEntryEnq", {this->entry(mode)});
  EXPECT_EQ(inspect.figures(0x185).count, 2u);
  EXPECT_TRUE(holds(call("pendingEntryFront"), 1));
  EXPECT_TRUE(holds(call("pendingEntryBack"), 2));
  EXPECT_TRUE(holds(call("pendingEntryDeq"), 1));
  EXPECT_EQ(inspect.figures(0x185).count, 1u);
  EXPECT_THROW(call("pendingEntryDelAll"), Vell::InspectError);
  EXPECT_THROW(inspect.callOn(0x182, "pendingEntryDeq"), Vell::InspectError);
  EXPECT_THROW(Vell::inspectMake(type), Vell::InspectError) << "without a key";
}

}  // namespace
}  // namespace Group
