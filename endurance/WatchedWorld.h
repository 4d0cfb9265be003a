// A small world of tables that stand on each other, full of watchers and hooks that act in the midst of
// what they hear: one trial of the command `watchers`.
//
// Two direct tables, one of them with a structured key; next hops, and the blocks of no rows to three that
// need them; the four tables of groups, which share one allocator. Who acts: watchers of every field of every
// table and handle, every hook of the chip but the sync, and in some worlds the sink of the traces.
//
// What nobody does, since the contract forbids it:
//
//  1. Nothing is committed before all tables have read their hardware, nor from the midst of that.
//  2. Nothing is suggested once the replay of the table has ended, nor of one below it, nor to a handle that
//     is not `unresolved`. So nobody acts while replays end from the bottom up: who still replays there
//     suggests to those below.
//  3. A group without a value is stored by code below the client interface alone, past the replay, where no
//     handle stands for the key and an index is to be had, and no handle is made before it has a value again.
//  4. An empty value is stored over a value alone.
//  5. `cleanup` is called of entries that are referenced alone, and from outside.
//  6. No trial goes on after 100 walks of one removal: watchers run out of actions first.
//  7. A reader of traces leaves alone the entry that its line is about, the same number in any table that
//     shares an allocator with it, and whatever may lead there: it acts on other numbers of the direct and
//     the plain groups' tables alone.

#pragma once

#include <memory>

#include "endurance/FollowedTable.h"

namespace Endurance {

/// What watchers, hooks and the outside do.
enum class Action : U8 {
  directCommit,
  directRemove,
  directEmpty,
  hopCommit,
  hopReference,
  hopRemove,
  blockCommit,
  blockReference,
  blockRemove,
  groupCommit,
  groupReference,
  groupRemove,
  groupStore,
  makeHandle,
  cleanUp,
  drop,
  subscribe,
  unsubscribe,
  acknowledge,
  suggest,
};

/// What the trials come to.
struct WatchCounts {
  static constexpr U32 mostDepth = 8;
  /// By `Action`.
  static constexpr std::array names{
      "direct commits",   "direct removals",     "direct keys without a value",
      "next hop commits", "next hop references", "next hop removals",
      "block commits",    "block references",    "block removals",
      "group commits",    "group references",    "group removals",
      "groups stored",    "handles made",        "cleanups",
      "handle drops",     "subscriptions",       "unsubscriptions",
      "acknowledgements", "suggestions"};

  U64 actions = 0, events = 0, heard = 0, refusals = 0, replays = 0, endsInPlace = 0, traced = 0;
  std::array<U64, names.size()> byKind{};
  std::array<U64, mostDepth + 1> byDepth{};
};

class WatchedWorld {
 public:
  WatchedWorld(std::mt19937_64& random, WatchCounts& counts, bool isShown);
  ~WatchedWorld();

  /// From the birth of the tables to their end; throws a `Fault` for what must not be.
  void live();

 private:
  struct Watcher {
    Audience* audience;
    std::size_t seat;
    Vell::Subscription claim;
  };
  template <class T>
  using Followed = std::unique_ptr<FollowedTable<T>>;
  using Block = Members::EntryBlock;

  U64 below(U64 bound) { return ground_.below(bound); }
  template <class... Parts>
  void say(Parts const&... parts) const {
    if (isShown_) print(Vell::concatenate(parts...));
  }
  void print(std::string const& line) const;
  /// From the top down.
  template <class Visitor>
  void forEachTable(Visitor visitor) {
    visitor(*direct_);
    visitor(*qualities_);
    forEachGroupTable(visitor);
    visitor(*members_);
    visitor(*hops_);
  }
  template <class Visitor>
  void forEachGroupTable(Visitor visitor) {
    visitor(*groups_);
    visitor(*vxlanGroups_);
    visitor(*selectives_);
    visitor(*vxlanSelectives_);
  }

  // ---- phases ----

