// Watchers and hooks that call back into the table that is calling them.

#include <functional>

#include "Groups.h"

namespace Group {
namespace {

template <class T>
class GroupReentrancy : public testing::Test {};
TYPED_TEST_SUITE(GroupReentrancy, GroupTables);

// Whatever is done at whatever moment, table, hardware, tracker and allocator agree afterwards.
TYPED_TEST(GroupReentrancy, everyEventMayCallTheTable) {
  using At = Groups<TypeParam>;
  struct Life {
    At at;
    HandlePtr held;
    Life() { at.holding({}).replayed(); }
  };
  using Action = std::function<void(Life&)>;
  std::map<std::string, Action> const callBacks{
      {"commits another value", [](Life& life) { life.at.commit(5, 3); }},
      {"commits the value of before", [](Life& life) { life.at.commit(5, 1); }},
      {"references it", [](Life& life) { life.at.ref(5, 4); }},
      {"references and holds it", [](Life& life) { life.held = life.at.ref(5, 4); }},
      {"removes it", [](Life& life) { life.at.remove(5); }},
      {"lets go", [](Life& life) { life.held = nullptr; }},
      {"removes and lets go", [](Life& life) { life.at.remove(5), life.held = nullptr; }},
      {"removes all", [](Life& life) { life.at.table->entryRemoveAll(); }},
      {"commits another key",
       [](Life& life) {
         for (U32 id = 6; id < 12; ++id) life.at.commit(id, 1);
       }},
      {"removes and commits", [](Life& life) { life.at.remove(5), life.at.commit(5, 3); }},
  };
  std::map<std::string, Action> const triggers{
      {"commit", [](Life& life) { life.at.commit(5, 2); }},
      {"reference", [](Life& life) { life.at.ref(5, 2); }},
      {"acknowledgement", [](Life& life) { life.at.answer(0); }},
      {"refusal", [](Life& life) { life.at.answer(0, Asic::WriteResponse::refused); }},
      {"drop", [](Life& life) { life.at.remove(5), life.held = nullptr; }},
  };
  for (bool const wasThere : {false, true})
    for (auto const& [trigger, act] : triggers)
      for (auto const& [text, callBack] : callBacks)
        // The first event of a new entry tells of a handle without one: the next test.
        for (std::size_t moment = wasThere ? 0 : 1; moment < 8; ++moment) {
          SCOPED_TRACE(Vell::concatenate(trigger, " of ", wasThere ? "an old" : "a new",
                                         " entry; at event ", moment, " a callback ", text));
          Life life;
          if (wasThere) life.at.follow(life.held = life.at.commit(5, 1));
          std::size_t seen = 0;
          bool isInside = false;
          life.at.util->onEvent = [&, &call = callBack](auto&) {
            if (isInside || seen++ != moment) return;
            isInside = true;
            call(life);
            isInside = false;
          };
          act(life);
          life.at.util->onEvent = nullptr;
          isConsistent(life.at);
          life.held = nullptr;
          life.at.table->entryRemoveAll();
          EXPECT_EQ(life.at.table->entrys(), 0u);
          isConsistent(life.at);
          if (seen <= moment) break;
        }
}

// The publication of a new handle comes before its entry is stored: a removal there finds a handle
// that nobody has classified, and must not part it from the entry that is about to come.
TYPED_TEST(GroupReentrancy, aWatcherOfANewHandleMayRemoveItsKey) {
  Groups<TypeParam> at;
  at.replayed();
  U32 removals = 0;
  at.util->onEvent = [&](auto& event) {
    if (event == "published 0x286 5 new" && removals++ < 3) at.remove(5);
  };
  auto handle = at.commit(5, 1);
  EXPECT_EQ(at.table->entryHandle(at.key(5)), nullptr) << "the newest wish is that it goes";
  isConsistent(at);
  handle = at.table->entryRef(at.key(5), at.entry(2));
  EXPECT_EQ(handle->useCount(), 1u) << "the removals took nothing of it";
  at.util->onEvent = nullptr;
  handle = nullptr;
  EXPECT_THAT(at.util->rows, IsEmpty());
  EXPECT_EQ(at.allocator()->totalUsedIndices(), 0u);
}

// The same while a restarted table looks for its rows: one row fits, one is rewritten, one stale.
TYPED_TEST(GroupReentrancy, everyEventOfAReplayMayCallTheTable) {
  using At = Groups<TypeParam>;
  using Action = std::function<void(At&)>;
  std::map<std::string, Action> const callBacks{
      {"commits another value", [](At& at) { at.commit(5, 3); }},
      {"removes it", [](At& at) { at.remove(5); }},
      {"removes and commits", [](At& at) { at.remove(5), at.commit(5, 3); }},
      {"removes all",
       [](At& at) {
         for (U32 id : {5, 6, 7}) at.remove(id);
       }},
      {"commits other keys",
       [](At& at) {
         for (U32 id = 8; id < 14; ++id) at.commit(id, 1);
       }},
      {"takes the stale row",
       [](At& at) { at.table->entryWriteAtIndex(8, at.key(9), at.entry(2)); }},
      {"takes the candidate",
       [](At& at) { at.table->entryWriteAtIndex(4, at.key(9), at.entry(2)); }},
  };
  for (auto const& [text, callBack] : callBacks)
    for (std::size_t moment = 0;; ++moment) {
      SCOPED_TRACE(Vell::concatenate("at event ", moment, " a callback ", text));
      At at;
      at.holding({{4, 1}, {6, 9}, {8, 9}});
      at.recover(6, 6);
      std::size_t seen = 0;
      at.util->onEvent = [&, &call = callBack](auto& event) {
        if (!event.ends_with(" new") && seen++ == moment) call(at);
      };
      auto handle = at.commit(5, 1);
      at.commit(6, 2);
      at.commit(7, 3);
      if (handle->entryState() == State::unresolved) suggest(handle, {4, 8});
      handle = nullptr;
      at.table->doInitComplete();
      at.table->purgeStaleEntries();
      at.util->onEvent = nullptr;
      isConsistent(at);
      at.table->entryRemoveAll();
      EXPECT_THAT(at.util->rows, IsEmpty());
      EXPECT_EQ(at.allocator()->totalUsedIndices(), 0u);
      if (seen <= moment) break;
    }
}

}  // namespace
}  // namespace Group
