// The bases of tables whose entries have handles and get their indices from an allocator.

#pragma once

#include <cstdint>

#include "containers/HashMap2018.h"
#include "frame/IndexHelper.h"
#include "platform/asic/SwTable.h"

namespace Asic {

/// A handle as the key of a map: its address. The map's owner sees to it that the handle is there.
struct EntryHandleAddress {
  SwTableBase::EntryHandle const* handle;

  U32 hash(U32 seed) const {
    return Zarn::hashSingleAttr(seed, reinterpret_cast<std::uintptr_t>(handle));
  }
  friend auto operator<=>(EntryHandleAddress, EntryHandleAddress) = default;
};

/// The base of tables where a key takes one index.
class SwUnknownIndexTable : public SwTable {
 public:
  using HN_IndexHelper = Zarn::HN<EntryHandleAddress, Vell::Ptr<IndexHelper>, 0x3D1F6C27>;

  /// The handle's index helper, or null.
  Vell::Ptr<IndexHelper> indexHelper(SwTableBase::EntryHandle const& handle) const {
    auto const* node = indexHelper_.lookupNodeG({&handle});
    return node ? node->value_ : nullptr;
  }
  /// The handle's index helper, made if it has none.
  Vell::Ptr<IndexHelper> indexHelperIs(SwTableBase::EntryHandle const& handle) {
    if (auto helper = indexHelper(handle)) return helper;
    return indexHelper_.newMemberG({&handle}, {new IndexHelper, {&handle}})->value_;
  }
  /// Ends the suggestions for the handle, if there are any.
  void indexHelperDel(SwTableBase::EntryHandle const& handle) {
    indexHelper_.deleteMemberG({&handle});
  }
  /// Ends all suggestions.
  void indexHelperDelAll() { indexHelper_._memberDelAll(); }
  U32 indexHelpers() const { return indexHelper_.count(); }

 protected:
  explicit SwUnknownIndexTable(Vell::String name) : SwTable(std::move(name)) {}

 private:
  Zarn::HashMap2018<HN_IndexHelper> indexHelper_{1, false};
};

/// The base of tables where a key takes a run of consecutive indices.
class SwBlockTable : public SwUnknownIndexTable {
 protected:
  explicit SwBlockTable(Vell::String name) : SwUnknownIndexTable(std::move(name)) {}
};

}  // namespace Asic
