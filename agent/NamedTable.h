// A table of the chain by its class: what is found in it, and what its entries need, as far as the
// class alone can tell.

#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "agent/ChainTable.h"
#include "agent/ChainTables.h"
#include "agent/Document.h"
#include "frame/FieldEntry.h"
#include "frame/Trait.h"
#include "platform/zarn/ValueText.h"

namespace DlbAgent {

template <class T>
using HeldRows = std::map<U32, typename T::Entry>;

template <class T>
class NamedTable final : public ChainTable {
 public:
  using Entry = typename T::Entry;
  /// What one is made of.
  struct Parts {
    std::string_view kind;
    Vell::Ptr<T> table;
    std::string const& chipName;
  };

  explicit NamedTable(Parts const& parts)
      : ChainTable(parts.kind, tableTypeOf<T>(), parts.table, parts.chipName) {}

  T& table() const { return static_cast<T&>(swTable()); }
  /// What sync found, by row.
  HeldRows<T> const& found() const { return found_; }

  /// What the hardware sees of an entry, as a text.
  static std::string seenText(Entry const& entry);
  bool needsEntries() const override { return Asic::Trait::needsEntries<T>; }
  std::vector<Handle> needed(EntryHandle const& handle) const override;
  Handle awaited(EntryHandle const& handle) const override;
  Rows held() const override;
  std::vector<Change> changes() const override;

 private:
  /// A row as it is to be, and whose it is.
  struct Placed {
    Entry entry;
    std::string owner;
  };

  static auto const& keyOf(EntryHandle const& handle) {
    return static_cast<typename T::EntryHandle const&>(handle).key();
  }
  static Vell::Record recordOf(Entry const& entry) {
    return *Asic::EntryReflection<Entry>::toValue(entry).record();
  }
  static Key rowKey(U32 row) { return Key(Vell::Value(U64{row})); }

  Asic::Index indexOf(EntryHandle const& handle) const override {
    auto const& key = keyOf(handle);
    return table().indexAllocator()->indexForKey(T::keyType(), &key);
  }
  U32 rowsOf(EntryHandle const& handle) const override { return T::blockSizeOf(keyOf(handle)); }
  std::string shortageOf(EntryHandle const& handle) const override;
  void noteFound() override;
  void remove(EntryHandle const& handle) override;
  template <class Visitor>
  void forEachWanted(EntryHandle const& handle, Visitor const& visitor) const;
  Entry rowOf(EntryHandle const& handle, U32 number) const;
  std::vector<Change> homeless() const;
  std::map<U32, Placed> placed() const;
  static bool isSameRow(Entry const& a, Entry const& b);
  /// The fields that the hardware sees: all but pointers, which are the software's own.
  template <class Visitor>
  static void forEachSeen(Visitor const& visitor);

