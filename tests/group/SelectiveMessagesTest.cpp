// What the tables of groups that stand on blocks say while they work: traces at their levels, messages,
// and the texts of what must not happen.

#include "SelectiveGroups.h"
#include "platform/fennlog/Reader.h"
#include "platform/zarn/Trace.h"

namespace Group {
namespace {

using testing::HasSubstr;

/// What a life of one group traces at one level, without the table's name; addresses and entries are
/// cut out.
template <class T>
Events traced(unsigned level) {
  Events lines;
  auto const prefix = Vell::concatenate(T::names.qualified, " : ");
  Zarn::TraceHandle::sinkIs([&](std::string_view line) {
    std::string text(line.substr(prefix.size()));
    auto const cut = [&](std::string_view from, std::string_view to) {
      for (auto at = text.find(from); at != text.npos; at = text.find(from, at + from.size())) {
        auto const end = to.empty() ? text.size() : text.find(to, at);
        text.replace(at + from.size(), end - at - from.size(), "...");
      }
    };
    cut("::Entry{", "}");
    cut(", eh : ", ", key");
    lines.push_back(text);
  });
  {
    SelectiveGroups<T> at;
    at.replayed();
    auto const block = usable(70), other = needed();
    Zarn::TraceHandle::levelsIs(T::names.qualified, 1u << level);
    at.commit(7, other);  // 2
    at.commit(7, other);  // 5
    at.ref(7, block);     // 6, 1
    at.answer(0);         // 7
    at.ref(7, block);     // the resolved value
    at.remove(7);         // 13, 17
    at.remove(7);         // 15
    at.answer(0);         // 18, 19
    Zarn::TraceHandle::levelsIs(T::names.qualified, 0);
    at.subscriptions.clear();
  }
  Zarn::TraceHandle::sinkIs({});
  return lines;
}

TEST(SelectiveTraces, readToTheLetterAtTheirLevels) {
  // The key of this table reads open at its end, that of its twin whole.
  EXPECT_THAT(
      traced<Selective>(5),
      ElementsAre(
          "entryCommit : Writing new entry at key: L3AdjIdKey{adjId:7 type:unknown",
          "entryCommit : Found existing unresolved entry at key : L3AdjIdKey{adjId:7 type:unknown, "
          "entry : TessarLoadBalance::EcmpGroup1SelectiveDlbTable::Entry{...}",
          "entryRef : Deleting existing unresolved entry at key : L3AdjIdKey{adjId:7 type:unknown",
          "entryRef : Writing new entry at key: L3AdjIdKey{adjId:7 type:unknown, entry:"
          "TessarLoadBalance::EcmpGroup1SelectiveDlbTable::Entry{...}",
          "entryRef : Found already existing resolved entry at key : L3AdjIdKey{adjId:7 "
          "type:unknown, entry : TessarLoadBalance::EcmpGroup1SelectiveDlbTable::Entry{...}",
          "entryRemove: key:L3AdjIdKey{adjId:7 type:unknown, entryType:2, refCnt:2",
          "entryRemove : Removing entry at key : L3AdjIdKey{adjId:7 type:unknown",
          "entryRemove: key:L3AdjIdKey{adjId:7 type:unknown, entryType:3, refCnt:2",
          "entryRemove : Found no committed entry at key : L3AdjIdKey{adjId:7 type:unknown"));
  auto const key = "TessarL3Common::VxlanL3UnderlayAdjIdKey{adjId:7 type:0}";
  auto const at = [&](std::string_view before, std::string_view after = "") {
    return Vell::concatenate(before, key, after);
  };
  EXPECT_THAT(traced<VxlanSelective>(6),
              ElementsAre(at("initUnresolvedEntry: key:"), at("initUnresolvedEntry: key:"),
                          at("doResolve: key:"),
                          at("handleEntryState entryhandle state: inProgress at key : "),
                          at("handleEntryState entryhandle state: COMPLETE  inProgress at key : "),
                          at("handleEntryState entryhandle state: success at key : "),
                          at("handleEntryState entryhandle state: COMPLETE  success at key : "),
                          at("cleanup : entryhandle cleanup, eh : ..., key :", ", refCnt:2"),
                          at("cleanup begin delete dance, key : "),
                          at("handleEntryState entryhandle state: unresolved at key : "),
                          at("handleEntryState entryhandle state: COMPLETE  unresolved at key : "),
                          at("handleEntryState entryhandle state: inProgress at key : "),
                          at("handleEntryState entryhandle state: COMPLETE  inProgress at key : "),
                          at("cleanup : entryhandle cleanup, eh : ..., key :", ", refCnt:1"),
                          at("cleanup delete dance complete, key : ")));
  EXPECT_THAT(traced<VxlanSelective>(8),
              testing::Contains(at("hwTableEntryDel: Deleting entry at key:")));
}

template <class T>
class SelectiveLimits : public testing::Test {
 protected:
  void SetUp() override {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    at_.replayed();
  }
  SelectiveGroups<T> at_;
  NeededPtr block_ = usable(70);
};
TYPED_TEST_SUITE(SelectiveLimits, SelectiveTables);

TYPED_TEST(SelectiveLimits, whatMustNotComeStopsTheProcess) {
  auto& at = this->at_;
  auto const waiting = needed();
  at.commit(1, waiting);
  EXPECT_DEATH(at.table->unresolvedEntry(at.key(1))->doResolve(),
               "ue->neededEntryHandleSms\\(\\) == 0.*function should not have been called");
  EXPECT_DEATH(at.handle(1)->resolvedEntryStateIs(State::success),
               "swTable_->resolvedEntryHas\\( key \\)");
  at.table->unresolvedEntryIs(at.key(9));  // as only somebody below the client interface can
  EXPECT_DEATH(at.commit(9, nullptr, 0), "\"eh\".*expect a valid entryHandle, key: ");
  at.table->unresolvedEntryDel(at.key(9));
  at.commit(2, this->block_);
  at.answer(0);
  auto& done = *at.handle(2);
  EXPECT_DEATH(done.resolvedEntryStateIs(State::frameworkComplete),
               "entryState == unresolved\\(\\) \\|\\| entryState == failedNeededEntry\\(\\)");
  at.commit(2, waiting);
  EXPECT_DEATH(done.resolvedEntryStateIs(State::frameworkComplete),
               "resolvedEntryState == success\\(\\)");
  EXPECT_DEATH(done.cleanup(),
               "eh->entryType\\(\\) == EntryHandle::referenceOnly.*unexpected entryType");
  at.commit(3, this->block_);
  at.answer(1);
  at.remove(3);
  auto& dancing = *at.handle(3);
  EXPECT_DEATH(at.answer(1, Asic::WriteResponse::refused), "resolvedEntryState == success\\(\\)");
  for (auto const state :
       {State::frameworkComplete, State::failedNeededEntry, State::failedNoIndex})
    EXPECT_DEATH(dancing.entryStateIs(state),
                 "entryHandle->entryType\\(\\) != EntryHandle::inDeletion");
  auto const back = at.ref(3, waiting);
  dancing.resolvedEntryStateIs(State::indexReconciled);  // as nobody does in the midst of a dance
  EXPECT_DEATH(dancing.cleanup(), "eh->resolvedEntryState\\(\\) == inProgress");
  dancing.resolvedEntryStateIs(State::inProgress);
}

// Handles that are not the table's own, as only reflection makes them.
TYPED_TEST(SelectiveLimits, aHandleOutsideTheTableHasItsLimits) {
  auto& at = this->at_;
  auto const outside = [&](U32 id, Type type) {
    auto const made = TypeParam::entryHandleFactory(at.key(id), at.table.get());
    made->entryTypeIs(type);
    return made;
  };
  at.commit(1, this->block_);
  EXPECT_DEATH(outside(1, Type::unset), "!swTable_->entryHandleHas\\( key \\)");
  EXPECT_DEATH(outside(2, Type::referenceOnly), "swTable_->entryHandleHas\\( key \\)");
  EXPECT_DEATH(outside(2, Type::committed), "assertion \"0\"");
  outside(1, Type::referenceOnly);
  outside(2, Type::unset);
  EXPECT_TRUE(at.table->entryHas(at.key(1)));
}

}  // namespace
}  // namespace Group
