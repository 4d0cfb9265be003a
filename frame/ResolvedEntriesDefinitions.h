// The operations of the collection `resolvedEntry`. Included by the sources that instantiate tables.

#pragma once

#include "frame/ResolvedEntries.h"
#include "frame/Variants.h"

namespace Asic {

template <class T, class Sheet>
auto ResolvedEntries<T, Sheet>::resolvedEntry(Key key) const -> Zarn::Optional<Entry> {
  auto const* node = resolvedEntry_.lookupNodeG(key);
  return node ? node->value_ : Zarn::Optional<Entry>{};
}

template <class T, class Sheet>
SwTable::KeyPrior ResolvedEntries<T, Sheet>::keyPrior(Node const* node) {
  if (!node) return SwTable::KeyPrior::noKey;
  return node->value_ ? SwTable::KeyPrior::value : SwTable::KeyPrior::noValue;
}

template <class T, class Sheet>
bool ResolvedEntries<T, Sheet>::holds(Node const* node, Entry const* value) {
  if (!node || node->value_.has_value() != (value != nullptr)) return false;
  return !value || *node->value_ == *value;
}

template <class T, class Sheet>
void ResolvedEntries<T, Sheet>::publishResolved(Key key, Zarn::Optional<Entry> const& previous) {
  self().publisher()->publishChangeRecursive(T::resolvedEntryField, &key, &previous, &Key::isEq);
}

template <class T, class Sheet>
void ResolvedEntries<T, Sheet>::resolvedEntryIs(Key key, Zarn::Optional<Entry> const& value) {
  auto* const node = resolvedNode(key);
  Entry const* const entry = value ? &*value : nullptr;
  if (holds(node, entry) || self().isGoing()) return;
  SwTable::OperationScope const scope(self());
  storeResolved(node, key, entry);
}

template <class T, class Sheet>
void ResolvedEntries<T, Sheet>::storeResolved(Node* node, Key key, Entry const* value) {
  using enum SwTable::KeyOperation::Stage;
  Zarn::Optional<Entry> old;
  if (node) {
    // `value` is not what the node holds, or `holds` had said so, and so does not lie in it.
    old = std::move(node->value_);
    value ? void(node->value_ = *value) : node->value_.reset();
  } else {
    auto stored = value ? Zarn::Optional<Entry>(*value) : Zarn::Optional<Entry>();
    node = resolvedEntry_.newMemberG(key, {std::move(stored), key});
  }
  Value const stored = node->value_;  // the node moves, and may go, once anything is called
  // The collection holds the new state; watchers hear of it after the hardware.
  KeyOperation<T> operation(self(), key, programming);
  SwTable::Accessor<T>(self()).handleEntry(operation, &stored);
  publishResolved(key, old);
}

template <class T, class Sheet>
auto ResolvedEntries<T, Sheet>::resolvedEntryDel(Key key) -> Zarn::Optional<Entry> {
  using enum SwTable::KeyOperation::Stage;
  SwTable::OperationScope const scope(self());
  Node removed;
  if (!resolvedEntry_.deleteMemberG(key, &removed)) return {};
  KeyOperation<T> operation(self(), key, programming);
  SwTable::Accessor<T>(self()).handleEntry(operation, nullptr);
  publishResolved(key, removed.value_);
  return std::move(removed.value_);
}

template <class T, class Sheet>
void ResolvedEntries<T, Sheet>::resolvedEntryDelAll() {
  SwTable::OperationScope const scope(self());
  for (Zarn::HashMap2018IteratorGeneric at(resolvedEntry_); at; at.advance())
    resolvedEntryDel(at.currNodeMaybeStale()->key());
}

template <class T, class Sheet>
void ResolvedEntries<T, Sheet>::handleEntry(Key key) {
  using enum SwTable::KeyOperation::Stage;
  SwTable::OperationScope const scope(self());
  auto const* const node = resolvedNode(key);
  Value const stored = node ? node->value_ : Value();
  KeyOperation<T> operation(self(), key, programming);
  SwTable::Accessor<T>(self()).handleEntry(operation, node ? &stored : nullptr);
}

}  // namespace Asic
