// What clients want the hardware to hold, by key: the collection `resolvedEntry` of the tables whose
// keys have values, and the road of every change of it. `T` is the concrete table, `Sheet` its data
// sheet; the table's own template derives from this beside its framework base.
//
// Invariants
//  1. A key may be there without a value.
//  2. A change is stored first, then carried to the hardware, then told to the watchers, all inside
//     the call. A change that changes nothing does none of it.
//
// Everything may call back: keys are taken by value, old values are told from local copies, and no
// reference into the collection is kept across a call.
//
// Threading: the thread of the owning agent.

#pragma once

#include "containers/HashMap2018.h"
#include "containers/HashMap2018Iterator.h"
#include "frame/EntryIterator.h"
#include "frame/KeyOperation.h"
#include "platform/asic/SwTable.h"
#include "platform/zarn/Optional.h"

namespace Asic {

template <class T, class Sheet>
class ResolvedEntries {
 public:
  using Key = typename Sheet::Key;
  using Entry = typename Sheet::Entry;
  using ResolvedEntryMap =
      Zarn::HashMap2018<Zarn::HN<Key, Zarn::Optional<Entry>, Sheet::maps.resolvedEntry>>;
  using Node = typename ResolvedEntryMap::Node;
  using Value = Zarn::Optional<Entry>;  ///< of a key, as the generic logic carries it

  // What clients ask.

  /// Whether `resolvedEntry` has the key, with or without a value.
  bool entryHas(Key key) const { return resolvedEntry_.lookupNodeG(key) != nullptr; }
  /// The key's value; a default entry if the key is absent or has none.
  Entry entry(Key key) const { return resolvedEntry(key).value_or(Entry{}); }
  /// The key's value; empty if the key is absent or has none.
  Zarn::Optional<Entry> resolvedEntry(Key key) const;
  Value valueOf(Key key) const { return resolvedEntry(key); }
  /// What the key holds now, as an operation notes it before it changes anything.
  SwTable::KeyPrior keyPrior(Key key) const { return keyPrior(resolvedEntry_.lookupNodeG(key)); }
  /// The first key with a value, or the given key if it has one and the end otherwise. Walks on in
  /// map order and survives every change of the table.
  SwTable::EntryIteratorConst<T> entryIteratorConst() const {
    return SwTable::EntryIteratorConst<T>(self());
  }
  SwTable::EntryIteratorConst<T> entryIteratorConst(Key key) const {
    return SwTable::EntryIteratorConst<T>(self(), key);
  }

  // The collection, for chip plug-ins and the generic logic. Whoever calls these sets
  // `resolvedKeyPrior` before.

  void resolvedEntryIs(Key key, Zarn::Optional<Entry> const& value);
  /// Removes the key and gives what it held.
  Zarn::Optional<Entry> resolvedEntryDel(Key key);
  void resolvedEntryDelAll();
  /// Runs the hardware logic for the key anew.
  void handleEntry(Key key);

  ResolvedEntryMap const& resolvedEntryMap() const { return resolvedEntry_; }

 protected:
  ResolvedEntries() = default;
  ~ResolvedEntries() = default;

  static SwTable::KeyPrior keyPrior(Node const* node);
  /// Whether `node`, which may be null, holds just that value, or none if `value` is null.
  static bool holds(Node const* node, Entry const* value);
  /// Stores another value, or none, at a key whose node was just looked up: the rest of
  /// `resolvedEntryIs`, and the one road of every change.
  void storeResolved(Node* node, Key key, Entry const* value);
  Node* resolvedNode(Key key) { return resolvedEntry_.lookupNodeG(key); }

 private:
  T& self() { return static_cast<T&>(*this); }
  T const& self() const { return static_cast<T const&>(*this); }
  void publishResolved(Key key, Zarn::Optional<Entry> const& previous);

  ResolvedEntryMap resolvedEntry_{1, false};
};

}  // namespace Asic
