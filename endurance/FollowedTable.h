// A table with its hooks, and all that it and its handles tell, compared with what they hold.
//
// Keys are numbers below `keys`; a block is known by the weight of its first row.

#pragma once

#include <array>
#include <deque>
#include <random>

#include "containers/HashMap2018Iterator.h"
#include "endurance/MemoryChip.h"

namespace Endurance {

constexpr U32 keys = 4;

using AnyHandle = Asic::SwTableBase::EntryHandle;
using HandlePtr = Vell::Ptr<AnyHandle const>;
using State = Asic::SwTableBase::EntryState;
using Type = Asic::SwTableBase::EntryType;

template <class T>
constexpr bool hasHandles = !isDirectTable<T>;
template <class T>
constexpr bool hasRecords = std::same_as<T, Members> || isSelectiveTable<T>;
template <class T>
constexpr bool isGroupTable = isPlainGroupTable<T> || isSelectiveTable<T>;

inline U64 addressOf(void const* object) { return reinterpret_cast<std::uintptr_t>(object); }

/// What was asked of a key last, in the order in which it was asked.
struct Wish {
  U64 value = 0;             ///< as chains have it; of a block, nothing
  bool isCommitted = false;  ///< in tables with handles: it must be there
  bool wasAsked = false;     ///< ever: an index that was given to the key may still be its own
  bool isOpen =
      false;  ///< the entry left in the midst of wishes, and which of them is the last is open
  bool isTakenBack = false;  ///< a value that waited, or was on its way; the one before it stays
  bool isStored = false;     ///< below the client interface, where nobody promises it a handle
};

/// A handle from its birth on, also when it is gone.
struct FollowedHandle {
  AnyHandle const* handle;
  bool isWatched;
  Audience audience;
  Vell::Subscription first;
  Chain entryState, resolvedState, table;
  std::vector<U32> pendingTold;  ///< how often each number of the queue was told
};

/// What all tables of a trial have in common.
struct Ground {
  explicit Ground(std::mt19937_64& given) : random(given) {}

  std::mt19937_64& random;
  Finding finding;
  Hearing hearing{finding};
  ChipSide side{finding};
  std::deque<FollowedHandle> handles;
  U64 events = 0;
  bool leavesHandlesUnwatched = false;  ///< some of them: much is told to nobody then

  U64 below(U64 bound) { return random() % bound; }
  /// The newest at that address, which may be one of many that lay there.
  FollowedHandle* followed(void const* handle) {
    for (auto at = handles.rbegin(); at != handles.rend(); ++at)
      if (at->handle == handle) return &*at;
    return nullptr;
  }
};

template <class T>
class FollowedTable {
 public:
  using Entry = typename T::Entry;
  using Key = typename T::Key;

  FollowedTable(Ground& ground, Vell::Ptr<T> made, U32 entries, bool tellsIndexAtWrite)
      : table(std::move(made)),
        chip(new MemoryChip<T>(ground.side, entries, tellsIndexAtWrite)),
        ground_(ground),
        self_(table.get()) {
    audience.name = T::names.qualified;
    table->utilIs(chip);
    table->hwTableIs(new Asic::HwTable);
    table->doCreateAllocator();
    first_ = table->publisher()->watch(Vell::Publisher::everyField,
                                       [this](Vell::Change const& change) { told(change); });
  }

  std::array<Wish, keys> wishes;
  std::vector<HandlePtr> kept;  ///< by whoever asked for them
  Vell::Ptr<T> table;           ///< null once it is to end; what it then does is still followed
  Vell::Ptr<MemoryChip<T>> chip;
  Audience audience;

