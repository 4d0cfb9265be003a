// Small scopes, searched whole: two groups, one of each table that stands on blocks, two blocks, two
// next hops, on the real tables and the simulated chip, in every order of what clients, next hops and
// the chip's acknowledgements can do, up to a depth. The chip stops the process at the operation that
// leaves a row pointing at nothing; nothing may be left in the end, in the tables or in memory.
//
// DLB_SCOPE_DEPTH=N searches deeper than the build's test run does. DLB_SCOPE_ORDER="commit A on X; next
// hop 0 comes; ..." plays that order alone, with all that the tables trace: so an order that a failure
// names can be looked at.

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>

#include "Life.h"
#include "forwarding/NextHopSwTable.h"
#include "group/EcmpGroup1SelectiveDlbSwTable.h"
#include "group/VxlanEcmpGroup1SelectiveDlbSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"
#include "platform/asic/IndexUserTracker.h"
#include "platform/zarn/Trace.h"

namespace Chips {
namespace {

using Selective = TessarLoadBalance::EcmpGroup1SelectiveDlbTable;
using VxlanSelective = TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable;
using Members = TessarLoadBalance::DlbEcmpMember1Table;
using NextHops = Forwarding::NextHopTable;
using State = Asic::SwTableBase::EntryState;
using Handle = Vell::Ptr<Asic::SwTableBase::EntryHandle const>;
using Tracker = Asic::IndexUserTracker::Stub;

enum Group : U32 { groupA, groupB };
enum Block : U32 { blockX, blockY };

/// What one order has come to, for whoever reads of an abort.
std::string order;

/// One table with the chip's hooks and hardware, past its set-up and before its replay.
template <class T>
Vell::Ptr<T> connected(Vell::Ptr<T> table, Vell::Ptr<Asic::Chip> const& chip) {
  EXPECT_TRUE(Asic::TableRunner(table).attachUtil("sim"));
  table->chipIs(chip);
  table->doCreateHwTable();
  table->doCreateAllocator();
  return table;
}

/// A row that a former life left, as sync tells a table of it.
template <class T>
using FoundRows = std::map<U32, typename T::Entry>;

struct Found {
  FoundRows<NextHops> nextHops;
  FoundRows<Members> members;
  FoundRows<Selective> selective;
  FoundRows<VxlanSelective> vxlan;
};

template <class T>
void find(T& table, FoundRows<T> const& rows) {
  for (auto const& [row, entry] : rows) {
    Tracker::tracker(*table.hwTable()).recover(row);
    table.syncedEntryIs(row, entry);
  }
}

class World {
 public:
  explicit World(Vell::Ptr<Asic::Chip> const& chip) : chip_(chip) {}

  void find(Found const& found) {
    hasFound = !found.selective.empty();
    Chips::find(*nextHops, found.nextHops);
    Chips::find(*members, found.members);
    Chips::find(*selective, found.selective);
    Chips::find(*vxlan, found.vxlan);
  }

  // What clients do.

  Handle commit(Group group, Block block) {
    return group == groupA ? selective->entryCommit({}, entryOf<Selective>(block))
                           : vxlan->entryCommit({}, entryOf<VxlanSelective>(block));
  }
  void ref(Group group, Block block) {
    held[group] = group == groupA ? selective->entryRef({}, entryOf<Selective>(block))
                                  : vxlan->entryRef({}, entryOf<VxlanSelective>(block));
  }
  void remove(Group group) {
    group == groupA ? selective->entryRemove({}) : vxlan->entryRemove({});
  }
  void drop(Group group) { held[group] = nullptr; }
  void suggest(Group group, U32 index) {
    Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle(group), {index});
  }

  // What next hops do.

  void come(U32 id) {
    NextHops::Entry entry;
    entry.port = static_cast<U16>(id + 1);
    nextHops->entryCommit({.id = id}, entry);
    came[id] = true;
  }
  void fail(U32 id) { nextHops->entryHandle({.id = id})->entryStateIs(State::failedNoIndex); }
  void go(U32 id) {
    nextHops->entryRemove({.id = id});
    came[id] = false;
  }

  // What the chip and the owner do.

  void endReplay() {
    nextHops->doInitComplete();
    members->doInitComplete();
    selective->doInitComplete();
    vxlan->doInitComplete();
    topDown([](auto& table) { table.purgeStaleEntries(); });
  }
  void acknowledge(Group group) {
    auto& hw = hwTable(group);
    auto const row = indexOf(group);
    hw.writeResponseIs({hw.newestWrite(row), row, State::success});
    hw.deliverWriteResponses();
  }

