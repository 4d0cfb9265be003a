// Hooks and watchers that change the very block, or next hop, that is being written or removed.

#include "Blocks.h"

namespace Member {
namespace {

using NextHops = Forwarding::NextHopTable;

/// A block over one next hop, after a restart that found a row of next hops.
struct Life {
  class NextHopUtil final : public Testing::RecordingUtil<NextHops> {
   public:
    U32 numEntries() const override { return 4; }
  };

  Vell::Ptr<NextHopUtil> util{new NextHopUtil};
  Vell::Ptr<NextHops> nextHops = Forwarding::nextHopTableFactory();
  Recorded at;
  HandlePtr held;
  std::optional<U16> wish;  ///< the port, unless the next hop was taken back

  Life() {
    nextHops->utilIs(util);
    nextHops->hwTableIs(new Asic::HwTable);
    util->indexKnownAtWriteIs(true);
    nextHops->doCreateAllocator();
    util->rows[0].emplace().port = 1;
    nextHops->syncEntries();
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
  /// What must be true at rest, past the replay.
  void isConsistent() {
    auto const trackerOf = &Asic::IndexUserTracker::Stub::tracker;
    EXPECT_EQ(util->rows.size(), nextHops->resolvedCount());
    EXPECT_EQ(nextHops->indexAllocator()->totalUsedIndices(), util->rows.size());
    EXPECT_EQ(trackerOf(*nextHops->hwTable()).indices(), util->rows.size());
    for (auto const& [index, entry] : util->rows) {
      EXPECT_EQ(entry->port, nextHops->entry({.id = 0}).port);
      EXPECT_EQ(entry->port, wish.value_or(entry->port));
      EXPECT_EQ(trackerOf(*nextHops->hwTable()).uses(index).users, 1u);
    }
    EXPECT_EQ(at.allocator()->totalUsedIndices(), at.util->rows.size());
    EXPECT_EQ(trackerOf(*at.table->hwTable()).indices(), at.util->rows.size());
    for (auto const& [index, entry] : at.util->rows) {
      EXPECT_EQ(at.usesOf(index), 1u);
      EXPECT_TRUE(entry->weightIdx == 2 || util->rows.contains(entry->ecmpNextHopEntry));
    }
  }
};

// Two callbacks, the second at an event of the first or after it: whatever comes back is whole, and
// the newest wish stands.
TEST(BlockReentrancy, everyEventMayCallTheTables) {
  using Actions = std::map<std::string, void (*)(Life&)>;
  Actions const starts{
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
  Actions const callBacks{
      {"commits", [](Life& life) { life.commit(2); }},
      {"commits a third value", [](Life& life) { life.commit(3); }},
      {"removes", [](Life& life) { life.remove(); }},
      {"removes all", [](Life& life) { life.letGo(), life.remove(); }},
      {"commits the block", [](Life& life) { life.at.table->entryBlockCommit(life.key()); }},
      {"holds the block", [](Life& life) { life.held = life.at.table->entryBlockRef(life.key()); }},
      {"lets the block go", [](Life& life) { life.letGo(); }}};
  auto triggers = callBacks;
  triggers["suggests"] = [](Life& life) { life.suggest(); };
  triggers["ends the replay"] = [](Life& life) { life.endReplay(); };
  for (auto const& [start, begin] : starts)
    for (auto const& [trigger, act] : triggers)
      for (auto const& [text, callBack] : callBacks)
        for (U32 gap = 0; gap < 4; ++gap)
          for (U32 moment = 0, seen = 1; seen > moment; ++moment) {
            SCOPED_TRACE(Vell::concatenate(start, ", ", trigger, "; at event ", moment, ' ', text,
                                           ", and commits ", gap, " later"));
            Life life;
            begin(life);
            auto const watching = life.nextHops->publisher()->watch(
                Vell::Publisher::everyField, [&](auto&) { life.util->note("published"); });
            seen = 0;
            life.util->onEvent = life.at.util->onEvent = [&, &call = callBack](auto&) {
              auto const now = seen++;
              if (now == moment) return call(life);
              if (gap != 0 && now == moment + gap) life.commit(4);
            };
            act(life);
            life.util->onEvent = life.at.util->onEvent = nullptr;
            life.endReplay();
            life.isConsistent();
            life.letGo();
            life.remove();
            EXPECT_EQ(life.nextHops->entrys() + life.at.table->entryBlocks(), 0u);
            life.isConsistent();
          }
}

}  // namespace
}  // namespace Member
