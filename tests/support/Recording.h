// A chip in memory that writes down, in one ordered list, what a table does to it
// and tells about itself.
//
// Events read, for the key of number 5 (an index, or what `sampleKey` makes of the number):
//   "compare 5 E"  "tracker 5 userAdd"  "write 5 E"  "delete 5"  "published 0x207 5 was E"
// where E is the text form of an entry, "-" an absent value, and "null" no previous value at all.

#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "containers/MapField.h"
#include "frame/DirectTable.h"
#include "frame/HandleTable.h"
#include "platform/zarn/ValueText.h"

namespace Testing {

template <class Key>
std::string hex(Key id) {
  return Vell::concatenate("0x", std::hex, id);
}

/// Entries that differ for every n below 256; n = 0 is the default entry. A map gets two members.
template <class Entry>
Entry sampleEntry(U64 n) {
  Entry entry;
  Zarn::FieldOps<Entry>::forEach([&](auto const& field) {
    using Type = std::remove_reference_t<decltype(entry.*field.member)>;
    if constexpr (!Zarn::CollectionField<Type>)
      entry.*field.member = static_cast<Type>(n);
    else if (n != 0)
      for (U16 key : {7, 8}) Zarn::elementIs(entry.*field.member, key, static_cast<U8>(n));
  });
  return entry;
}

/// A key for each number, and back: the index, or a structured key whose bytes are the number's.
template <class Key>
Key sampleKey(U32 number) {
  if constexpr (std::same_as<Key, Asic::SwTableBase::Index>) {
    return number;
  } else {
    Key key;
    Zarn::FieldOps<Key>::forEach([&, rest = number](auto const& field) mutable {
      key.*field.member = static_cast<U8>(rest);
      rest >>= 8;
    });
    return key;
  }
}
template <class Key>
U32 numberOf(Key const& key) {
  if constexpr (std::same_as<Key, Asic::SwTableBase::Index>) {
    return key.value();
  } else {
    U32 number = 0, shift = 0;
    Zarn::FieldOps<Key>::forEach([&](auto const& field) {
      number |= U32{key.*field.member} << shift;
      shift += 8;
    });
    return number;
  }
}

template <class T>
class RecordingUtil : public T::Util {
 public:
  using Key = typename T::UtilKey;
  using Entry = typename T::Entry;
  using Row = Zarn::Optional<Entry>;

  /// Called with each event before anything else happens, for hooks that call back.
  std::function<void(std::string const& event)> onEvent;
  mutable std::vector<std::string> events;
  mutable std::map<U32, Row> rows;  ///< by the numbers of their keys

  void note(std::string event) const {
    events.push_back(event);
    if (onEvent) onEvent(event);
  }
  std::vector<std::string> take() { return std::exchange(events, {}); }
  /// Whether the table may tell the index of an entry itself when it has written it.
  void indexKnownAtWriteIs(bool known) { T::Util::indexKnownAtWriteIs(known); }

  U32 minIndex() const override { return 2; }
  U32 maxIndex() const override { return 77; }
  void hwTableEntryIs(T&, Key key, Row const& entry) const override {
    rows[numberOf(key)] = entry;
    note(Vell::concatenate("write ", numberOf(key), " ", text(entry)));
  }
  void hwTableEntryDel(T&, Key key) const override {
    rows.erase(numberOf(key));
    note(Vell::concatenate("delete ", numberOf(key)));
  }
  void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Key key,
                                    Asic::IndexUserTracker::OpType operation) const override {
    if (hwTable) Asic::IndexUserTracker::Stub::tracker(*hwTable).update(numberOf(key), operation);
    note(Vell::concatenate("tracker ", numberOf(key), " ", operation));
  }
  bool compareHwEntries(T&, Key key, Entry const& wanted) const override {
    // As the hardware sees it: a row that refers to an entry holds that one's index.
    auto const found = rows.find(numberOf(key));  // a comparison puts nothing there
    Row const held = found == rows.end() ? Row() : found->second;
    bool const equal =
        Asic::Trait::needsEntries<T> ? text(held) == rowText(wanted) : held == Row(wanted);
    note(Vell::concatenate("compare ", numberOf(key), " ", text(wanted)));
    return equal;
  }
  void syncEntries(Asic::HwTable& hwTable, Vell::Ptr<T> const& table) const override {
    auto const found = rows;
    for (auto const& [number, row] : found) {
      Asic::IndexUserTracker::Stub::tracker(hwTable).recover(number);
      table->syncedEntryIs(sampleKey<Key>(number), row.value_or(Entry{}));
    }
  }