  Handle handle(Group group) const {
    if (group == groupA) return selective->entryHandle({});
    return vxlan->entryHandle({});
  }
  Asic::HwTable& hwTable(Group group) const {
    return group == groupA ? *selective->hwTable() : *vxlan->hwTable();
  }
  Asic::Index indexOf(Group group) const {
    Selective::Key const a;
    VxlanSelective::Key const b;
    return group == groupA ? selective->indexAllocator()->indexForKey(Selective::keyType(), &a)
                           : vxlan->indexAllocator()->indexForKey(VxlanSelective::keyType(), &b);
  }
  bool awaitsAnswer(Group group) const {
    auto const index = indexOf(group);
    return !index.isExhausted() && hwTable(group).newestWrite(index) != 0;
  }
  bool isReplaying() const { return !selective->configReplayComplete(); }

  // The ends.

  /// Everybody lets go, and all is acknowledged.
  void settle() {
    if (isReplaying() && hasFound) endReplay();
    for (auto const group : {groupA, groupB}) {
      remove(group);
      drop(group);
    }
    if (isReplaying()) endReplay();
    while (awaitsAnswer(groupA) || awaitsAnswer(groupB))
      acknowledge(awaitsAnswer(groupA) ? groupA : groupB);
    for (U32 id : {0, 1}) nextHops->entryRemove({.id = id});
  }
  void isEmpty() const {
    EXPECT_EQ(selective->entrys() + vxlan->entrys() + members->entryBlocks() + nextHops->entrys(),
              0u);
    EXPECT_EQ(selective->unresolvedMap().count() + vxlan->unresolvedMap().count(), 0u);
    topDown([](auto& table) {
      EXPECT_EQ(table.indexAllocator()->totalUsedIndices(), 0u);
      EXPECT_EQ(Tracker::tracker(*table.hwTable()).indices(), 0u);
    });
  }
  /// The tables go, the upper first, in whatever state they are; those who hold handles last.
  void end() {
    vxlan = nullptr;
    selective = nullptr;
    members = nullptr;
    nextHops = nullptr;
    for (auto& each : held) each = nullptr;
  }
  /// Ends as a process does, with the hardware as it is.
  void endWarm() {
    topDown([](auto& table) {
      table.utilIs(nullptr);
      Tracker::deleteTracker(table.hwTable(), 0, false);
    });
    end();
  }

  template <class Action>
  void topDown(Action action) const {
    action(*vxlan);
    action(*selective);
    action(*members);
    action(*nextHops);
  }

  bool hasFound = false;
  std::array<Handle, 2> held;
  std::array<bool, 2> came{};

 private:
  template <class T>
  typename T::Entry entryOf(Block block) {
    // X stands on both next hops, Y on the second.
    Members::EntryBlock rows;
    for (U32 id = block == blockX ? 0 : 1, offset = 0; id < 2; ++id, ++offset) {
      Members::Entry row;
      row.ecmpNextHopEntryHandle = nextHops->entryRef({.id = id});
      rows.entryIs(offset, row);
    }
    typename T::Entry entry;
    entry.countSecondary = Zarn::U12(rows.getBlockSize());
    entry.secondaryBlockValid = true;
    entry.ecmpSecondaryBlockPtrHandle = members->entryBlockRef(rows);
    return entry;
  }

  Vell::Ptr<Asic::Chip> chip_;

