// The records of entries that wait for entries of other tables, by key, and what these records have
// in common. `T` is the concrete table, `Sheet` its data sheet, which names the record's class
// (`Sheet::Record<T>`), the map's constant (`Sheet::maps.unresolved`) and the field id of its
// publications (`Sheet::unresolvedField`); the table's own template derives from this beside its
// framework base.
//
// Invariants
//  1. A key has one record at most, and a key with a record has a handle.
//  2. A record that has left the collection watches nothing and has no table.
//
// Threading: the thread of the owning agent.

#pragma once

#include "containers/HashMap2018.h"
#include "containers/HashMap2018Iterator.h"
#include "platform/asic/UnresolvedEntry.h"
#include "platform/bruvel/Slab.h"

namespace Asic {

/// A record brings its table what it hears of the entries that it watches.
template <class T, class Record>
class TableRecord : public SwTable::UnresolvedEntry, public Bruvel::Allocated<Record> {
 public:
  void doResolve() final { tell(&T::resolveRecord); }
  void markFailedNeededEntry() final { tell(&T::markFailedRecord); }

 private:
  template <class Operation>
  void tell(Operation operation) {
    Vell::Ptr<TableRecord> const held(this);
    if (Vell::Ptr<SwTable> const table = this->swTable())
      (static_cast<T&>(*table).*operation)(static_cast<Record&>(*this));
  }
};

template <class T, class Sheet>
class UnresolvedEntries {
 public:
  using Key = typename Sheet::Key;
  using UnresolvedRecord = typename Sheet::template Record<T>;

  /// Reads a record's key for the map, which holds no key of its own.
  struct UnresolvedEntryKeyFunktor {
    Key const& operator()(Vell::Ptr<UnresolvedRecord> const& record) const;
  };
  struct HN_UnresolvedEntry
      : Zarn::HNKeyInValue<Vell::Ptr<UnresolvedRecord>, UnresolvedEntryKeyFunktor,
                           Sheet::maps.unresolved> {
    using Key = typename Sheet::Key;
  };
  using UnresolvedMap = Zarn::HashMap2018<HN_UnresolvedEntry>;

  /// The key's record, or null.
  Vell::Ptr<UnresolvedRecord> unresolved(Key const& key) const;
  bool unresolvedHas(Key const& key) const { return unresolved_.lookupNodeG(key) != nullptr; }
  UnresolvedMap const& unresolvedMap() const { return unresolved_; }

  // For the generic logic.

  /// The key's record, made if there is none.
  Vell::Ptr<UnresolvedRecord> unresolvedIs(Key const& key) {
    auto const existing = unresolved(key);
    return existing ? existing : unresolvedIs(Vell::Ptr(new UnresolvedRecord(key)));
  }
  /// The key's record, this one if there is none.
  Vell::Ptr<UnresolvedRecord> unresolvedIs(Vell::Ptr<UnresolvedRecord> const& record);
  /// Takes the record out and gives it; null if there was none.
  Vell::Ptr<UnresolvedRecord> unresolvedDel(Key const& key);
  void unresolvedDelAll();
  /// Nothing that waits resolves any more: the table goes.
  void unresolvedWatchesEnd();

  // What records call.

  void resolveRecord(UnresolvedRecord& record);
  void markFailedRecord(UnresolvedRecord& record);

 protected:
  UnresolvedEntries() = default;
  ~UnresolvedEntries() = default;

 private:
  T& self() { return static_cast<T&>(*this); }
  void publishUnresolved(UnresolvedRecord const& record, UnresolvedRecord const* previous);

  UnresolvedMap unresolved_{1, false};
};

}  // namespace Asic
