// A chip in memory that writes down, in one ordered list, what a table does to it
// and tells about itself.
//
// Events read, for a table with the key 5:
//   "compare 5 E"  "tracker 5 userAdd"  "write 5 E"  "delete 5"  "published 0x207 5 was E"
// where E is the text form of an entry, "-" an absent value, and "null" no previous value at all.

#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "frame/DirectTable.h"
#include "platform/zarn/ValueText.h"

namespace Testing {

template <class Key>
std::string hex(Key id) {
  return Vell::concatenate("0x", std::hex, id);
}

/// Entries that differ for every n; n = 0 is the default entry.
template <class Entry>
Entry sampleEntry(U64 n) {
  Entry entry;
  Zarn::FieldOps<Entry>::forEach([&](auto const& field) {
    using Type = std::remove_reference_t<decltype(entry.*field.member)>;
    entry.*field.member = static_cast<Type>(n);
  });
  return entry;
}

template <class T>
class RecordingUtil : public T::Util {
 public:
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Row = Zarn::Optional<Entry>;

  /// Called with each event before anything else happens, for hooks that call back.
  std::function<void(std::string const& event)> onEvent;
  mutable std::vector<std::string> events;
  mutable std::map<Key, Row> rows;

  void note(std::string event) const {
    events.push_back(event);
    if (onEvent) onEvent(event);
  }
  std::vector<std::string> take() { return std::exchange(events, {}); }

  U32 minIndex() const override { return 2; }
  U32 maxIndex() const override { return 77; }
  void hwTableEntryIs(T&, Key key, Row const& entry) const override {
    rows[key] = entry;
    note(Vell::concatenate("write ", key, " ", text(entry)));
  }
  void hwTableEntryDel(T&, Key key) const override {
    rows.erase(key);
    note(Vell::concatenate("delete ", key));
  }
  void updateHwIndexRefCountTracker(Asic::HwTable* hwTable, Key key,
                                    Asic::IndexUserTracker::OpType operation) const override {
    if (hwTable) Asic::IndexUserTracker::Stub::tracker(*hwTable).update(index(key), operation);
    note(Vell::concatenate("tracker ", key, " ", operation));
  }
  bool compareHwEntries(T&, Key key, Entry const& wanted) const override {
    bool const equal = rows[key] == Row(wanted);
    note(Vell::concatenate("compare ", key, " ", wanted));
    return equal;
  }
  void syncEntries(Asic::HwTable& hwTable, Vell::Ptr<T> const& table) const override {
    auto const found = rows;
    for (auto const& [key, row] : found) {
      Asic::IndexUserTracker::Stub::tracker(hwTable).recover(index(key));
      table->syncedEntryIs(key, row.value_or(Entry{}));
    }
  }

  static std::string text(Row const& row) { return row ? Zarn::valueToStrep(*row) : "-"; }

 private:
  static Asic::Index index(Key key) { return key.value(); }
};

/// A table with its recording hooks, a hardware table, and a watcher of both collections.
template <class T>
struct Recorded {
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Events = std::vector<std::string>;

  Vell::Ptr<RecordingUtil<T>> util{new RecordingUtil<T>};
  Vell::Ptr<T> table;
  std::vector<Vell::Subscription> subscriptions;

  explicit Recorded(Vell::Ptr<T> made) : table(std::move(made)) {
    table->utilIs(util);
    table->hwTableIs(new Asic::HwTable);
    watch(T::resolvedEntryField, [](Vell::Change const& change) {
      return RecordingUtil<T>::text(*change.previousAs<Zarn::Optional<Entry>>());
    });
    watch(T::syncedEntryField, [](Vell::Change const& change) {
      auto const* previous = change.previousAs<Entry>();
      return previous ? Zarn::valueToStrep(*previous) : "null";
    });
  }

  /// Puts rows into the hardware before the table syncs.
  Recorded& holding(std::map<Key, Entry> const& rows) {
    for (auto const& [key, entry] : rows) util->rows[key] = entry;
    return *this;
  }
  /// Through the phases.
  Recorded& synced() {
    table->syncEntries();
    util->take();
    return *this;
  }
  Recorded& replayed() {
    table->doInitComplete();
    table->purgeStaleEntries();
    util->take();
    return *this;
  }
  Events take() { return util->take(); }
  U64 counted(Asic::ReconciliationStatus status) const { return table->statistics().of(status); }
  Asic::IndexUserTracker::Uses uses(U32 index) const {
    return Asic::IndexUserTracker::Stub::tracker(*table->hwTable()).uses(index);
  }

 private:
  template <class TextOfPrevious>
  void watch(U32 field, TextOfPrevious textOfPrevious) {
    subscriptions.push_back(table->publisher()->watch(field, [=, this](Vell::Change const& change) {
      util->note(Vell::concatenate("published ", hex(field), " ", change.keyAs<Key>(), " was ",
                                   textOfPrevious(change)));
    }));
  }
};

}  // namespace Testing