 public:
  Vell::Ptr<NextHops> nextHops = connected(Forwarding::nextHopTableFactory(), chip_);
  Vell::Ptr<Members> members = connected(TessarLoadBalance::dlbEcmpMember1TableFactory(), chip_);
  Vell::Ptr<Selective> selective =
      connected(TessarLoadBalance::ecmpGroup1SelectiveDlbTableFactory("a"), chip_);
  Vell::Ptr<VxlanSelective> vxlan =
      connected(TessarLoadBalance::vxlanEcmpGroup1SelectiveDlbTableFactory("b"), chip_);
};

// ---- what can happen ----

struct Step {
  std::string_view name;
  bool (*isPossible)(World const&);
  void (*run)(World&);
};

/// What takes something away waits, after a restart, for the end of the replay: rows that nobody has
/// claimed yet may point at what would go.
bool mayTakeAway(World const& world) { return !(world.hasFound && world.isReplaying()); }
template <Group group>
bool isHeld(World const& world) {
  return mayTakeAway(world) && world.held[group] != nullptr;
}
template <Group group>
bool isFree(World const& world) {
  return world.held[group] == nullptr;
}
template <Group group>
bool isCommitted(World const& world) {
  auto const handle = world.handle(group);
  return mayTakeAway(world) && handle &&
         handle->entryType() == Asic::SwTableBase::EntryType::committed;
}
template <Group group>
bool canAnswer(World const& world) {
  return !world.isReplaying() && world.awaitsAnswer(group);
}
template <Group group>
bool canBeSuggested(World const& world) {
  auto const handle = world.handle(group);
  return world.isReplaying() && handle && handle->entryState() == State::unresolved;
}
template <U32 id>
bool canCome(World const& world) {
  return !world.came[id];
}
template <U32 id>
bool canFail(World const& world) {
  auto const handle = world.nextHops->entryHandle({.id = id});
  return !world.came[id] && handle && handle->entryState() == State::unresolved;
}
template <U32 id>
bool canGo(World const& world) {
  return mayTakeAway(world) && world.came[id];
}
bool isReplaying(World const& world) { return world.isReplaying(); }
bool always(World const&) { return true; }

constexpr Step steps[] = {
    {"commit A on X", &always, [](World& w) { w.commit(groupA, blockX); }},
    {"commit A on Y", &always, [](World& w) { w.commit(groupA, blockY); }},
    {"commit B on X", &always, [](World& w) { w.commit(groupB, blockX); }},
    {"commit B on Y", &always, [](World& w) { w.commit(groupB, blockY); }},
    {"ref A on X", &isFree<groupA>, [](World& w) { w.ref(groupA, blockX); }},
    {"ref B on Y", &isFree<groupB>, [](World& w) { w.ref(groupB, blockY); }},
    {"remove A", &isCommitted<groupA>, [](World& w) { w.remove(groupA); }},
    {"remove B", &isCommitted<groupB>, [](World& w) { w.remove(groupB); }},
    {"drop A", &isHeld<groupA>, [](World& w) { w.drop(groupA); }},
    {"drop B", &isHeld<groupB>, [](World& w) { w.drop(groupB); }},
    {"next hop 0 comes", &canCome<0>, [](World& w) { w.come(0); }},
    {"next hop 1 comes", &canCome<1>, [](World& w) { w.come(1); }},
    {"next hop 1 fails", &canFail<1>, [](World& w) { w.fail(1); }},
    {"next hop 0 goes", &canGo<0>, [](World& w) { w.go(0); }},
    {"next hop 1 goes", &canGo<1>, [](World& w) { w.go(1); }},
    {"A is acknowledged", &canAnswer<groupA>, [](World& w) { w.acknowledge(groupA); }},
    {"B is acknowledged", &canAnswer<groupB>, [](World& w) { w.acknowledge(groupB); }},
    {"the replay ends", &isReplaying, [](World& w) { w.endReplay(); }},
    // Where the groups lay in the life before; in a first life, where nothing lies.
    {"A is suggested 0", &canBeSuggested<groupA>, [](World& w) { w.suggest(groupA, 0); }},
    {"B is suggested 1", &canBeSuggested<groupB>, [](World& w) { w.suggest(groupB, 1); }},
};

// ---- the search ----

enum class Start { empty, restart };

/// Walks through all orders, each from its beginning: a world cannot be copied.
class Search {
 public:
  Search(Vell::Ptr<Asic::Chip> chip, Start start, std::size_t depth)
      : chip_(std::move(chip)), start_(start), depth_(depth) {}

  /// One order, by the names of its steps.
  void play(std::string_view names) {
    World world(chip_);
    if (start_ == Start::restart) world.find(formerLife());
    world.topDown([](auto& table) { Zarn::TraceHandle::levelsIs(table.names.qualified, ~0u); });
    for (auto at = names; !at.empty(); at.remove_prefix(std::min(at.size(), at.find(';') + 2))) {
      auto const* const step = std::ranges::find(steps, at.substr(0, at.find(';')), &Step::name);
      if (step == std::end(steps)) break;  // how it ended
      std::cerr << "---- " << step->name << '\n';
      step->run(world);
      if (at.find(';') == at.npos) break;
    }
    std::cerr << "---- everybody lets go\n";
    world.settle();
    world.isEmpty();
    world.end();
  }

  U64 run() {
    auto const before = (play(), liveObjects());
    U64 orders = 0;
    do {
      play();
      EXPECT_EQ(liveObjects(), before) << "left in memory after: " << order;
      if (++orders % 4096 == 0) hardwareIsEmpty();
    } while (!testing::Test::HasFailure() && next());
    hardwareIsEmpty();
    return orders;
  }

 private:
  struct Choice {
    std::size_t taken;
    std::size_t of;
  };