  static U32 numberOf(Key const& key) {
    if constexpr (std::same_as<T, Direct>)
      return key.value();
    else if constexpr (std::same_as<T, Qualities>)
      return key.portLoading;
    else if constexpr (std::same_as<T, NextHops>)
      return key.id;
    else if constexpr (std::same_as<T, Members>)
      return key.entry(0).weightIdx;
    else
      return key.adjId;
  }
  static Key keyOf(U32 number) requires(!std::same_as<T, Members>) {
    if constexpr (std::same_as<T, Direct>)
      return number;
    else if constexpr (std::same_as<T, Qualities>)
      return {.portLoading = static_cast<U8>(number)};
    else if constexpr (std::same_as<T, NextHops>)
      return {.id = number};
    else
      return {.adjId = number};
  }

  auto handle(U32 number) const requires hasHandles<T> {
    Vell::Ptr<typename T::EntryHandle> found;
    if constexpr (std::same_as<T, Members>)
      eachOf(self_->entryHandleMap(), [&](auto const& node) {
        if (numberOf(node.value_->key()) == number) found = node.value_;
      });
    else
      found = self_->entryHandle(keyOf(number));
    return found;
  }
  bool waits(U32 number) const { return recordNow(number) != 0; }
  /// A commit is about to be taken back, and with it a value that waits; the one before it stays for whoever
  /// refers to it, and its state is told with its next wish.
  void takesBack(U32 number) {
    bool const wasCommitted = std::exchange(wishes[number].isCommitted, false);
    auto const now = handle(number);
    bool const isFound =
        now && (now->entryType() == Type::committed || now->entryType() == Type::unset);
    if (!wasCommitted && !isFound) return;
    wishes[number].value = valueNow(number);
    wishes[number].isTakenBack = true;
    // A commit that has claimed nothing yet goes alone, and leaves what others referred to meanwhile.
    wishes[number].isOpen = !isFound;
  }
  /// The key's value as a number, and whether there is one, as chains have it.
  U64 valueNow(U32 number) const {
    if constexpr (std::same_as<T, Members>) {
      U64 found = 0;
      eachOf(self_->resolvedEntryBlockMap(), [&](auto const& node) {
        if (numberOf(node.key()) == number) found = 2;
      });
      return found;
    } else if constexpr (std::same_as<T, NextHops>) {
      return self_->entryHas(keyOf(number)) ? code(self_->entry(keyOf(number))) : 0;
    } else {
      auto const* const node = self_->resolvedEntryMap().lookupNodeG(keyOf(number));
      if (!node) return 0;
      return node->value_ ? code(*node->value_) : Chain::empty;
    }
  }
  static U64 code(Entry const& entry) {
    U64 const value = rowOf<T>(entry).value;
    if constexpr (isSelectiveTable<T>)
      return 2 + value + 16 * addressOf(entry.ecmpSecondaryBlockPtrHandle.get());
    else
      return 2 + value;
  }

  /// Looks at every key, before something else may change it.
  void look() {
    for (U32 i = 0; self_ && i < keys; ++i) look(i);
  }
  /// Ends the table as it is; what it tells meanwhile is still followed.
  void end() {
    auto going = std::move(table);
    going = nullptr;
    self_ = nullptr;
    chip->tableIsGone();
  }
  /// The table, also while it goes; null once it is gone.
  T* now() const { return self_; }

  /// Between actions: all was told, and the last that was told is what there is.
  void isToldWhole() {
    if (!table) return;
    for (U32 i = 0; i < keys; ++i) {
      needWhole(values_[i], valueNow(i), "the value", i);
      if constexpr (hasRecords<T>) needWhole(records_[i], recordNow(i), "the record", i);
      if constexpr (hasHandles<T>) {
        auto const now = handle(i);
        needWhole(known_[i], addressOf(now.get()), "the handle", i);
        auto const* const followed = now ? ground_.followed(now.get()) : nullptr;
        if (!followed || !followed->isWatched) continue;
        needWhole(followed->entryState, codeOf(now->entryState()), "entryState", i);
        needWhole(followed->resolvedState, codeOf(now->resolvedEntryState()), "resolvedState", i);
        needWhole(followed->table, addressOf(now->swTable()), "swTable", i);
        needPending(*followed, *now, i);
      }
    }
    for (U32 i = 0; i < synced_.size(); ++i)
      needWhole(synced_[i], syncedNow(i), "the synced row", i);
  }

