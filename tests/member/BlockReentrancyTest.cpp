// Hooks and watchers that change the very block, or next hop, that is being written or removed.

#include "Blocks.h"
#include "support/EveryEvent.h"

namespace Member {
namespace {

using NextHops = Forwarding::NextHopTable;

/// A block over one next hop, after a restart that found a row of next hops.
struct Life {
  Testing::RecordedHandles<NextHops> lower{Forwarding::nextHopTableFactory(), 4};
  NextHops* nextHops = lower.table.get();
  Testing::RecordingHandleUtil<NextHops>* util = lower.util.get();
  Recorded at;
  HandlePtr held;
  std::optional<U16> wish;  ///< the port, unless the next hop was taken back

  Life() {
    util->indexKnownAtWriteIs(true);
    util->rows[0].emplace().port = 1;
    lower.synced();
    lower.watch(Vell::Publisher::everyField, [](auto&) { return ""; });
    at.synced().replayed();
  }
  void commit(U16 port) {
    NextHops::Entry entry;
    entry.port = *(wish = port);
    nextHops->entryCommit({.id = 0}, entry);
  }
  void remove() {
    wish.reset();
    nextHops->entryRemove({.id = 0});
  }
  Block key() { return block({row(nextHops->entryRef({.id = 0}), 1), row(nullptr, 2, 70)}); }
  void suggest() {
    auto const handle = nextHops->entryHandle({.id = 0});
    if (handle && !nextHops->configReplayComplete() && handle->entryState() == State::unresolved)
      Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, {0});
  }
  void endReplay() {
    nextHops->doInitComplete();
    nextHops->purgeStaleEntries();
  }
  void letGo() {
    auto const former = std::exchange(held, nullptr);
    at.table->entryBlockRemoveAll();
  }
  void onEvent(std::function<void(std::string const&)> const& heard) {
    util->onEvent = at.util->onEvent = heard;
  }
  void ended() {
    endReplay();
    isConsistent();
    letGo();
    remove();
    EXPECT_EQ(nextHops->entrys() + at.table->entryBlocks(), 0u);
    isConsistent();
  }
  /// What must be true at rest, past the replay.
  void isConsistent() {
    EXPECT_EQ(util->rows.size(), nextHops->resolvedCount());
    EXPECT_EQ(nextHops->indexAllocator()->totalUsedIndices(), util->rows.size());
    EXPECT_EQ(lower.tracker().indices(), util->rows.size());
    for (auto const& [index, entry] : util->rows) {
      EXPECT_EQ(entry->port, nextHops->entry({.id = 0}).port);
      EXPECT_EQ(entry->port, wish.value_or(entry->port));
      EXPECT_EQ(lower.usesOf(index), 1u);
    }
    EXPECT_EQ(at.allocator()->totalUsedIndices(), at.util->rows.size());
    EXPECT_EQ(at.tracker().indices(), at.util->rows.size());
    for (auto const& [index, entry] : at.util->rows) {
      EXPECT_EQ(at.usesOf(index), 1u);
      EXPECT_TRUE(entry->weightIdx == 2 || util->rows.contains(entry->ecmpNextHopEntry));
    }
  }
};

// Two callbacks, the second at an event of the first or after it: whatever comes back is whole, and
// the newest wish stands.
TEST(BlockReentrancy, everyEventMayCallTheTables) {
  Testing::EveryEvent<Life> every;
  every.starts = {
      {"a replay with nothing", [](Life&) {}},
      {"a replay with a next hop", [](Life& life) { life.commit(1); }},
      {"a replay with both",
       [](Life& life) { life.commit(1), life.at.table->entryBlockCommit(life.key()); }},
      {"nothing", [](Life& life) { life.endReplay(); }},
      {"a next hop", [](Life& life) { life.commit(1), life.endReplay(); }},
      {"a block",
       [](Life& life) { life.endReplay(), life.at.table->entryBlockCommit(life.key()); }},
      {"both", [](Life& life) {
         life.endReplay(), life.commit(1), life.held = life.at.table->entryBlockRef(life.key());
       }}};
  every.callBacks = {
      {"commits", [](Life& life) { life.commit(2); }},
      {"commits a third value", [](Life& life) { life.commit(3); }},
      {"removes", [](Life& life) { life.remove(); }},
      {"removes all", [](Life& life) { life.letGo(), life.remove(); }},
      {"commits the block", [](Life& life) { life.at.table->entryBlockCommit(life.key()); }},
      {"holds the block", [](Life& life) { life.held = life.at.table->entryBlockRef(life.key()); }},
      {"lets the block go", [](Life& life) { life.letGo(); }}};
  every.triggers = every.callBacks;
  every.triggers["suggests"] = [](Life& life) { life.suggest(); };
  every.triggers["ends the replay"] = [](Life& life) { life.endReplay(); };
  every.second = [](Life& life) { life.commit(4); };
  every.play();
}

// Each row of a replay is written over the one before it, and the tracker was told of the first.
TEST(BlockReentrancy, aNextHopThatIsRewrittenInAReplayHasOneUse) {
  Life life;
  life.commit(1);
  life.suggest();
  life.commit(2);
  life.commit(3);
  life.ended();
}

}  // namespace
}  // namespace Member
