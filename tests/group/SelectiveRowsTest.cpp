// The life of a group that stands on a block, step by step: what each event makes of the key's state,
// of the hardware and of the tracker, and what is published. The steps are numbered as the ways a key
// can go, 1 to 23.

#include "SelectiveGroups.h"

namespace Group {
namespace {

template <class T>
class SelectiveRows : public testing::Test {
 protected:
  /// One step: its number, what happens, and what must come of it.
  template <class Event>
  void step(int number, Event event, std::string const& state, Events const& events) {
    SCOPED_TRACE(number);
    event();
    EXPECT_EQ(at_.take(), events);
    EXPECT_EQ(at_.state(7), state);
  }
  void committedOn(BlockHandle block) {
    handle_ = at_.commit(7, std::move(block));
    at_.answer(0);
    at_.take();
  }
  void inTheDance() {
    committedOn(b_);
    at_.remove(7);
    handle_ = nullptr;
    at_.take();
    ASSERT_EQ(at_.state(7), dancing);
  }

  static constexpr auto written = "U none, R value, T committed, E inProgress, S inProgress, Q 0";
  static constexpr auto dancing =
      "U none, R no value, T inDeletion, E inProgress, S inProgress, Q 1";

  SelectiveGroups<T> at_ = SelectiveGroups<T>(2);
  NeededPtr b_ = usable(70), c_ = usable(80), waiting_ = needed();
  HandlePtr handle_;

