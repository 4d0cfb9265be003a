// Watchers and hooks that call back into the table that is calling them.

#include <functional>

#include "Groups.h"
#include "support/EveryEvent.h"

namespace Group {
namespace {

template <class T>
class GroupReentrancy : public testing::Test {};
TYPED_TEST_SUITE(GroupReentrancy, GroupTables);

/// A table after a restart that found three rows: one fits, one is rewritten, one stale.
template <class T>
struct Life {
  Groups<T> at;
  HandlePtr held;

  Life() { at.holding({{4, 1}, {6, 9}, {8, 9}}); }
  void replay() {
    at.recover(6, 6);
    auto const handle = at.commit(5, 1);
    at.commit(6, 2);
    at.commit(7, 3);
    if (handle->entryState() == State::unresolved) suggest(handle, {4, 8});
  }
  void commitOld() {
    at.replayed();
    at.follow(held = at.commit(5, 1));
  }
  void removeAll() {
    for (U32 id = 5; id < 14; ++id)
      if (at.table->entryHas(at.key(id))) at.remove(id);
  }
  void onEvent(std::function<void(std::string const&)> const& heard) {
    if (!heard && !at.table->configReplayComplete()) at.replayed();
    at.util->onEvent = heard;
  }
  void ended() {
    isConsistent(at);
    held = nullptr;
    at.table->entryRemoveAll();
    EXPECT_EQ(at.table->entrys(), 0u);
    isConsistent(at);
  }
};

// Whatever is done at whatever moment, table, hardware, tracker and allocator agree afterwards.
TYPED_TEST(GroupReentrancy, everyEventMayCallTheTable) {
  using Of = Life<TypeParam>;
  Testing::EveryEvent<Of> every;
  every.starts = {{"a replay", [](Of&) {}},
                  {"a new entry", [](Of& life) { life.at.replayed(); }},
                  {"an old entry", [](Of& life) { life.commitOld(); }}};
  every.triggers = {{"commit", [](Of& life) { life.at.commit(5, 2); }},
                    {"reference", [](Of& life) { life.at.ref(5, 2); }},
                    {"acknowledgement", [](Of& life) { life.at.answer(0); }},
                    {"refusal", [](Of& life) { life.at.answer(0, Asic::WriteResponse::refused); }},
                    {"drop", [](Of& life) { life.at.remove(5), life.held = nullptr; }},
                    {"commits of a replay", [](Of& life) {
                       if (!life.at.table->configReplayComplete()) life.replay();
                     }}};
  every.callBacks = {
      {"commits another value", [](Of& life) { life.at.commit(5, 3); }},
      {"commits the value of before", [](Of& life) { life.at.commit(5, 1); }},
      {"references it", [](Of& life) { life.at.ref(5, 4); }},
      {"references and holds it", [](Of& life) { life.held = life.at.ref(5, 4); }},
      {"removes it", [](Of& life) { life.at.remove(5); }},
      {"lets go", [](Of& life) { life.held = nullptr; }},
      {"removes and lets go", [](Of& life) { life.at.remove(5), life.held = nullptr; }},
      {"removes all", [](Of& life) { life.removeAll(); }},
      {"commits other keys",
       [](Of& life) {
         for (U32 id = 8; id < 14; ++id) life.at.commit(id, 1);
       }},
      {"takes the stale row",
       [](Of& life) { life.at.table->entryWriteAtIndex(8, life.at.key(9), life.at.entry(2)); }},
      {"takes the candidate",
       [](Of& life) { life.at.table->entryWriteAtIndex(4, life.at.key(9), life.at.entry(2)); }},
      {"removes and commits", [](Of& life) { life.at.remove(5), life.at.commit(5, 3); }}};
  every.play();
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

}  // namespace
}  // namespace Group