  /// The next order, in which the last choice that had another possibility takes that.
  bool next() {
    while (!choices_.empty() && ++choices_.back().taken == choices_.back().of) choices_.pop_back();
    return !choices_.empty();
  }
  std::size_t choose(std::size_t at, std::size_t of) {
    if (at == choices_.size()) choices_.push_back({0, of});
    return choices_[at].taken;
  }

  void play() {
    order.clear();
    Found found;
    if (start_ == Start::restart) found = formerLife();
    World world(chip_);
    world.find(found);
    std::size_t at = 0;
    for (; at < depth_; ++at) {
      std::vector<Step const*> possible;
      for (auto const& step : steps)
        if (step.isPossible(world)) possible.push_back(&step);
      auto const& step = *possible[choose(at, possible.size())];
      order.append(step.name) += "; ";
      step.run(world);
    }
    // Rows that nobody claimed stay when a table goes; so that end is for hardware that held none.
    bool const tablesGo = start_ == Start::empty && choose(at, 2) == 1;
    order += tablesGo ? "the tables go" : "everybody lets go";
    if (!tablesGo) {
      world.settle();
      world.isEmpty();
    }
    world.end();
  }

  /// A on X and B on Y, acknowledged; what the hardware holds after it.
  Found formerLife() {
    World world(chip_);
    for (U32 id : {0, 1}) world.come(id);
    world.commit(groupA, blockX);
    world.commit(groupB, blockY);
    world.endReplay();
    for (auto const group : {groupA, groupB}) world.acknowledge(group);
    Found found;
    for (U32 id : {0, 1}) found.nextHops[id] = world.nextHops->entry({.id = id});
    auto const keep = [&](auto& groups, auto& table) {
      auto entry = table.entry({});
      auto const& block =
          static_cast<Members::EntryHandle const&>(*entry.ecmpSecondaryBlockPtrHandle);
      auto const rows = world.members->resolvedRows(block.key());
      for (U32 i = 0; i < rows.blockSize(); ++i) {
        auto row = rows.entry(i);
        row.ecmpNextHopEntryHandle = nullptr;
        found.members[block.hwIndex().value() + i] = row;
      }
      entry.ecmpSecondaryBlockPtrHandle = nullptr;
      groups[table.entryHandle({})->hwIndex().value()] = entry;
    };
    keep(found.selective, *world.selective);
    keep(found.vxlan, *world.vxlan);
    EXPECT_TRUE(found.selective.contains(0) && found.vxlan.contains(1));
    world.endWarm();
    return found;
  }

  static U64 liveObjects() {
    U64 live = 0;
    for (auto const* type = Zarn::AllocTrackTypeInfo::first(); type; type = type->next())
      live += type->live();
    return live;
  }

  void hardwareIsEmpty() {
    World world(chip_);
    world.topDown([](auto& table) {
      table.syncEntries();
      EXPECT_EQ(table.syncedEntryMap().count(), 0u) << "left in the hardware after: " << order;
    });
    world.end();
  }

  Vell::Ptr<Asic::Chip> chip_;
  Start start_;
  std::size_t depth_;
  std::vector<Choice> choices_;
};

class SmallScopes : public ChipTest, public testing::WithParamInterface<Start> {
 protected:
  static std::size_t depth() {
    if (auto const* asked = std::getenv("DLB_SCOPE_DEPTH")) return std::strtoul(asked, nullptr, 10);
#if defined(__SANITIZE_ADDRESS__)
    return 4;
#else
    return 6;
#endif
  }
};

TEST_P(SmallScopes, noOrderLeavesARowThatPointsAtNothingOrAnythingBehind) {
  // An assertion of the library ends the process: say in which order.
  auto const former = std::signal(SIGABRT, [](int) {
    auto const text = "\nstopped in: " + order + "\n";
    static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
  });
  auto chip = newChip();
  // The test itself acknowledges, in any order.
  chip->open(faulty(hardware, {{"lose-acks", "100"}, {"stop-at-breach", "on"}}));
  if (auto const* names = std::getenv("DLB_SCOPE_ORDER"))
    return Search(chip, GetParam(), 0).play(names);
  auto const orders = Search(chip, GetParam(), depth()).run();
  std::signal(SIGABRT, former);
  std::cout << "[ searched ] " << orders << " orders of " << depth() << " steps\n";
  RecordProperty("orders", static_cast<int>(orders));
}

INSTANTIATE_TEST_SUITE_P(From, SmallScopes, testing::Values(Start::empty, Start::restart),
                         [](auto const& each) {
                           return each.param == Start::empty ? "empty" : "restart";
                         });

}  // namespace
}  // namespace Chips
