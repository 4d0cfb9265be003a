// A small world of tables that stand on each other, full of watchers and hooks that act in the midst of
// what they hear: one trial of the command `watchers`.

#pragma once

#include <memory>

#include "endurance/FollowedTable.h"

namespace Endurance {

/// What watchers, hooks and the outside do.
enum class Action : U8 {
  directCommit,
  directRemove,
  hopCommit,
  hopReference,
  hopRemove,
  blockCommit,
  blockReference,
  blockRemove,
  groupCommit,
  groupReference,
  groupRemove,
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
      "direct commits",    "direct removals",  "next hop commits", "next hop references",
      "next hop removals", "block commits",    "block references", "block removals",
      "group commits",     "group references", "group removals",   "handle drops",
      "subscriptions",     "unsubscriptions",  "acknowledgements", "suggestions"};

  U64 actions = 0, events = 0, heard = 0, refusals = 0, replays = 0, endsInPlace = 0;
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
  enum Kept { keptHops, keptBlocks, keptGroups, keptSelectives };
  using Block = Members::EntryBlock;

  U64 below(U64 bound) { return ground_.below(bound); }
  template <class... Parts>
  void say(Parts const&... parts) const;
  /// From the top down.
  template <class Visitor>
  void forEachTable(Visitor visitor) {
    visitor(*direct_);
    visitor(*groups_);
    visitor(*selectives_);
    visitor(*members_);
    visitor(*hops_);
  }

  // ---- phases ----

  void foundRows();
  void actFromOutside();
  void replayEnds();
  void endEmpty();
  void endInPlace();
  void settle();

  // ---- actions ----

  /// Whoever hears of something may act.
  void mayAct();
  void act();
  Action draw();
  /// False if the table is there no more.
  bool carryOut(Action action);
  template <class Change>
  bool onGroups(Change change);
  void changeDirect(Action action);
  void changeHop(Action action);
  void changeBlock(Action action);
  template <class T>
  void changeGroup(FollowedTable<T>& at, Kept kept, Action action);
  template <class T>
  typename T::Entry groupEntry();
  void keep(Kept kept, HandlePtr handle);
  void drop();
  void subscribe();
  void unsubscribe();
  void watch(Vell::Publisher& publisher, Audience& audience, U32 field);
  template <class T>
  void acknowledge(FollowedTable<T>& at);
  template <class T>
  void suggestTo(FollowedTable<T>& at);
  void suggest();
  HandlePtr hop(U32 id);
  Zarn::Optional<Block> block(U32 number);
  HandlePtr blockHandle(U32 number);

  // ---- what must be true between actions ----

  void check();
  template <class T>
  void checkHandles(FollowedTable<T>& at, Kept kept);
  template <class T>
  void checkStates(FollowedTable<T>& at, U32 number);
  template <class T>
  void checkRows(FollowedTable<T>& at);
  void checkDirect();
  U32 usesOf(AnyHandle const* block);
  void throwWhatWasFound();

  Ground ground_;
  WatchCounts& counts_;
  bool isShown_;
  std::unique_ptr<FollowedTable<Direct>> direct_;
  std::unique_ptr<FollowedTable<NextHops>> hops_;
  std::unique_ptr<FollowedTable<Members>> members_;
  std::unique_ptr<FollowedTable<Groups>> groups_;
  std::unique_ptr<FollowedTable<Selectives>> selectives_;
  std::array<Zarn::Optional<U32>, keys> wanted_;  ///< of the direct table
  std::array<std::vector<HandlePtr>, 4> kept_;
  std::vector<Watcher> watchers_;
  U32 depth_ = 0;
  U32 actionsLeft_ = 0;  ///< in the midst of the action from outside that goes on
  U32 actsOneIn_ = 4;    ///< how rarely somebody who hears of something acts
  bool watchersAct_ = false;
  bool isPurged_ = false;
  bool refuses_ = false;
};

}  // namespace Endurance
