// Calls from inside calls: watchers, hooks and last drops that change the very group that is being
// written, acknowledged or removed. Each case is one that went wrong once.

#include "SelectiveGroups.h"

namespace Group {
namespace {

template <class T>
class SelectiveReentrancy : public testing::Test {
 protected:
  void SetUp() override { at_.replayed(); }

  void committed(U32 id, BlockHandle block) {
    handle_ = at_.commit(id, std::move(block));
    at_.answer(at_.indexOf(id));
  }
  /// Once, when the handle's state becomes that.
  template <class Action>
  auto onState(State state, Action action) {
    return handle_->watched().watch(0x102, [=, at = handle_.get(), done = false](auto&) mutable {
      if (at->entryState() != state || std::exchange(done, true)) return;
      action();
    });
  }

  SelectiveGroups<T> at_;
  NeededPtr a_ = usable(70), b_ = usable(80), waiting_ = needed();
  HandlePtr handle_;
};
TYPED_TEST_SUITE(SelectiveReentrancy, SelectiveTables);

#define AT this->at_

TYPED_TEST(SelectiveReentrancy, aWishFromTheMidstOfAWriteIsStillAWishAfterIt) {
  this->committed(7, this->a_);
  auto const watching = this->onState(State::inProgress, [this] { AT.commit(7, this->waiting_); });
  AT.commit(7, this->b_);
  EXPECT_EQ(AT.state(7), "U waiting, R value, T committed, E unresolved, S inProgress, Q 1");
  AT.answer(0);
  EXPECT_EQ(AT.state(7), "U waiting, R value, T committed, E unresolved, S success, Q 0");
}

// Before the row is written without a value, nothing has happened to it yet.
TYPED_TEST(SelectiveReentrancy, aRemovalThatIsTakenBackBeforeItBeginsLeavesTheRow) {
  this->committed(7, this->a_);
  HandlePtr back;
  auto const watching = this->onState(State::unresolved, [&] { back = AT.ref(7, this->a_); });
  AT.remove(7);
  AT.take();
  this->handle_ = nullptr;
  EXPECT_THAT(AT.take(), IsEmpty());
  EXPECT_EQ(AT.handle(7)->entryType(), Type::referenceOnly);
  EXPECT_EQ(AT.handle(7)->entryState(), State::success);
  back = nullptr;
  AT.answer(0);
  EXPECT_EQ(AT.state(7), "U none, R none, no handle");
}

// The queue is emptied value by value if anybody watches: what comes meanwhile is not of those.
TYPED_TEST(SelectiveReentrancy, theQueueKeepsWhatAWatcherOfItWrites) {
  this->committed(7, this->a_);
  AT.commit(7, this->b_);
  auto const c = usable(90);
  bool done = false;
  auto const watching = this->handle_->watched().watch(0x185, [&](auto&) {
    if (this->handle_->resolvedEntryState() == State::success && !std::exchange(done, true))
      AT.commit(7, c);
  });
  AT.answer(0);
  EXPECT_EQ(AT.state(7), "U none, R value, T committed, E inProgress, S inProgress, Q 1");
  EXPECT_EQ(AT.usesOf(this->b_), 1u) << "the row may still show it";
  AT.answer(0);
  EXPECT_EQ(AT.usesOf(this->b_), 0u);
}

// A chip's hook for the block is asked for its index.
TYPED_TEST(SelectiveReentrancy, aHookOfTheBlockThatWritesTheGroupAnewHasTheLastWord) {
  class Asking final : public Asic::SwTableBase::EntryHandle {
   public:
    Vell::ZarnType typeData() const override { return {&TypeParam::module(), 1}; }
    Asic::Index hwIndexForDependentField() const override {
      if (auto const ask = std::exchange(onAsk, {})) ask();
      return hwIndex();
    }
    mutable std::function<void()> onAsk;
  };
  Vell::Ptr<Asking> const asking = new Asking;
  for (bool const removes : {false, true}) {
    asking->onAsk = nullptr;
    asking->hwIndexIs(noIndex);
    asking->entryStateIs(State::unresolved);
    AT.commit(7, asking);
    asking->onAsk = [&] { removes ? AT.remove(7) : void(AT.commit(7, this->b_, 2)); };
    AT.take();
    asking->hwIndexIs(40);
    asking->entryStateIs(State::success);
    auto events = AT.take();
    std::erase_if(events, [](auto const& each) { return !each.starts_with("write"); });
    EXPECT_EQ(events, removes ? Events{} : Events{"write 0 80/2"});
    AT.table->entryRemoveAll();
    AT.answer(0);
    EXPECT_EQ(AT.table->entrys(), 0u);
  }
}

// It would be taken for the answer to a write that is yet to come.
TYPED_TEST(SelectiveReentrancy, anAcknowledgementWaitsForTheEndOfAnOperation) {
  this->committed(1, this->a_);
  AT.commit(1, this->b_);
  auto const watching = this->onState(State::unresolved, [this] { EXPECT_EQ(AT.answer(0), 0u); });
  AT.commit(1, this->a_, 2);
  EXPECT_EQ(AT.state(1), "U none, R value, T committed, E inProgress, S inProgress, Q 2");
  EXPECT_EQ(AT.hw().deliverWriteResponses(), 0u) << "that write is overtaken";
  EXPECT_EQ(AT.answer(0), 1u);
  AT.remove(1);
  AT.util->onEvent = [this](std::string const& event) {
    if (event != "write 0 -") return;
    EXPECT_EQ(AT.answer(0), 0u) << "not even its own";
  };
  this->handle_ = nullptr;
  AT.util->onEvent = nullptr;
  EXPECT_EQ(AT.hw().deliverWriteResponses(), 1u);
  EXPECT_EQ(AT.state(1), "U none, R none, no handle");
}

// The way back begins before the way out has reached the hardware: the tracker hears of neither.
TYPED_TEST(SelectiveReentrancy, aComebackInTheMidstOfTheDancesWriteIsWrittenAtOnce) {
  this->committed(7, this->a_);
  auto const watching = this->onState(State::inProgress, [this] { AT.commit(7, this->b_); });
  AT.remove(7);
  AT.take();
  this->handle_ = nullptr;
  EXPECT_THAT(AT.take(),
              ElementsAre("published 0x286 7 new", "write 0 80/1", "published 0x289 7 was -",
                          "published 0x286 7 gone", "published 0x289 7 was 70/1"));
  AT.answer(0);
  EXPECT_EQ(AT.state(7), "U none, R value, T committed, E success, S success, Q 0");
}

// The outer commit has the last word, whatever came in its midst.
TYPED_TEST(SelectiveReentrancy, ofCommitsInsideEachOtherTheNewestStands) {
  for (auto const field : {0x286u, 0x102u})
    for (auto const& inner : {this->a_, this->b_, this->waiting_})
      for (auto const& outer : {this->b_, needed()}) {
        this->committed(7, this->a_);
        bool done = false;
        auto const nest = [&](auto& change) {
          if (!change.previous == (field == 0x286u) && !std::exchange(done, true))
            AT.commit(7, inner, 2);
        };
        auto const watching = field == 0x286u ? AT.table->publisher()->watch(field, nest)
                                              : this->handle_->watched().watch(field, nest);
        AT.commit(7, outer, 3);
        EXPECT_EQ(AT.table->entry(AT.key(7)), AT.entry(inner, 2));
        if (!inner->hwIndex().isExhausted()) continue;
        EXPECT_EQ(AT.handle(7)->entryState(), State::unresolved);
        AT.commit(7, this->a_);
        AT.answer(0);
      }
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
