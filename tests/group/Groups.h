// A group table in memory, with a list of all that happens to it and to the handles that a test
// follows. Tables that live at the same time share one allocator, as the tables of one chip do.
//
// Events read "tracker 0 userAdd", "write 0 mode 1", "compare 0 mode 1", "delete 0",
// "published 0x286 7 new", "published 0x288 7 was mode 1", "published 0x28a 4", and of handles
// "entryState success". An absent value is "-".

#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "group/EcmpGroup1DlbSwTable.h"
#include "group/VxlanEcmpGroup1DlbSwTable.h"
#include "platform/zarn/U12.h"
#include "support/Recording.h"

namespace Group {

using State = Asic::SwTableBase::EntryState;
using Type = Asic::SwTableBase::EntryType;
using Status = Asic::ReconciliationStatus;
using Prior = Asic::SwTable::KeyPrior;
using Events = std::vector<std::string>;
using testing::ElementsAre;
using testing::IsEmpty;
using HandlePtr = Vell::Ptr<Asic::SwTableBase::EntryHandle const>;
using Ecmp = TessarLoadBalance::EcmpGroup1DlbTable;
using Vxlan = TessarLoadBalance::VxlanEcmpGroup1DlbTable;
using GroupTables = testing::Types<Ecmp, Vxlan>;

constexpr U32 noIndex = 0xFFFFFFFF;

/// A table with its recording hooks. `entries` is what its hardware has room for.
template <class T>
class Groups : public Testing::Driven<Groups<T>, T, Testing::RecordingHandleUtil<T>> {
 public:
  using Base = Testing::Driven<Groups<T>, T, Testing::RecordingHandleUtil<T>>;
  using Key = typename T::Key;
  using Entry = typename T::Entry;
  using Base::allocator;
  using Base::table;
  using Base::util;
  static constexpr bool waits = Asic::Trait::needsEntries<T>;

  explicit Groups(U32 entries = 16) : Base(new T("groups"), entries) {
    this->watch(0x282, [](auto&) { return ""; });
    this->watch(0x283, [](auto&) { return ""; });
    constexpr auto cameOrWent = [](auto& change) {
      return Vell::concatenate(' ', idOf(change), change.previous ? " gone" : " new");
    };
    this->watch(T::entryHandleField, cameOrWent);
    if constexpr (waits) this->watch(T::unresolvedEntryField, cameOrWent);
    this->watch(T::resolvedEntryField, [](auto& change) {
      auto const& previous = *change.template previousAs<Zarn::Optional<Entry>>();
      return Vell::concatenate(' ', idOf(change), " was ",
                               Testing::RecordingUtil<T>::text(previous));
    });
    this->watch(T::syncedEntryField, [](auto& change) {
      return Vell::concatenate(' ', change.template keyAs<Asic::Index>().value());
    });
  }
  Groups& holding(std::map<U32, U32> const& modes) {
    for (auto const& [row, mode] : modes) util->rows[row] = entry(mode);
    return this->synced();
  }
  /// Writes down the states that the handle goes through from now on.
  HandlePtr const& follow(HandlePtr const& handle) {
    for (auto const& [field, name] : {std::pair{0x102u, "entryState "}, {0x103u, "resolved "}})
      this->subscriptions.push_back(
          handle->watched().watch(field, [this, name = name, at = handle.get()](auto& change) {
            util->note(Vell::concatenate(
                name, change.fieldId == 0x102 ? at->entryState() : at->resolvedEntryState()));
          }));
    return handle;
  }

  static Key key(U32 id) { return {.adjId = id}; }
  static Entry entry(U32 mode) {
    Entry made;
    if constexpr (waits)
      made.countSecondary = Zarn::U12(mode);
    else
      made.lbMode = mode;
    return made;
  }
  HandlePtr commit(U32 id, U32 mode) { return table->entryCommit(key(id), entry(mode)); }
  HandlePtr ref(U32 id, U32 mode) { return table->entryRef(key(id), entry(mode)); }
  void remove(U32 id) { table->entryRemove(key(id)); }
  /// The key stays without a value, as only somebody below the client interface can make it.
  void blank(U32 id) {
    table->resolvedKeyPriorIs(Prior::value);
    table->resolvedEntryIs(key(id), {});
  }

  Events take() {
    auto events = util->take();
    for (auto& each : events) {
      shorten(each, Vell::concatenate(T::names.qualified, "::Entry{lbMode:"), "mode ");
      shorten(each, " fastLinkFailover:false}", "");
    }
    return events;
  }
  Asic::HwTable& hw() { return *table->hwTable(); }
  /// Acknowledges that write of the row; what was delivered is the result.
  U64 acknowledge(U64 write, U32 index, State outcome = State::success) {
    hw().writeResponseIs({write, index, outcome});
    return hw().deliverWriteResponses();
  }
  U64 answer(U32 index, State outcome = State::success) {
    return acknowledge(hw().newestWrite(index), index, outcome);
  }
  /// The index that the allocator holds for the key, of whichever table.
  U32 indexOf(U32 id) const {
    auto const wanted = key(id);
    return allocator()->indexForKey(T::keyType(), &wanted).value();
  }
  /// As another table of the allocator, or an earlier life, would have done it.
  bool recover(U32 id, U32 index) {
    auto const wanted = key(id);
    return allocator()->recoverIndexForKey(index, T::keyType(), &wanted);
  }

 private:
  static U32 idOf(Vell::Change const& change) { return change.keyAs<Key>().adjId; }
  static void shorten(std::string& text, std::string_view from, std::string_view to) {
    for (auto at = text.find(from); at != text.npos; at = text.find(from))
      text.replace(at, from.size(), to);
  }
};

/// What must be true of every table at rest, past its replay and with room for all.
template <class T>
void isConsistent(Groups<T>& at) {
  EXPECT_EQ(at.util->rows.size(), at.table->resolvedCount());
  EXPECT_EQ(at.table->entrys(), at.table->resolvedCount());
  EXPECT_EQ(at.allocator()->totalUsedIndices(), at.table->resolvedCount());
  EXPECT_EQ(at.tracker().indices(), at.util->rows.size());
  for (U32 id = 0; id < 20; ++id) {
    if (!at.table->entryHas(at.key(id))) continue;
    auto const index = at.indexOf(id);
    ASSERT_TRUE(at.util->rows.contains(index)) << id;
    EXPECT_EQ(at.util->rows.at(index), at.table->resolvedEntry(at.key(id))) << id;
    EXPECT_EQ(at.usesOf(index), 1u) << id;
  }
}

inline void suggest(HandlePtr const& handle, Asic::IndexSet const& indices) {
  Asic::SwTableBase::suggestIndicesToNeededEntryHandle(*handle, indices);
}

}  // namespace Group