 private:
  void look(U32 number) {
    values_[number].seen(valueNow(number));
    if constexpr (hasRecords<T>) records_[number].seen(recordNow(number));
    if constexpr (hasHandles<T>) {
      auto const now = handle(number);
      known_[number].seen(addressOf(now.get()));
      if (now) lookAt(*now);
    }
  }

  template <class Map, class Visitor>
  static void eachOf(Map const& map, Visitor visitor) {
    for (Zarn::HashMap2018UnsafeIteratorConstGeneric<Map> at(map); at; ++at)
      visitor(*at.currNode());
  }
  static U64 codeOf(State state) { return state == State::unresolved ? 0 : 16 + U64(state); }
  static U64 codeOfRow(Row const& row) {
    return row == Row{} ? 0 : 2 + row.value + (U64{row.pointer} << 32);
  }

  U64 recordNow(U32 number) const {
    U64 found = 0;
    if constexpr (hasRecords<T>)
      eachOf(self_->unresolvedMap(), [&](auto const& node) {
        if (numberOf(node.value_->key()) == number) found = addressOf(node.value_.get());
      });
    return found;
  }
  U64 syncedNow(U32 index) const {
    if constexpr (hasHandles<T>) {
      auto const* const member = self_->syncedEntryMap().lookup(index);
      return member ? codeOfRow(rowOf<T>(member->value_)) : 0;
    } else {
      auto const* const node = self_->syncedEntryMap().lookupNodeG(keyOf(index));
      return node ? codeOfRow(rowOf<T>(node->value_)) : 0;
    }
  }
  static U64 former(Vell::Change const& change) {
    if (!change.previous) return 0;
    if constexpr (std::same_as<T, Members>) {
      return 2;
    } else if constexpr (std::same_as<T, NextHops>) {
      return code(*change.previousAs<Entry>());
    } else {
      auto const& value = *change.previousAs<Zarn::Optional<Entry>>();
      return value ? code(*value) : 0;
    }
  }

  void told(Vell::Change const& change) {
    ++ground_.events;
    ground_.hearing.begins(audience, change);
    if (change.fieldId == T::syncedEntryField) {
      U32 index = 0;
      if constexpr (isDirectTable<T>)
        index = numberOf(change.template keyAs<Key>());
      else
        index = *static_cast<U32 const*>(change.key);
      auto const* const previous = change.previousAs<Entry>();
      synced_[index].told(previous ? codeOfRow(rowOf<T>(*previous)) : 0, syncedNow(index));
      return;
    }
    if (!change.key) return;  // the allocator, or the response machine
    auto const number = numberOf(change.template keyAs<Key>());
    auto const now = addressOf(change.previous);
    if constexpr (std::same_as<T, Members>) {
      if (change.fieldId == T::resolvedEntryBlockField) return valueTold(number, change);
      if (change.fieldId == T::unresolvedEntryBlockField)
        return records_[number].told(now, recordNow(number));
    } else if (change.fieldId == T::resolvedEntryField) {
      return valueTold(number, change);
    }
    if constexpr (isSelectiveTable<T>)
      if (change.fieldId == T::unresolvedEntryField)
        return records_[number].told(now, recordNow(number));
    if constexpr (hasHandles<T>) {
      auto const found = handle(number);
      if (!change.previous) bear(found, number);
      known_[number].told(now, addressOf(found.get()));
    }
  }
  void valueTold(U32 number, Vell::Change const& change) {
    values_[number].told(former(change), valueNow(number));
    if constexpr (hasHandles<T>)
      if (auto const now = handle(number)) lookAt(*now);
    if constexpr (isDirectTable<T>) {
      // The hardware has it before anybody hears of it.
      auto const& place = chip->at(number);
      auto const value = self_->resolvedEntry(keyOf(number));
      bool const isHeld = self_->entryHas(keyOf(number));
      if (value ? place.row != Zarn::Optional<Row>(rowOf<T>(*value))
                : place.used != isHeld || place.row.has_value())
        ground_.finding.add(audience.name, " key ", number, ": told before the hardware had it");
    }
  }

