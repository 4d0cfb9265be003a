// What watchers, hooks and the outside do to the entries of a world's tables. Each wish is noted before the
// call that carries it, so that one from the midst of that call is the later one.

#include <numeric>

#include "endurance/WatchedWorld.h"

namespace Endurance {

void WatchedWorld::mayAct() {
  if (!watchersAct_ || depth_ == WatchCounts::mostDepth || actionsLeft_ == 0 ||
      told_ == (1u << keys) - 1 || below(actsOneIn_) != 0)
    return;
  --actionsLeft_;
  ++depth_;
  act();
  --depth_;
}

/// What many do something to at once is where most can go wrong.
U32 WatchedWorld::anyKey() {
  auto number = below(2) == 0 ? hotKey_ : static_cast<U32>(below(keys));
  while ((told_ >> number & 1) != 0) number = (number + 1) % keys;
  return number;
}

void WatchedWorld::act() {
  auto const action = draw();
  if (depth_ != 0) forEachTable([](auto& at) { at.look(); });
  Hearing::Scope const scope(ground_.hearing);
  if (!carryOut(action)) return;
  ++counts_.actions;
  ++counts_.byKind[static_cast<std::size_t>(action)];
  ++counts_.byDepth[depth_];
}

/// Some are drawn more often than others.
Action WatchedWorld::draw() {
  if (told_ != 0) {
    using enum Action;
    static constexpr std::array besidesALine{directCommit, directRemove,   directEmpty,
                                             groupCommit,  groupReference, groupRemove,
                                             subscribe,    unsubscribe};
    return besidesALine[below(besidesALine.size())];
  }
  static constexpr std::array<U32, 20> shares{2, 1, 1, 2, 1, 1, 2, 2, 1, 5,
                                              4, 3, 1, 1, 1, 3, 3, 1, 3, 2};
  static constexpr auto all = std::accumulate(shares.begin(), shares.end(), 0u);
  auto drawn = below(isPurged_ ? all - shares.back() : all);
  U8 at = 0;
  for (; drawn >= shares[at]; ++at) drawn -= shares[at];
  return static_cast<Action>(at);
}

bool WatchedWorld::carryOut(Action action) {
  using enum Action;
  switch (action) {
    case drop:
      return onHandles([&](auto& at) { this->drop(at); });
    case subscribe:
      return this->subscribe(), true;
    case unsubscribe:
      return this->unsubscribe(), true;
    case acknowledge:
      return onGroups([&](auto& at) { this->acknowledge(at); });
    case suggest:
      return this->suggest(), true;
    case makeHandle:
      return onHandles([&](auto& at) { this->makeHandle(at); });
    case cleanUp:
      return onGroups([&](auto& at) { this->cleanUp(at); });
    default:
      return carryOutOnEntry(action);
  }
}

bool WatchedWorld::carryOutOnEntry(Action action) {
  using enum Action;
  auto const carry = [](bool isThere, auto change) {
    if (isThere) change();
    return isThere;
  };
  switch (action) {
    case directCommit:
    case directRemove:
    case directEmpty:
      if (below(2) == 0) return carry(direct_->now(), [&] { changeDirect(*direct_, action); });
      return carry(qualities_->now(), [&] { changeDirect(*qualities_, action); });
    case hopCommit:
    case hopReference:
    case hopRemove:
      return carry(hops_->now(), [&] { changeHop(action); });
    case blockCommit:
    case blockReference:
    case blockRemove:
      return carry(members_->now() && hops_->now(), [&] { changeBlock(action); });
    default:
      return onGroups([&](auto& at) { changeGroup(at, action); });
  }
}

/// On one of the group tables, if it is there.
template <class Change>
bool WatchedWorld::onGroups(Change change) {
  auto const on = [&](auto& at) { return at.now() && (change(at), true); };
  if (told_ != 0) return below(2) == 0 ? on(*groups_) : on(*vxlanGroups_);
  switch (busiest_ < 4 && below(2) == 0 ? busiest_ : below(4)) {
    case 0:
      return on(*groups_);
    case 1:
      return on(*vxlanGroups_);
    case 2:
      return on(*selectives_);
    default:
      return on(*vxlanSelectives_);
  }
}

/// On one of the tables with handles, also if it is gone.
template <class Change>
bool WatchedWorld::onHandles(Change change) {
  auto const drawn = below(6);
  if (drawn == 0) return change(*hops_), true;
  if (drawn == 1) return change(*members_), true;
  return onGroups(change);
}

// ---- direct tables ----

template <class T>
void WatchedWorld::changeDirect(FollowedTable<T>& at, Action action) {
  auto const number = anyKey();
  auto const key = at.keyOf(number);
  auto& wish = at.wishes[number];
  if (action == Action::directCommit) {
    auto const entry = entryOf<T>({static_cast<U32>(1 + below(3)), 0});
    say(T::names.qualified, " commit ", number, " ", entry);
    wish.value = at.code(entry);
    at.now()->entryCommit(key, entry);
  } else if (action == Action::directRemove) {
    say(T::names.qualified, " remove ", number);
    wish.value = 0;
    at.now()->entryRemove(key);
  } else if (at.now()->keyPrior(key) == Asic::SwTable::KeyPrior::value) {
    say(T::names.qualified, " without a value ", number);
    wish.value = Chain::empty;
    Asic::SwTable::OperationScope const scope(*at.now());
    at.now()->resolvedKeyPriorIs(Asic::SwTable::KeyPrior::value);
    at.now()->resolvedEntryIs(key, {});
  }
}

// ---- next hops ----

void WatchedWorld::changeHop(Action action) {
  auto const id = anyKey();
  auto& wish = hops_->wishes[id];
  if (action == Action::hopCommit) {
    auto const value = static_cast<U32>(1 + below(3));
    say("hop commit ", id, " ", value);
    auto const entry = entryOf<NextHops>({value, 0});
    wish = {hops_->code(entry), true};
    auto const handle = hops_->now()->entryCommit({.id = id}, entry);
    if (below(4) == 0) hops_->kept.push_back(handle);
  } else if (action == Action::hopReference) {
    hops_->kept.push_back(hop(id));
  } else {
    say("hop remove ", id);
    hops_->takesBack(id);
    hops_->now()->entryRemove({.id = id});
  }
}

HandlePtr WatchedWorld::hop(U32 id) {
  say("hop ref ", id);
  return hops_->now()->entryRef({.id = id});
}

// ---- blocks ----

/// Of so many rows as its number says, which the first one tells.
auto WatchedWorld::block(U32 number) -> Zarn::Optional<Block> {
  Block made;
  for (U32 i = 0; i < number; ++i) {
    if (!hops_->now()) return {};
    Members::Entry row;
    auto const id = (number + i) % keys;
    row.ecmpNextHopEntryHandle = hop(id);
    // A reference that was taken back from inside of it is to nothing that a block could stand on.
    if (!hops_->now() || hops_->handle(id).get() != row.ecmpNextHopEntryHandle.get()) return {};
    row.weightIdx = static_cast<U8>(number + 10 * i);
    made.entryIs(i, row);
  }
  return made;
}

void WatchedWorld::changeBlock(Action action) {
  auto const number = anyKey();
  auto const made = block(number);
  if (!made || !members_->now()) return;
  if (action == Action::blockCommit) {
    say("block commit ", number);
    members_->wishes[number].isCommitted = true;
    auto const handle = members_->now()->entryBlockCommit(*made);
    if (below(3) == 0) members_->kept.push_back(handle);
  } else if (action == Action::blockReference) {
    say("block ref ", number);
    members_->kept.push_back(members_->now()->entryBlockRef(*made));
  } else {
    say("block remove ", number);
    members_->takesBack(number);
    members_->now()->entryBlockRemove(*made);
  }
}

HandlePtr WatchedWorld::blockHandle(U32 number) {
  if (!members_->now()) return nullptr;
  if (auto const known = members_->handle(number); known && known->entryType() != Type::unset)
    return known;
  auto const made = block(number);
  if (!made || !members_->now()) return nullptr;
  say("block ref ", number);
  return members_->now()->entryBlockRef(*made);
}

// ---- groups ----

template <class T>
typename T::Entry WatchedWorld::groupEntry() {
  auto entry = entryOf<T>({static_cast<U32>(1 + below(3)), 0});
  if constexpr (isSelectiveTable<T>)
    if (below(8) != 0) entry.ecmpSecondaryBlockPtrHandle = blockHandle(anyKey());
  return entry;
}

template <class T>
void WatchedWorld::changeGroup(FollowedTable<T>& at, Action action) {
  auto const number = anyKey();
  if (action == Action::groupRemove) return removeGroup(at, number);
  if (action == Action::groupStore) return storeGroup(at);
  auto const isReference = action == Action::groupReference;
  auto const entry = groupEntry<T>();
  if (!at.now()) return;
  auto const handle = writeGroup(at, number, entry, isReference);
  if (isReference ? below(4) != 0 : below(4) == 0) at.kept.push_back(handle);
}

template <class T>
HandlePtr WatchedWorld::writeGroup(FollowedTable<T>& at, U32 number, typename T::Entry const& entry,
                                   bool isReference) {
  auto const key = at.keyOf(number);
  auto& wish = at.wishes[number];
  wish.value = at.code(entry);
  wish.isCommitted = wish.isCommitted || !isReference;
  wish.isTakenBack = wish.isOpen = false;
  wish.wasAsked = true;
  if (isReference) {
    say(T::names.qualified, " ref ", number, " ", entry);
    return at.now()->entryRef(key, entry);
  }
  if (below(8) != 0) {
    say(T::names.qualified, " commit ", number, " ", entry);
    return at.now()->entryCommit(key, entry);
  }
  auto const index =
      below(2) == 0 ? formerPlace<T>(number) : static_cast<U32>(below(MemoryChip<T>::room));
  say(T::names.qualified, " commit ", number, " ", entry, " at index ", index);
  return at.now()->entryWriteAtIndex(index, key, entry);
}

template <class T>
void WatchedWorld::removeGroup(FollowedTable<T>& at, U32 number) {
  say(T::names.qualified, " remove ", number);
  at.takesBack(number);
  at.now()->entryRemove(at.keyOf(number));
}

/// Below the client interface, for a key that has no handle.
template <class T>
void WatchedWorld::storeGroup(FollowedTable<T>& at) {
  if constexpr (isPlainGroupTable<T>) {
    auto const number = anyKey();
    auto const key = at.keyOf(number);
    if (refuses_) return;  // nobody is told
    if (!at.now()->configReplayComplete() || !at.now()->indexAllocator() || at.handle(number))
      return;
    auto const prior = at.now()->keyPrior(key);
    auto& wish = at.wishes[number];
    auto const& allocator = *at.now()->indexAllocator();
    if (allocator.indexForKey(T::keyType(), &key).isExhausted() &&
        allocator.totalUsedIndices() == allocator.size())
      return;
    Asic::SwTable::OperationScope const scope(*at.now());
    at.now()->resolvedKeyPriorIs(prior);
    if (prior != Asic::SwTable::KeyPrior::noKey && below(3) == 0) {
      say(T::names.qualified, " stored no more ", number);
      wish.value = 0;
      at.now()->resolvedEntryDel(key);
    } else if (prior == Asic::SwTable::KeyPrior::value) {
      say(T::names.qualified, " stored without a value ", number);
      wish = {.value = Chain::empty, .wasAsked = true, .isStored = true};
      at.now()->resolvedEntryIs(key, {});
    } else {
      auto const entry = entryOf<T>({static_cast<U32>(1 + below(3)), 0});
      say(T::names.qualified, " stored ", number, " ", entry);
      wish = {.value = at.code(entry), .wasAsked = true, .isStored = true};
      at.now()->resolvedEntryIs(key, entry);
    }
  }
}

// ---- handles ----

/// A handle of which nobody has said what it is for.
template <class T>
void WatchedWorld::makeHandle(FollowedTable<T>& at) {
  auto const number = anyKey();
  if (!at.now() || (at.valueNow(number) != 0 && !at.handle(number))) return;
  say("handle of ", T::names.qualified, " ", number);
  HandlePtr made;
  if constexpr (std::same_as<T, Members>) {
    auto const of = block(number);
    if (!of || !at.now()) return;
    made = at.now()->entryHandleIs(*of, at.now());
  } else {
    made = at.now()->entryHandleIs(at.keyOf(number), at.now());
  }
  if (below(2) == 0) at.kept.push_back(made);
}

/// As if the last user had gone: of entries that are referenced alone. What stands on a next hop or a block
/// needs it, and so those leave by their last use alone.
template <class T>
void WatchedWorld::cleanUp(FollowedTable<T>& at) {
  if (!isGroupTable<T> || !at.now() || depth_ != 0) return;
  auto const handle = at.handle(anyKey());
  if (!handle || !handle->swTable() || handle->entryType() != Type::referenceOnly) return;
  say("cleanup of ", T::names.qualified, " ", at.numberOf(handle->key()));
  at.wishes[at.numberOf(handle->key())].isOpen = true;
  handle->cleanup();
}

template <class T>
void WatchedWorld::drop(FollowedTable<T>& at) {
  if (at.kept.empty()) return;
  auto const place = at.kept.begin() + static_cast<std::ptrdiff_t>(below(at.kept.size()));
  auto const dropped = std::move(*place);
  at.kept.erase(place);
  say("drop a handle of ", T::names.qualified);
}

// ---- acknowledgements and suggestions ----

template <class T>
void WatchedWorld::acknowledge(FollowedTable<T>& at) {
  auto& answers = at.chip->answers();
  auto const hwTable = Vell::Ptr(at.now()->hwTable());
  if (!answers.empty()) {
    auto const one = answers.begin() + static_cast<std::ptrdiff_t>(below(answers.size()));
    say("acknowledge ", T::names.qualified, " ", one->index, " ", one->outcome);
    hwTable->writeResponseIs(*one);
    if (below(16) != 0) answers.erase(one);  // else it comes once more
  }
  hwTable->deliverWriteResponses();
}

void WatchedWorld::acknowledgeAll() {
  forEachGroupTable([this](auto& at) {
    while (!at.chip->answers().empty()) acknowledge(at);
    at.table->hwTable()->deliverWriteResponses();
  });
}

/// Only while the table replays, and all those below it, who may be told in turn.
void WatchedWorld::suggest() {
  if (!members_->now() || !hops_->now()) return;
  auto const drawn = below(6);
  if (drawn == 0)
    suggestTo(*hops_);
  else if (drawn == 1)
    suggestTo(*members_);
  else
    onGroups([this](auto& at) { suggestTo(at); });
}

template <class T>
void WatchedWorld::suggestTo(FollowedTable<T>& at) {
  auto const handle = at.handle(anyKey());
  if (!handle || at.now()->configReplayComplete() || handle->entryState() != State::unresolved)
    return;
  Asic::IndexSet indices;
  auto const number = at.numberOf(handle->key());
  indices.insert(below(2) == 0 ? formerPlace<T>(number)
                               : static_cast<U32>(below(MemoryChip<T>::room)));
  indices.insert(static_cast<U32>(below(MemoryChip<T>::room)));
  say("suggest to ", at.audience.name, " ", *indices.begin());
  Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, indices);
}