  HeldRows<T> found_;
};

template <class T>
void NamedTable<T>::noteFound() {
  for (typename T::SyncedEntryMap::Iterator at(table().syncedEntryMap()); at; at.advance())
    found_.emplace(at.key().value(), at->value_);
}

template <class T>
void NamedTable<T>::remove(EntryHandle const& handle) {
  auto const key = keyOf(handle);
  if (table().entryHandle(key).get() != &handle) return;
  if constexpr (requires { table().entryBlockRemove(key); })
    table().entryBlockRemove(key);
  else
    table().entryRemove(key);
}

template <class T>
Rows NamedTable<T>::held() const {
  Rows rows;
  for (auto const& [row, entry] : found_) rows.insert_or_assign(rowKey(row), recordOf(entry));
  return rows;
}

// ---- what an entry needs ----

/// Calls `visitor(number, row)` for the rows that the entry has or waits for.
template <class T>
template <class Visitor>
void NamedTable<T>::forEachWanted(EntryHandle const& handle, Visitor const& visitor) const {
  if constexpr (Asic::Trait::isBlockTable<T>) {
    auto rows = table().resolvedRows(keyOf(handle));
    if constexpr (Asic::Trait::needsEntries<T>)
      if (auto const record = table().unresolved(keyOf(handle)))
        rows = std::as_const(*record).rows();
    std::as_const(rows).forEach(
        [&](Asic::SwTableBase::Index number, Entry const& row) { visitor(number.value(), row); });
  } else {
    visitor(0, table().entry(keyOf(handle)));
  }
}

template <class T>
auto NamedTable<T>::needed(EntryHandle const& handle) const -> std::vector<Handle> {
  std::vector<Handle> handles;
  if constexpr (Asic::Trait::needsEntries<T>) {
    std::set<EntryHandle const*> seen;
    forEachWanted(handle, [&](U32, Entry const& row) {
      if (auto const& each = row.neededEntryHandle(); each && seen.insert(each.get()).second)
        handles.push_back(each);
    });
  }
  return handles;
}

template <class T>
auto NamedTable<T>::awaited(EntryHandle const& handle) const -> Handle {
  if constexpr (Asic::Trait::needsEntries<T>)
    if (auto const record = table().unresolved(keyOf(handle)))
      if (auto const handles = record->neededEntryHandles(); !handles.empty())
        return handles.front();
  return nullptr;
}

template <class T>
std::string NamedTable<T>::shortageOf(EntryHandle const& handle) const {
  auto const& allocator = *table().indexAllocator();
  if constexpr (requires { allocator.longestFreeRun(); })
    return fmt::format(
        "no {} rows free in one run ({} of {} used; the longest free run has {}, a bank {})",
        rowsOf(handle), allocator.totalUsedIndices(), allocator.size(), allocator.longestFreeRun(),
        allocator.bankLength());
  else
    return fmt::format("no index free ({} of {} used)", allocator.totalUsedIndices(),
                       allocator.size());
}

// ---- changes ----

/// What the entry wants in its row of that number, counted from its first.
template <class T>
auto NamedTable<T>::rowOf(EntryHandle const& handle, U32 number) const -> Entry {
  if constexpr (Asic::Trait::isBlockTable<T>)
    return table().resolvedRows(keyOf(handle)).entry(number);
  else
    return table().resolvedEntry(keyOf(handle)).value_or(Entry());
}

/// The rows of the entries that are in the hardware, or on their way there. Where a write was
/// refused, the row is what it was.
template <class T>
auto NamedTable<T>::placed() const -> std::map<U32, Placed> {
  std::map<U32, Placed> placed;
  for (auto const& [name, handle] : handles()) {
    auto const& key = keyOf(*handle);
    auto const first = indexOf(*handle);
    auto const rows = first.isExhausted() ? 0 : rowsOf(*handle);
    for (U32 i = 0; i < rows; ++i) {
      U32 const row = first.value() + i;
      auto const owner = rows == 1 ? name : elementOf(name, i);
      if (table().entryInHwTable(key))
        placed[row] = {rowOf(*handle, i), owner};
      else if (auto const before = found_.find(row); before != found_.end())
        placed[row] = {before->second, owner};
    }
  }
  return placed;
}

template <class T>
std::string NamedTable<T>::seenText(Entry const& entry) {
  std::string text;
  forEachSeen([&](auto const& field) { text += Zarn::valueToStrep(entry.*field.member) + ' '; });
  return text;
}

template <class T>
bool NamedTable<T>::isSameRow(Entry const& a, Entry const& b) {
  bool same = true;
  forEachSeen([&](auto const& field) { same = same && a.*field.member == b.*field.member; });
  return same;
}

template <class T>
template <class Visitor>
void NamedTable<T>::forEachSeen(Visitor const& visitor) {
  Zarn::FieldOps<Entry>::forEach([&](auto const& field) {
    using Type = typename std::remove_cvref_t<decltype(field)>::Type;
    if constexpr (Zarn::FieldType<Type>::shape != Vell::ValueShape::pointer) visitor(field);
  });
}

/// Entries of a table that the chip has no hardware for: by their names, as they have no rows.
template <class T>
std::vector<Change> NamedTable<T>::homeless() const {
  std::vector<Change> list;
  for (auto const& [name, handle] : handles()) {
    if (rowsOf(*handle) == 0) continue;
    Entry wanted;
    forEachWanted(*handle, [&](U32 number, Entry const& row) {
      if (number == 0) wanted = row;
    });
    list.push_back(
        {&type(), Key(Vell::Value(name)), Change::Kind::homeless, {}, recordOf(wanted), {}});
  }
  return list;
}

template <class T>
std::vector<Change> NamedTable<T>::changes() const {
  if (!hasHardware()) return homeless();
  std::map<U32, Change> changes;
  auto const rows = placed();
  for (auto const& [row, wanted] : rows) {
    auto const before = found_.find(row);
    if (before == found_.end())
      changes.insert(
          {row,
           {&type(), rowKey(row), Change::Kind::added, {}, recordOf(wanted.entry), wanted.owner}});
    else if (!isSameRow(before->second, wanted.entry))
      changes.insert({row,
                      {&type(), rowKey(row), Change::Kind::rewritten, recordOf(before->second),
                       recordOf(wanted.entry), wanted.owner}});
  }
  for (auto const& [row, entry] : found_)
    if (!rows.contains(row))
      changes.insert({row, {&type(), rowKey(row), Change::Kind::deleted, recordOf(entry), {}, {}}});
  std::vector<Change> list;
  for (auto& each : changes) list.push_back(std::move(each.second));
  return list;
}

}  // namespace DlbAgent