  // ---- handles ----

  template <class Handle>
  void bear(Handle const& handle, U32 number) {
    if (!handle) return;
    bool const isWatched = !ground_.leavesHandlesUnwatched || ground_.below(2) == 0;
    auto& followed = ground_.handles.emplace_back(
        FollowedHandle{handle.get(), isWatched, {}, {}, {}, {}, Chain(addressOf(self_)), {}});
    if (!isWatched) return;
    followed.audience.name = Vell::concatenate(audience.name, " handle ", number);
    followed.first = handle->watched().watch(
        Vell::Publisher::everyField, [this, &followed](Vell::Change const& change) {
          ++ground_.events;
          ground_.hearing.begins(followed.audience, change);
          handleTold(followed, static_cast<typename T::EntryHandle const&>(*followed.handle),
                     change);
        });
  }
  template <class Handle>
  void lookAt(Handle const& handle) {
    auto* const followed = ground_.followed(&handle);
    if (!followed || !followed->isWatched) return;
    followed->entryState.seen(codeOf(handle.entryState()));
    followed->resolvedState.seen(codeOf(handle.resolvedEntryState()));
  }
  template <class Handle>
  void handleTold(FollowedHandle& followed, Handle const& handle, Vell::Change const& change) {
    auto const stateOf = [&] { return codeOf(*change.previousAs<State>()); };
    if (change.fieldId == AnyHandle::entryStateField) {
      followed.entryState.told(stateOf(), codeOf(handle.entryState()));
    } else if (change.fieldId == AnyHandle::resolvedEntryStateField) {
      auto const now = codeOf(handle.resolvedEntryState());
      now == 0 ? followed.resolvedState.toldEnd(stateOf(), now)
               : followed.resolvedState.told(stateOf(), now);
    } else if (change.fieldId == Handle::fields.swTable) {
      followed.table.told(addressOf(*change.previousAs<T*>()), addressOf(handle.swTable()));
    } else if (change.fieldId == Handle::fields.pendingEntry) {
      auto const sequence = change.keyAs<U32>();
      if (followed.pendingTold.size() <= sequence) followed.pendingTold.resize(sequence + 1);
      if (++followed.pendingTold[sequence] > 2)
        ground_.finding.add(followed.audience.name, ": pending ", sequence, " told three times");
    }
    lookAt(handle);
  }

  void needWhole(Chain const& chain, U64 now, char const* what, U32 number) {
    if (!chain.isWhole(now))
      ground_.finding.add(
          audience.name, " key ", number, ": a change of ", what,
          chain.isBroken() ? " was told that was none, or out of order" : " was not told");
  }
  /// Each element is told when it comes and when it goes.
  template <class Handle>
  void needPending(FollowedHandle const& followed, Handle const& handle, U32 number) {
    for (U32 at = 1; at < followed.pendingTold.size(); ++at)
      if ((followed.pendingTold[at] == 1) != handle.pendingEntryHas(at))
        ground_.finding.add(audience.name, " key ", number, ": pending ", at, " told ",
                            followed.pendingTold[at], " times");
    if (handle.pendingEntry().lastSequence() >=
        std::max<std::size_t>(followed.pendingTold.size(), 1))
      ground_.finding.add(audience.name, " key ", number, ": a pending entry was not told");
  }

  Ground& ground_;
  T* self_;
  Vell::Subscription first_;
  std::array<Chain, keys> values_, records_, known_;
  std::array<Chain, MemoryChip<T>::room> synced_;
};

}  // namespace Endurance
