// A table of groups that stand on blocks, in memory, and blocks that a test moves from state to state.
//
// Events read as in Groups.h; an entry reads "70/3": the index of its block and its count. The state
// of a key reads "U waiting, R value, T committed, E unresolved, S success, Q 1".

#pragma once

#include "Groups.h"
#include "group/EcmpGroup1SelectiveDlbSwTable.h"
#include "group/VxlanEcmpGroup1SelectiveDlbSwTable.h"
#include "support/Needed.h"

namespace Group {

using Selective = TessarLoadBalance::EcmpGroup1SelectiveDlbTable;
using VxlanSelective = TessarLoadBalance::VxlanEcmpGroup1SelectiveDlbTable;
using SelectiveTables = testing::Types<Selective, VxlanSelective>;
using Testing::needed;
using Testing::Needed;
using Testing::usable;
using NeededPtr = Vell::Ptr<Needed>;
using BlockHandle = Vell::Ptr<Asic::SwTableBase::EntryHandle const>;

template <class T>
class SelectiveGroups : public Groups<T> {
 public:
  using Base = Groups<T>;
  using Entry = typename T::Entry;
  using Base::entry;
  using Base::Groups;
  using Base::table;

  static Entry entry(BlockHandle block, U32 count) {
    auto made = Base::entry(count);
    made.ecmpSecondaryBlockPtrHandle = std::move(block);
    return made;
  }
  HandlePtr commit(U32 id, BlockHandle block, U32 count = 1) {
    return table->entryCommit(this->key(id), entry(std::move(block), count));
  }
  HandlePtr ref(U32 id, BlockHandle block, U32 count = 1) {
    return table->entryRef(this->key(id), entry(std::move(block), count));
  }
  /// Rows as an earlier life left them, each with the index of its block.
  SelectiveGroups& holding(std::map<U32, U32> const& blocks) {
    for (auto const& [row, block] : blocks) {
      this->util->rows[row] = entry(nullptr, 1);
      this->util->rows[row]->ecmpSecondaryBlockPtr = block;
    }
    this->synced();
    return *this;
  }
  SelectiveGroups& replayed() {
    Base::replayed();
    return *this;
  }
  auto handle(U32 id) const { return table->entryHandle(this->key(id)); }
  /// All six coordinates of the key.
  std::string state(U32 id) const {
    static constexpr std::array types{"unset", "referenceOnly", "committed", "inDeletion"};
    auto const key = this->key(id);
    auto const* const resolved = table->resolvedEntryMap().lookupNodeG(key);
    auto const text = Vell::concatenate(table->unresolvedHas(key) ? "U waiting" : "U none", ", R ",
                                        !resolved          ? "none"
                                        : resolved->value_ ? "value"
                                                           : "no value");
    auto const at = handle(id);
    if (!at) return text + ", no handle";
    return Vell::concatenate(text, ", T ", types[static_cast<std::size_t>(at->entryType())], ", E ",
                             at->entryState(), ", S ", at->resolvedEntryState(), ", Q ",
                             at->pendingEntry().count());
  }
  /// Uses of a block by the table: beyond the test's own, and those of the rows that it keeps.
  U32 usesOf(NeededPtr const& block) const {
    U32 uses = block->useCount() - 1;
    for (auto const& each : this->util->rows)
      uses -= each.second && each.second->ecmpSecondaryBlockPtrHandle == block;
    return uses;
  }
};

}  // namespace Group