  static std::string text(Row const& row) { return row ? rowText(*row) : "-"; }
  /// The text form, unless it would differ from run to run.
  static std::string rowText(Entry const& entry) {
    if constexpr (requires { entry.weightIdx; })
      return Vell::concatenate(entry.neededIndex(), '/', std::to_string(entry.weightIdx));
    else if constexpr (requires { entry.countSecondary; })
      return Vell::concatenate(entry.neededIndex(), '/', entry.countSecondary);
    else if constexpr (Asic::Trait::needsEntries<T>)
      return Vell::concatenate(entry.neededIndex());
    else
      return Zarn::valueToStrep(entry);
  }
};

/// The hooks of a table without fixed indices. `entries` is what its hardware has room for.
template <class T>
class RecordingHandleUtil final : public RecordingUtil<T> {
 public:
  U32 numEntries() const override { return entries; }
  U32 entries = 16;
};

/// A table with its recording hooks and a hardware table, and its way through the phases.
template <class Self, class T, class Hooks>
class Driven {
 public:
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Events = std::vector<std::string>;

  Vell::Ptr<Hooks> util{new Hooks};
  Vell::Ptr<T> table;
  std::vector<Vell::Subscription> subscriptions;

  explicit Driven(Vell::Ptr<T> made) : table(std::move(made)) {
    table->utilIs(util);
    table->hwTableIs(new Asic::HwTable);
  }
  Driven(Vell::Ptr<T> made, U32 entries) : Driven(std::move(made)) {
    util->entries = entries;
    table->doCreateAllocator();
  }
  Self& synced() {
    table->syncEntries();
    util->take();
    return static_cast<Self&>(*this);
  }
  Self& replayed() {
    table->doInitComplete();
    table->purgeStaleEntries();
    util->take();
    return static_cast<Self&>(*this);
  }
  Events take() { return util->take(); }
  U64 counted(Asic::ReconciliationStatus status) const { return table->statistics().of(status); }
  auto* allocator() const { return table->indexAllocator(); }
  auto& tracker() const { return Asic::IndexUserTracker::Stub::tracker(*table->hwTable()); }
  U32 usesOf(U32 row) const { return tracker().uses(row).users; }
  /// Writes down the changes of that field from now on.
  template <class Text>
  void watch(U32 field, Text text) {
    subscriptions.push_back(table->publisher()->watch(field, [=, this](Vell::Change const& change) {
      util->note(Vell::concatenate("published ", hex(field), text(change)));
    }));
  }
};

/// A table without fixed indices that nobody watches.
template <class T>
struct RecordedHandles : Driven<RecordedHandles<T>, T, RecordingHandleUtil<T>> {
  using Driven<RecordedHandles<T>, T, RecordingHandleUtil<T>>::Driven;
};

/// A direct table, with a watcher of both collections.
template <class T>
struct Recorded : Driven<Recorded<T>, T, RecordingUtil<T>> {
  using typename Driven<Recorded<T>, T, RecordingUtil<T>>::Key;
  using typename Driven<Recorded<T>, T, RecordingUtil<T>>::Entry;

  explicit Recorded(Vell::Ptr<T> made) : Driven<Recorded<T>, T, RecordingUtil<T>>(std::move(made)) {
    auto const text = [](Vell::Change const& change, std::string const& previous) {
      return Vell::concatenate(" ", numberOf(change.keyAs<Key>()), " was ", previous);
    };
    this->watch(T::resolvedEntryField, [=](Vell::Change const& change) {
      return text(change, RecordingUtil<T>::text(*change.previousAs<Zarn::Optional<Entry>>()));
    });
    this->watch(T::syncedEntryField, [=](Vell::Change const& change) {
      auto const* previous = change.previousAs<Entry>();
      return text(change, previous ? Zarn::valueToStrep(*previous) : "null");
    });
  }

  /// Puts rows into the hardware before the table syncs.
  Recorded& holding(std::map<U32, Entry> const& rows) {
    for (auto const& [number, entry] : rows) this->util->rows[number] = entry;
    return *this;
  }
};

}  // namespace Testing