  void makeTables();
  void tracesAct();
  void foundRows();
  void foundBlock(U32 number);
  /// Where an earlier life had the key, if it did.
  template <class T>
  U32 formerPlace(U32 number) const {
    if constexpr (std::same_as<T, Members>)
      return number * members_->chip->numEntries() / 4;  // in a bank of its own
    else if constexpr (std::same_as<T, VxlanGroups> || std::same_as<T, VxlanSelectives>)
      return number + 2;
    else
      return number;
  }
  void actFromOutside();
  void replayEnds();
  void endEmpty();
  void everybodyLetsGo();
  void endInPlace();
  void settle();

  // ---- actions ----

  /// Whoever hears of something may act.
  void mayAct();
  void act();
  Action draw();
  U32 anyKey();
  /// False if the table is there no more.
  bool carryOut(Action action);
  bool carryOutOnEntry(Action action);
  template <class Change>
  bool onGroups(Change change);
  template <class Change>
  bool onHandles(Change change);
  template <class T>
  void changeDirect(FollowedTable<T>& at, Action action);
  void changeHop(Action action);
  void changeBlock(Action action);
  template <class T>
  void changeGroup(FollowedTable<T>& at, Action action);
  template <class T>
  HandlePtr writeGroup(FollowedTable<T>& at, U32 number, typename T::Entry const& entry,
                       bool isReference);
  template <class T>
  void removeGroup(FollowedTable<T>& at, U32 number);
  template <class T>
  void storeGroup(FollowedTable<T>& at);
  template <class T>
  typename T::Entry groupEntry();
  template <class T>
  void makeHandle(FollowedTable<T>& at);
  template <class T>
  void cleanUp(FollowedTable<T>& at);
  template <class T>
  void drop(FollowedTable<T>& at);
  void subscribe();
  template <class T>
  void subscribeTo(FollowedTable<T>& at);
  void unsubscribe();
  void watch(Vell::Publisher& publisher, Audience& audience, U32 field);
  template <class T>
  void acknowledge(FollowedTable<T>& at);
  void acknowledgeAll();
  template <class T>
  void suggestTo(FollowedTable<T>& at);
  void suggest();
  HandlePtr hop(U32 id);
  Zarn::Optional<Block> block(U32 number);
  HandlePtr blockHandle(U32 number);

  // ---- what must be true between actions ----

  void check();
  template <class T>
  void checkDirect(FollowedTable<T>& at);
  template <class T>
  void checkHandles(FollowedTable<T>& at);
  template <class T>
  void checkHandle(FollowedTable<T>& at, U32 number);
  template <class T>
  void checkHolders(FollowedTable<T>& at);
  template <class T>
  void checkWish(FollowedTable<T>& at, U32 number);
  template <class T>
  void checkStates(FollowedTable<T>& at, U32 number);
  template <class T>
  void checkProgress(FollowedTable<T>& at, U32 number);
  template <class T>
  void checkCollections(FollowedTable<T>& at);
  template <class T>
  void checkRows(FollowedTable<T>& at);
  template <class T>
  void checkRowsOf(FollowedTable<T>& at, typename T::Key const& key, U32 index);
  void checkGroupIndices();
  template <class T>
  bool isBesides(FollowedTable<T>& at, U32 number);
  U32 usesOf(AnyHandle const* block);
  template <class T>
  U32 usesIn(FollowedTable<T>& at, AnyHandle const* block);
  void throwWhatWasFound();

  Ground ground_;
  WatchCounts& counts_;
  bool isShown_;
  Followed<Direct> direct_;
  Followed<Qualities> qualities_;
  Followed<NextHops> hops_;
  Followed<Members> members_;
  Followed<Groups> groups_;
  Followed<VxlanGroups> vxlanGroups_;
  Followed<Selectives> selectives_;
  Followed<VxlanSelectives> vxlanSelectives_;
  std::vector<Watcher> watchers_;
  U32 depth_ = 0;
  U32 actionsLeft_ = 0;  ///< in the midst of the action from outside that goes on
  U32 actsOneIn_ = 4;    ///< how rarely somebody who hears of something acts
  U32 hotKey_ = 0;       ///< which most is done to
  U32 busiest_ = 0;      ///< the group table that most is done to, or 4
  U32 told_ = 0;  ///< a bit for each number that a line of trace, which is being read, is about
  bool watchersAct_ = false;
  bool isTraced_ = false;
  bool isPurged_ = false;
  bool refuses_ = false;
};

}  // namespace Endurance
