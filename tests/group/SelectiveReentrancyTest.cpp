// Calls from inside calls: watchers, hooks and last drops that change the very group that is being
// written, acknowledged or removed.

#include <set>

#include "SelectiveGroups.h"
#include "support/EveryEvent.h"

namespace Group {
namespace {

template <class T>
class SelectiveReentrancy : public testing::Test {
 protected:
  void SetUp() override { at_.replayed(); }

  SelectiveGroups<T> at_;
  NeededPtr a_ = usable(70), b_ = usable(80), waiting_ = needed();
};
TYPED_TEST_SUITE(SelectiveReentrancy, SelectiveTables);

#define AT this->at_

/// One group after a restart that found a row, with what its row may show and what was last wished for.
template <class T>
struct Life {
  SelectiveGroups<T> at{2};
  NeededPtr a = usable(70), b = usable(80), waiting = needed();
  HandlePtr held;
  std::set<NeededPtr*> shown;
  std::optional<U32> wish;  ///< its count, unless it was taken back
  U32 wishes = 1;

  Life() { at.holding({{0, 70}}); }
  void commit(NeededPtr const& block) { at.commit(7, block, *(wish = ++wishes)); }
  void ref(NeededPtr const& block) { held = at.ref(7, block, *(wish = ++wishes)); }
  void letGo() {
    wish.reset();
    auto const former = std::exchange(held, nullptr);
    at.remove(7);
  }
  void answer(State outcome) {
    if (outcome == State::success && at.table->configReplayComplete()) shown.clear();
    noteShown();
    at.answer(0, outcome);
  }
  void noteShown() {
    auto const row = at.util->rows.find(0);
    if (row == at.util->rows.end() || !row->second) return;
    for (auto* const each : {&a, &b, &waiting})
      if (row->second->ecmpSecondaryBlockPtrHandle == *each) shown.insert(each);
  }
  void heard(std::string const& event) {
    if (event.starts_with("write")) noteShown();
    if (event.starts_with("delete")) shown.clear();
    for (auto* const each : shown) EXPECT_GE(at.usesOf(*each), 1u) << "the row may show it";
  }
  void suggest() {
    auto const handle = at.handle(7);
    if (handle && handle->entryState() == State::unresolved && !at.table->configReplayComplete())
      Group::suggest(handle, {0});
  }
  /// Also those of the queue that keeps blocks, and a chip's hook for a block that is asked for its
  /// index.
  void onEvent(std::function<void(std::string const&)> const& heardBy) {
    at.util->onEvent = nullptr;
    if (!heardBy) return;
    auto const handle = at.table->entryHandleIs(at.key(7), at.table.get());
    auto const note = [this](auto&&...) { at.util->note("of the queue or the block"); };
    at.subscriptions.push_back(handle->watched().watch(0x185, note));
    b->onAsked = waiting->onAsked = note;
    at.follow(handle);
    at.util->onEvent = [=, this](auto& event) {
      heard(event);
      heardBy(event);
    };
  }
  void settle() {
    if (!at.table->configReplayComplete()) at.replayed();
    if (waiting->hwIndex().isExhausted()) waiting->becomes(State::success, 90);
    for (U32 i = 0; i < 9 && at.hw().newestWrite(0) != 0; ++i) answer(State::success);
  }
  void ended() {
    settle();
    if (at.table->entryHas(at.key(7))) isConsistent(at);
    U32 const count = at.table->entry(at.key(7)).countSecondary.value();
    EXPECT_EQ(count, wish.value_or(count));
    letGo();
    settle();
    isConsistent(at);
    EXPECT_EQ(at.table->entrys() + at.usesOf(a) + at.usesOf(b) + at.usesOf(waiting), 0u);
  }
};

// What a row may show is held, the newest wish stands, and nothing is left.
TYPED_TEST(SelectiveReentrancy, everyEventMayCallTheTable) {
  using Of = Life<TypeParam>;
  Testing::EveryEvent<Of> every;
  constexpr auto success = State::success;
  every.starts = {
      {"none", [](Of& life) { life.at.replayed(); }},
      {"written", [](Of& life) { life.at.replayed(), life.commit(life.a); }},
      {"acknowledged",
       [](Of& life) { life.at.replayed(), life.commit(life.a), life.answer(success); }},
      {"rewritten",
       [](Of& life) {
         life.at.replayed(), life.commit(life.b), life.answer(success), life.commit(life.a);
       }},
      {"with a wish",
       [](Of& life) { life.at.replayed(), life.commit(life.a), life.commit(life.waiting); }},
      {"in the dance",
       [](Of& life) {
         life.at.replayed(), life.commit(life.a), life.answer(success), life.letGo();
       }},
      {"replay, place found",
       [](Of& life) { static_cast<void>(life.at.recover(7, 0)), life.commit(life.a); }},
      {"replay, with a wish",
       [](Of& life) { static_cast<void>(life.at.recover(7, 0)), life.commit(life.waiting); }},
      {"replay, no place", [](Of& life) { life.commit(life.a); }}};
  every.triggers = {{"commit", [](Of& life) { life.commit(life.b); }},
                    {"commit that waits", [](Of& life) { life.commit(life.waiting); }},
                    {"reference", [](Of& life) { life.ref(life.b); }},
                    {"acknowledgement", [](Of& life) { life.answer(success); }},
                    {"refusal",
                     [](Of& life) {
                       if (life.at.handle(7) && life.at.handle(7)->entryType() != Type::inDeletion)
                         life.answer(Asic::WriteResponse::refused);
                     }},
                    {"removal", [](Of& life) { life.letGo(); }},
                    {"resolution in place", [](Of& life) { life.waiting->becomes(success, 70); }},
                    {"suggestion", [](Of& life) { life.suggest(); }},
                    {"end of the replay",
                     [](Of& life) {
                       if (!life.at.table->configReplayComplete()) life.at.replayed();
                     }},
                    {"resolution", [](Of& life) { life.waiting->becomes(success, 90); }}};
  every.callBacks = {{"commits", [](Of& life) { life.commit(life.b); }},
                     {"commits the former block", [](Of& life) { life.commit(life.a); }},
                     {"commits what waits", [](Of& life) { life.commit(life.waiting); }},
                     {"references", [](Of& life) { life.ref(life.a); }},
                     {"lets go", [](Of& life) { life.letGo(); }},
                     {"lets go and commits", [](Of& life) { life.letGo(), life.commit(life.b); }},
                     {"removes", [](Of& life) { life.wish.reset(), life.at.remove(7); }}};
  every.play();
}

// The end of a replay leaves a value that has no place for the one that waits to follow it.
TYPED_TEST(SelectiveReentrancy, aValueIsWrittenWhenTheOneThatWaitedForItsPlaceIsTakenBack) {
  for (bool const byAWish : {false, true}) {
    Life<TypeParam> life;
    auto const held = life.at.ref(7, life.a);
    life.at.commit(7, life.waiting);
    life.at.replayed();
    life.at.take();
    byAWish ? void(life.at.ref(7, life.a)) : life.at.remove(7);
    EXPECT_EQ(life.at.handle(7)->resolvedEntryState(), State::inProgress);
    isConsistent(life.at);
  }
}

// It would be taken for the answer to a write that is yet to come.
TYPED_TEST(SelectiveReentrancy, anAcknowledgementWaitsForTheEndOfAnOperation) {
  auto handle = AT.commit(1, this->a_);
  AT.answer(0);
  AT.commit(1, this->b_);
  auto const watching = handle->watched().watch(0x102, [&, at = handle.get()](auto&) {
    if (at->entryState() != State::unresolved) return;
    EXPECT_EQ(AT.answer(0), 0u);
  });
  AT.commit(1, this->a_, 2);
  EXPECT_EQ(AT.state(1), "U none, R value, T committed, E inProgress, S inProgress, Q 2");
  EXPECT_EQ(AT.hw().deliverWriteResponses(), 0u) << "that write is overtaken";
  EXPECT_EQ(AT.answer(0), 1u);
  AT.remove(1);
  AT.util->onEvent = [this](std::string const& event) {
    if (event != "write 0 -") return;
    EXPECT_EQ(AT.answer(0), 0u) << "not even its own";
  };
  handle = nullptr;
  AT.util->onEvent = nullptr;
  EXPECT_EQ(AT.hw().deliverWriteResponses(), 1u);
  EXPECT_EQ(AT.state(1), "U none, R none, no handle");
}

// ---- the end of the table ----

TYPED_TEST(SelectiveReentrancy, theTableMayGoInAllMiddles) {
  auto const hwTable = Vell::Ptr<Asic::HwTable>(&AT.hw());
  auto const allocator = Vell::Ptr(AT.allocator());
  AT.commit(1, this->a_);
  AT.answer(0);
  AT.remove(1);  // in its dance
  AT.commit(2, this->a_);
  AT.commit(2, this->b_);  // with a queue
  auto const waits = AT.commit(3, this->waiting_);
  auto const dancing = AT.handle(1);
  AT.take();
  AT.table = nullptr;
  EXPECT_THAT(AT.take(), testing::IsSupersetOf({"tracker 0 userRemoveInactive", "delete 0",
                                                "tracker 1 userRemove", "delete 1"}));
  EXPECT_EQ(allocator->totalUsedIndices(), 0u);
  EXPECT_FALSE(dancing->swTable());
  EXPECT_EQ(AT.usesOf(this->a_), 1u) << "of the handle that a client still holds";
  EXPECT_EQ(AT.usesOf(this->b_) + AT.usesOf(this->waiting_), 0u);
  this->waiting_->becomes(State::success, 5);
  EXPECT_THAT(AT.util->rows, IsEmpty());
}

TYPED_TEST(SelectiveReentrancy, nothingResolvesOrStaysBoundWhileTheTableGoes) {
  auto const other = needed();
  AT.commit(1, this->waiting_);
  AT.commit(2, other);
  AT.commit(3, this->a_);
  auto* const table = AT.table.get();
  Vell::Ptr<typename TypeParam::EntryHandle> kept;
  bool isFirst = true;
  AT.util->onEvent = [&](std::string const& event) {
    if (event.starts_with("published 0x286") && event.ends_with("gone"))
      (event.starts_with("published 0x286 1") ? other : this->waiting_)->becomes(State::success, 3);
    if (event.starts_with("published 0x289 3") && std::exchange(isFirst, false)) {
      table->entryRef(AT.key(4), AT.entry(this->b_, 1));  // and let go at once
      kept = table->entryHandle(AT.key(4));
    }
  };
  AT.table = nullptr;
  EXPECT_FALSE(kept) << "a table that goes takes no wish";
  EXPECT_THAT(AT.util->rows, IsEmpty());
}

#undef AT

}  // namespace
}  // namespace Group
