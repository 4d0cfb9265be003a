// A table of groups: a client addresses a group by a key that means nothing to the hardware, gets a
// handle, and watches it. `T` is the concrete table, `Sheet` its data sheet, which derives from
// `GroupSheet`. Groups that stand on entries of other tables have a template of their own on top of
// this (frame/SelectiveGroupTable.h).
//
// Invariants
//  1. `resolvedEntry` is what clients want the hardware to hold (frame/ResolvedEntries.h); its keys
//     have handles unless somebody below the client interface stored them.
//  2. An entry belongs to the table from its commit to its removal, and else to those who hold its
//     handle; the last of them that lets go removes it.
//  3. The hardware acknowledges writes. Nobody is told of a failure but by the handle's state.
//  4. Acknowledgements are taken from the end of the replay on.
//
// Threading: the thread of the owning agent.

#pragma once

#include "frame/HandleTable.h"
#include "frame/ResolvedEntries.h"
#include "frame/SwBlockTable.h"
#include "platform/asic/ResponseSmHolder.h"
#include "platform/asic/WriteResponseSm.h"

namespace Asic {

template <class T>
struct GroupTableReflection;

/// What the data sheets of all group tables say alike.
template <class Sheet>
struct GroupSheet {
  static constexpr U32 entryHandleField = 0x286;
  static constexpr U32 resolvedEntryField = 0x288;
  static constexpr U32 syncedEntryField = 0x28a;
  static constexpr HandleFields handleFields{
      .blockSize = 0, .pendingEntry = 0x185, .cleanup = 0x186};

  using Base = SwUnknownIndexTable;
  template <class T>
  using Reflection = GroupTableReflection<T>;

  struct QE_PendingEntry {
    static constexpr U32 firstCapacity = 4;
    static constexpr std::string_view name = NestedName<Sheet, "::EntryHandle::pendingEntry">::view;
  };
};

template <class T, class Sheet>
class GroupTable : public HandleTable<T, Sheet>, public ResolvedEntries<T, Sheet> {
  using Handles = HandleTable<T, Sheet>;
  using Resolved = ResolvedEntries<T, Sheet>;

 public:
  using Key = typename Sheet::Key;
  using Entry = typename Sheet::Entry;
  using IndexAllocator = typename Sheet::IndexAllocator;
  using HandlePtr = Vell::Ptr<SwTableBase::EntryHandle const>;

  /// Numbers of the table's types in its module.
  static constexpr U32 entryTypeNumber = 0;
  static constexpr U32 entryHandleTypeNumber = 1;
  static constexpr U32 utilTypeNumber = 2;
  static constexpr U32 utilLoaderTypeNumber = 3;
  static constexpr U32 typeNumber = 4;
  static constexpr U32 syncedEntryTypeNumber = 5;
  /// Field ids of the publications, and what their former value is.
  static constexpr U32 writeResponseSmField = 0x283;  ///< `Vell::Ptr<WriteResponseSm>`
  static constexpr U32 resolvedEntryField = Sheet::resolvedEntryField;  ///< `Zarn::Optional<Entry>`

  // What clients ask.

  /// Keys that have a handle; those without a value, or without an entry, included.
  U32 entrys() const { return this->entryHandleMap().count(); }
  WriteResponseSm* writeResponseSm() const { return writeResponseSm_.get(); }
  /// The handle whose entry lies at `index`, or null.
  Vell::Ptr<SwTableBase::EntryHandle> getEntryHandle(Index index) override;

  // What clients do. A write gives the entry's handle, never null.

  /// The table shall keep this entry until it is removed.
  HandlePtr entryCommit(Key key, Entry const& entry);
  /// The entry shall live as long as somebody holds the result, or has committed it.
  HandlePtr entryRef(Key key, Entry const& entry);
  /// A commit at an index of the caller's choice. If the index is another key's, or the key has one,
  /// it is a commit like any other.
  HandlePtr entryWriteAtIndex(Index hwIndex, Key key, Entry const& entry);
  /// Takes back the commit. The row goes when nobody holds the handle any more.
  void entryRemove(Key key);
  /// Takes back every commit. Stale rows must have been purged before.
  void entryRemoveAll();

  // For the generic logic.

  /// The response machine of that table, made and made active if it is not there.
  Vell::Ptr<WriteResponseSm> writeResponseSmIs(T* swTable) {
    return writeResponseSm_.machineIs(swTable);
  }
  /// Takes the machine out, inactive, and gives it; null if there was none.
  Vell::Ptr<WriteResponseSm> writeResponseSmDel() { return writeResponseSm_.machineDel(); }

  // What the generic logic calls the collection.

  static Vell::ZarnType keyType() { return Key::keyType(); }
  static U32 blockSizeOf(Key const&) { return 1; }
  static void setUpAllocator(IndexAllocator&) {}
  bool resolvedHas(Key const& key) const { return Resolved::entryHas(key); }
  bool hasValue(Key const& key) const {
    return Resolved::keyPrior(key) == SwTable::KeyPrior::value;
  }
  bool isValue(Key const& key, Entry const& entry) {
    return this->holds(this->resolvedNode(key), &entry);
  }
  /// What the key holds now; nothing if it is just that value.
  Zarn::Optional<SwTable::KeyPrior> priorUnlessValue(Key const& key, Entry const& entry) {
    auto const* const node = this->resolvedNode(key);
    if (this->holds(node, &entry)) return {};
    return Resolved::keyPrior(node);
  }
  U32 resolvedCount() const { return this->resolvedEntryMap().count(); }
  void resolvedDelAll();
  /// Stores another value, and carries it to the hardware.
  void store(Key const& key, Entry const& entry) {
    auto* const node = this->resolvedNode(key);
    SwTable::resolvedKeyPriorIs(Resolved::keyPrior(node));
    this->storeResolved(node, key, &entry);
  }
  void endResponses() { writeResponseSmDel(); }

 protected:
  using AccessorT = SwTable::Accessor<T>;

  explicit GroupTable(Vell::String name);
  ~GroupTable() override = default;

 private:
  ResponseSmHolder<WriteResponseSm, &WriteResponseSm::WriteResponseSmIs> writeResponseSm_{
      *this, writeResponseSmField};
};

}  // namespace Asic