// ---- watchers ----

void WatchedWorld::subscribe() {
  switch (below(6)) {
    case 0:
      return below(2) == 0 ? subscribeTo(*direct_) : subscribeTo(*qualities_);
    case 1:
      return subscribeTo(*hops_);
    case 2:
      return subscribeTo(*members_);
    default:
      onGroups([this](auto& at) { subscribeTo(at); });
  }
}

template <class T>
void WatchedWorld::subscribeTo(FollowedTable<T>& at) {
  if (!at.now()) return;
  std::vector<U32> fields{Vell::Publisher::everyField, T::syncedEntryField};
  if constexpr (hasHandles<T>) {
    if (below(2) == 0) {
      auto const handle = at.handle(anyKey());
      auto* const followed = handle ? ground_.followed(handle.get()) : nullptr;
      if (!followed || !followed->isWatched) return;
      std::array<U32, 5> const all{AnyHandle::entryStateField, AnyHandle::resolvedEntryStateField,
                                   T::handleFields.swTable, T::handleFields.pendingEntry,
                                   Vell::Publisher::everyField};
      return watch(handle->watched(), followed->audience, all[below(all.size())]);
    }
    fields.insert(fields.end(), {T::entryHandleField, T::indexAllocatorField});
  }
  if constexpr (std::same_as<T, Members>)
    fields.insert(fields.end(), {T::resolvedEntryBlockField, T::unresolvedEntryBlockField});
  else
    fields.push_back(T::resolvedEntryField);
  if constexpr (isGroupTable<T>) fields.push_back(T::writeResponseSmField);
  if constexpr (isSelectiveTable<T>) fields.push_back(T::unresolvedEntryField);
  watch(*at.now()->publisher(), at.audience, fields[below(fields.size())]);
}

void WatchedWorld::watch(Vell::Publisher& publisher, Audience& audience, U32 field) {
  auto const seat = audience.seats.size();
  say("watch ", audience.name, " field ", field, " as ", seat);
  audience.seats.push_back({field});
  watchers_.push_back(
      {&audience, seat, publisher.watch(field, [this, &audience, seat](Vell::Change const& change) {
         ++counts_.heard;
         ground_.hearing.heard(audience, seat, change);
         mayAct();
       })});
}

void WatchedWorld::unsubscribe() {
  if (watchers_.empty()) return;
  auto const at = watchers_.begin() + static_cast<std::ptrdiff_t>(below(watchers_.size()));
  auto leaving = std::move(*at);
  watchers_.erase(at);
  say("end of watcher ", leaving.seat, " of ", leaving.audience->name);
  leaving.audience->seats[leaving.seat].ended = true;
}

}  // namespace Endurance
