// A walk over the keys of a table that have a value. Keys without one are invisible to it.
//
// The walk survives every change of the table, the removal of its own key included, and visits each
// key that stays throughout exactly once. It holds a use of the table.

#pragma once

#include "containers/HashMap2018Iterator.h"
#include "platform/asic/SwTable.h"
#include "platform/vell/Ptr.h"

namespace Asic {

template <class T>
class SwTable::EntryIteratorConst {
 public:
  /// At the first key with a value.
  explicit EntryIteratorConst(T const& table) : table_(&table), at_(table.resolvedEntryMap()) {
    skipKeysWithoutValue();
  }
  /// At `key` if it has a value, otherwise at the end.
  EntryIteratorConst(T const& table, typename T::Key key)
      : table_(&table), at_(table.resolvedEntryMap(), key) {
    if (at_ && !at_.currNodeMaybeStale()->value_)
      at_ = {table.resolvedEntryMap(), Zarn::EndOfCollection()};
  }

  explicit operator bool() const { return static_cast<bool>(at_); }
  typename T::Key key() const { return at_.currNodeMaybeStale()->key(); }
  /// A copy of the value; the last known one if the key has gone since, and a default entry if it
  /// has lost its value.
  typename T::Entry entry() const {
    if (auto const* live = table_->resolvedEntryMap().lookupNodeG(key()))
      return live->value_.value_or(typename T::Entry{});
    return at_.currNodeMaybeStale()->value_.value_or(typename T::Entry{});
  }
  void advance() {
    at_.advance();
    skipKeysWithoutValue();
  }

 private:
  void skipKeysWithoutValue() {
    while (at_ && !at_.currNodeMaybeStale()->value_) at_.advance();
  }

  Vell::Ptr<T const> table_;  // before the iterator, which must not outlive the map
  Zarn::HashMap2018IteratorGeneric<typename T::ResolvedEntryMap const> at_;
};

}  // namespace Asic
