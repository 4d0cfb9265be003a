// Adjacencies: which group serves the traffic that is sent to an adjacency. A table of the reference
// agent's own, so that the chain above the groups is whole; a switch's agent brings its own.
//
// An adjacency lies in the hardware at its id, before a restart as after it. Its row holds the index
// of its group; so when it is committed during replay, that row tells the group where it was.
//
// Invariants
//  1. An adjacency is written when its group is usable, with the group's index at that moment. Until
//     then a former value stays in the hardware, and holds the former group.
//  2. An id takes its index when it is written, not when it waits: the row of one that still waits at
//     the purge goes, as it may point at a group that goes.
//
// Threading: the thread of the owning agent.

#pragma once

#include <string_view>

#include "forwarding/SmallTable.h"
#include "frame/UnresolvedEntries.h"

namespace Forwarding {

struct AdjacencyNames {
  static constexpr std::string_view key = "AdjacencyKey";
  static constexpr std::string_view qualifiedKey = "Forwarding::AdjacencyKey";
  static constexpr std::string_view allocator = "Forwarding::AdjacencySharedAllocator";
};
using AdjacencyKey = IdKey<AdjacencyNames>;

/// The rows of the adjacency tables of a chip. Each id asks for its own.
class AdjacencySharedAllocator final : public Asic::FirstFreeIndexAllocator {
 public:
  static Vell::ZarnType type();
  Vell::ZarnType typeData() const override { return type(); }
};

class UnresolvedAdjacency;

struct AdjacencySheet : SmallSheet {
  static constexpr Asic::TableNames names{"Forwarding::AdjacencyTable", "AdjacencySwTable"};
  static constexpr Asic::HandleMapConstants maps{
      .entryHandle = 0x37D0A96B, .resolvedEntry = 0xE25C418F, .unresolved = 0x58B13F04};
  static constexpr U32 unresolvedField = 0x28e;

  using Key = AdjacencyKey;
  using IndexAllocator = AdjacencySharedAllocator;
  template <class T>
  using Record = UnresolvedAdjacency;

  class Entry : public Asic::FieldEntry<Entry> {
   public:
    static constexpr U64 numDependentFields = 1;

    /// The group that serves the adjacency, an entry of a table of groups.
    Vell::Ptr<Asic::SwTableBase::EntryHandle const> groupHandle;
    /// That group's hardware index, written by the table when the group is usable.
    U32 group = 0;

    /// The entry that this one needs, and the index to fill in for it.
    auto const& neededEntryHandle() const { return groupHandle; }
    Asic::Index neededIndex() const { return group; }
    void neededIndexIs(Asic::Index index) { group = index.value(); }

    static constexpr auto fields() {
      return Zarn::fieldList("Forwarding::AdjacencyTable::Entry",
                             Zarn::field(0x84, "groupHandle", &Entry::groupHandle),
                             Zarn::field(0x85, "group", &Entry::group, Zarn::FieldRole::result));
    }
  };

  struct QE_PendingEntry {
    static constexpr U32 firstCapacity = 2;
    static constexpr std::string_view name =
        "Forwarding::AdjacencyTable::EntryHandle::pendingEntry";
  };
};

class AdjacencyTable final : public SmallTable<AdjacencyTable, AdjacencySheet>,
                             public Asic::UnresolvedEntries<AdjacencyTable, AdjacencySheet> {
 public:
  using Key = AdjacencyKey;
  using KeyNames = AdjacencyNames;

  static constexpr std::string_view initUnresolvedName = "initUnresolvedEntry";
  static constexpr U32 unresolvedTypeNumber = 8;

  AdjacencyTable() = default;
  ~AdjacencyTable() override;

  /// The table shall own this adjacency, and that group shall serve it. Goes to the hardware as soon
  /// as the group is usable.
  HandlePtr entryCommit(Key key, Entry const& entry);

  // For the generic logic.

  /// The id's own row, or the exhausted index if the hardware has none of that number.
  Asic::Index newIndex(IndexAllocator& allocator, Key const& key) const;
  using UnresolvedEntries::unresolvedDel;
  using UnresolvedEntries::unresolvedDelAll;
  using UnresolvedEntries::unresolvedHas;
  void resolvedIs(UnresolvedAdjacency const& record);

 private:
  bool isWanted(Key const& key, Entry const& entry) const;
};

/// The record of an adjacency that waits for its group.
class UnresolvedAdjacency final : public Asic::TableRecord<AdjacencyTable, UnresolvedAdjacency> {
 public:
  using Key = AdjacencyKey;
  using Rows = AdjacencyTable::Rows;

  static Zarn::AllocTrackTypeInfo memAllocationTracker_;

  explicit UnresolvedAdjacency(Key key) : key_(key) {}
  Vell::ZarnType typeData() const override;

  Key const& key() const { return key_; }
  Rows& rows() { return rows_; }
  Rows const& rows() const { return rows_; }

 private:
  Key key_;
  Rows rows_;
};

/// A new table, empty and in its first phase.
Vell::Ptr<AdjacencyTable> adjacencyTableFactory();

}  // namespace Forwarding

extern template class Asic::HandleTable<Forwarding::AdjacencyTable, Forwarding::AdjacencySheet>;
extern template class Asic::UnresolvedEntries<Forwarding::AdjacencyTable,
                                              Forwarding::AdjacencySheet>;
extern template class Asic::TableEntryHandle<Forwarding::AdjacencyTable>;
extern template class Forwarding::SmallTable<Forwarding::AdjacencyTable,
                                             Forwarding::AdjacencySheet>;