  void SetUp() override { at_.replayed(); }
};
TYPED_TEST_SUITE(SelectiveRows, SelectiveTables);

#define AT this->at_
#define STEP(...) this->step(__VA_ARGS__)

TYPED_TEST(SelectiveRows, theWayInOfAnEntryThatWaits) {
  auto& waiting = *this->waiting_;
  auto& handle = this->handle_;
  auto const commit = [&] { handle = AT.commit(7, this->waiting_); };
  STEP(2, commit, "U waiting, R none, T committed, E unresolved, S unresolved, Q 0",
       {"published 0x287 7 new", "published 0x286 7 new"});
  EXPECT_FALSE(AT.table->entryInHwTable(AT.key(7)));
  STEP(5, commit, "U waiting, R none, T committed, E unresolved, S unresolved, Q 0", {});
  EXPECT_EQ(AT.table->unresolvedEntry(AT.key(7))->neededEntryHandleSms(), 1u);
  STEP(4, [&] { waiting.becomes(State::failedNeededEntry, noIndex); },
       "U waiting, R none, T committed, E failedNeededEntry, S unresolved, Q 0", {});
  STEP(3, [&] { waiting.becomes(State::success, 70); }, this->written,
       {"tracker 0 userAdd", "write 0 70/1", "published 0x289 7 was -", "published 0x286 7 gone"});
  EXPECT_EQ(AT.usesOf(this->waiting_), 1u);
  STEP(7, [&] { AT.answer(0); }, "U none, R value, T committed, E success, S success, Q 0", {});
  EXPECT_EQ(handle->hwIndex().value(), 0u);
}

TYPED_TEST(SelectiveRows, theWayInOfAnEntryWhoseBlockIsThere) {
  STEP(1, [&] { this->handle_ = AT.commit(7, this->b_); }, this->written,
       {"published 0x287 7 new", "published 0x286 7 new", "tracker 0 userAdd", "write 0 70/1",
        "published 0x289 7 was -", "published 0x286 7 gone"});
  // What the hardware may still show keeps its block: the first write is not acknowledged.
  STEP(8, [&] { AT.commit(7, this->c_); },
       "U none, R value, T committed, E inProgress, S inProgress, Q 1",
       {"published 0x286 7 new", "write 0 80/1", "published 0x289 7 was 70/1",
        "published 0x286 7 gone"});
  EXPECT_EQ(AT.usesOf(this->b_), 1u);
  STEP(8, [&] { AT.commit(7, this->b_, 2); },
       "U none, R value, T committed, E inProgress, S inProgress, Q 2",
       {"published 0x286 7 new", "write 0 70/2", "published 0x289 7 was 80/1",
        "published 0x286 7 gone"});
  STEP(7, [&] { AT.answer(0); }, "U none, R value, T committed, E success, S success, Q 0", {});
  EXPECT_EQ(AT.usesOf(this->b_), 1u);
  EXPECT_EQ(AT.usesOf(this->c_), 0u);
}

TYPED_TEST(SelectiveRows, aChangeThatWaitsLeavesTheRowUntilItsBlockComes) {
  this->committedOn(this->b_);
  constexpr auto waits = "U waiting, R value, T committed, E unresolved, S success, Q 0";
  auto const change = [&] { AT.commit(7, this->waiting_); };
  STEP(9, change, waits, {"published 0x286 7 new"});
  EXPECT_EQ(AT.table->entry(AT.key(7)), AT.entry(this->waiting_, 1));
  EXPECT_EQ(AT.table->resolvedEntry(AT.key(7)), AT.entry(this->b_, 1));
  STEP(11, [&] { AT.commit(7, this->b_); },
       "U none, R value, T committed, E success, S success, Q 0", {"published 0x286 7 gone"});
  STEP(9, change, waits, {"published 0x286 7 new"});
  auto const other = needed();
  STEP(6, [&] { AT.commit(7, other); }, waits, {"published 0x286 7 gone", "published 0x286 7 new"});
  EXPECT_EQ(AT.usesOf(this->waiting_), 0u);
  STEP(10, [&] { other->becomes(State::success, 90); },
       "U none, R value, T committed, E inProgress, S inProgress, Q 1",
       {"write 0 90/1", "published 0x289 7 was 70/1", "published 0x286 7 gone"});
  EXPECT_EQ(AT.usesOf(this->b_), 1u) << "the hardware may still point at it";
  AT.answer(0);
  EXPECT_EQ(AT.usesOf(this->b_), 0u);
}

TYPED_TEST(SelectiveRows, withoutAnIndexNothingIsWrittenAndTheNextWriteIsTheFirst) {
  for (U32 id : {1, 2}) AT.commit(id, this->b_);
  AT.take();
  constexpr auto failed = "U none, R value, T committed, E failedNoIndex, S failedNoIndex, Q 0";
  STEP(12, [&] { this->handle_ = AT.commit(7, this->b_); }, failed,
       {"published 0x287 7 new", "published 0x286 7 new", "published 0x289 7 was -",
        "published 0x286 7 gone"});
  EXPECT_FALSE(AT.table->entryInHwTable(AT.key(7)));
  STEP(12, [&] { AT.commit(7, this->c_); }, failed,
       {"published 0x286 7 new", "published 0x289 7 was 70/1", "published 0x286 7 gone"});
  AT.remove(1);
  AT.answer(0);
  AT.take();
  STEP(8, [&] { AT.commit(7, this->b_); },
       "U none, R value, T committed, E inProgress, S inProgress, Q 1",
       {"published 0x286 7 new", "tracker 0 userAdd", "write 0 70/1", "published 0x289 7 was 80/1",
        "published 0x286 7 gone"});
}

TYPED_TEST(SelectiveRows, anEntryThatTheHardwareNeverHadJustGoes) {
  this->handle_ = AT.commit(7, this->waiting_);
  AT.take();
  STEP(13, [&] { AT.remove(7); },
       "U none, R none, T referenceOnly, E unresolved, S unresolved, Q 0",
       {"published 0x286 7 gone"});
  STEP(15, [&] { AT.remove(7); },
       "U none, R none, T referenceOnly, E unresolved, S unresolved, Q 0", {});
  STEP(16, [&] { this->handle_ = nullptr; }, "U none, R none, no handle",
       {"published 0x287 7 gone"});
  STEP(15, [&] { AT.remove(7); }, "U none, R none, no handle", {});
  auto const made = AT.table->entryHandleIs(AT.key(7), AT.table.get());
  AT.take();
  STEP(14, [&] { AT.remove(7); }, "U none, R none, no handle", {"published 0x287 7 gone"});
  EXPECT_EQ(AT.usesOf(this->waiting_), 0u);
}

TYPED_TEST(SelectiveRows, theDeleteDance) {
  this->committedOn(this->b_);
  STEP(13, [&] { AT.remove(7); }, "U none, R value, T referenceOnly, E success, S success, Q 0",
       {});
  EXPECT_EQ(AT.table->entry(AT.key(7)), AT.entry(this->b_, 1)) << "its client holds it";
  STEP(17, [&] { this->handle_ = nullptr; }, this->dancing,
       {"tracker 0 userDeactivate", "write 0 -", "published 0x289 7 was 70/1"});
  EXPECT_FALSE(AT.table->entryHas(AT.key(7)));
  EXPECT_TRUE(AT.table->entryInHwTable(AT.key(7)));
  EXPECT_EQ(AT.usesOf(this->b_), 1u);
  STEP(15, [&] { AT.remove(7); }, this->dancing, {});
  // The block is let go behind the row: in the watcher of the handle's end it is free.
  U32 usesAtDelete = 0;
  AT.util->onEvent = [&](std::string const& event) {
    if (event == "delete 0") usesAtDelete = AT.usesOf(this->b_);
  };
  STEP(18, [&] { AT.answer(0); }, "U none, R none, no handle",
       {"tracker 0 userRemoveInactive", "delete 0", "published 0x289 7 was -",
        "published 0x287 7 gone"});
  EXPECT_EQ(usesAtDelete, 1u);
  EXPECT_EQ(AT.usesOf(this->b_), 0u);
  EXPECT_EQ(AT.indexOf(7), noIndex);
}

// Whoever holds the handle past the end of its dance ends it with the last use, and the table may go
// before that.
TYPED_TEST(SelectiveRows, aHandleOutlivesItsDanceAndItsTable) {
  for (bool const tableFirst : {false, true}) {
    this->inTheDance();
    auto held = AT.handle(7);
    AT.answer(0);
    EXPECT_EQ(held->entryType(), Type::inDeletion);
    EXPECT_EQ(held->useCount(), 1u);
    EXPECT_EQ(held->swTable(), AT.table.get());
    AT.take();
    if (tableFirst) {
      AT.subscriptions.clear();
      AT.table = nullptr;
      EXPECT_EQ(held->swTable(), nullptr);
      return;
    }
    STEP(19, [&] { held = nullptr; }, "U none, R none, no handle", {});
  }
}

TYPED_TEST(SelectiveRows, aCommitDuringTheDanceTakesTheIndexAgain) {
  for (bool const isRef : {false, true}) {
    this->inTheDance();
    STEP(20, [&] { this->handle_ = isRef ? AT.ref(7, this->c_) : AT.commit(7, this->c_); },
         Vell::concatenate("U none, R value, T ", isRef ? "referenceOnly" : "committed",
                           ", E inProgress, S inProgress, Q 1"),
         {"published 0x286 7 new", "tracker 0 userActivate", "write 0 80/1",
          "published 0x289 7 was -", "published 0x286 7 gone"});
    EXPECT_EQ(AT.usesOf(this->b_), 1u);
    AT.answer(0);
    EXPECT_EQ(AT.usesOf(this->b_), 0u);
    AT.remove(7);
    this->handle_ = nullptr;
    AT.answer(0);
    EXPECT_EQ(AT.state(7), "U none, R none, no handle");
    AT.take();
  }
}

TYPED_TEST(SelectiveRows, anEntryThatComesBackAndWaitsTakesANewIndex) {
  this->inTheDance();
  STEP(21, [&] { this->handle_ = AT.commit(7, this->waiting_); },
       "U waiting, R no value, T committed, E unresolved, S inProgress, Q 1",
       {"published 0x286 7 new"});
  EXPECT_TRUE(AT.table->entryHas(AT.key(7)));
  STEP(22, [&] { AT.answer(0); }, "U waiting, R none, T committed, E unresolved, S unresolved, Q 0",
       {"tracker 0 userRemoveInactive", "delete 0", "published 0x289 7 was -"});
  EXPECT_EQ(AT.usesOf(this->b_), 0u);
  auto const other = AT.commit(1, this->b_);
  AT.take();
  STEP(3, [&] { this->waiting_->becomes(State::success, 90); }, this->written,
       {"tracker 1 userAdd", "write 1 90/1", "published 0x289 7 was -", "published 0x286 7 gone"});
}

TYPED_TEST(SelectiveRows, anEntryThatComesBackAndGoesAgainEndsTheSameDance) {
  this->inTheDance();
  this->handle_ = AT.ref(7, this->waiting_);
  EXPECT_EQ(AT.state(7), "U waiting, R no value, T referenceOnly, E unresolved, S inProgress, Q 1");
  AT.take();
  STEP(23, [&] { this->handle_ = nullptr; }, this->dancing, {"published 0x286 7 gone"});
  EXPECT_EQ(AT.usesOf(this->waiting_), 0u);
  STEP(18, [&] { AT.answer(0); }, "U none, R none, no handle",
       {"tracker 0 userRemoveInactive", "delete 0", "published 0x289 7 was -",
        "published 0x287 7 gone"});
  EXPECT_EQ(AT.usesOf(this->b_), 0u);
}

#undef STEP
#undef AT

}  // namespace
}  // namespace Group
