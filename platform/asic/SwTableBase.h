// What every table is known by outside its class: keys, entry states, and entry handles.
//
// Threading: the thread of the owning agent; all handles of a process are made and freed on it.

#pragma once

#include <compare>
#include <ostream>

#include "platform/asic/Index.h"
#include "platform/asic/IndexSet.h"
#include "platform/vell/Ptr.h"
#include "platform/vell/Publisher.h"
#include "platform/zarn/CharRange.h"
#include "platform/zarn/Entity.h"
#include "platform/zarn/Fields.h"
#include "platform/zarn/Hash.h"

namespace Asic {

class SwTableBase : public Zarn::Entity {
 public:
  /// The 32-bit key of a table addressed by index.
  class Index {
   public:
    constexpr Index() = default;
    constexpr explicit(false) Index(U32 value) : value_(value) {}

    constexpr U32 value() const { return value_; }
    constexpr explicit(false) operator Asic::Index() const { return value_; }
    U32 hash(U32 seed) const { return Zarn::hashSingleAttr(seed, value_); }
    /// Key equality for publications, on two pointers to `Index`.
    static bool isEq(void const* a, void const* b) {
      return *static_cast<Index const*>(a) == *static_cast<Index const*>(b);
    }
    void deserialize(Zarn::CharRange& range, std::string_view name) {
      range.deserializeAttr(name, value_);
    }

    friend constexpr auto operator<=>(Index, Index) = default;
    friend std::ostream& operator<<(std::ostream& out, Index index) { return out << index.value_; }

   private:
    U32 value_ = 0;
  };

  /// How far an entry has come on its way to the hardware.
  enum class EntryState : U8 {
    unresolved = 0,
    inProgress = 1,         ///< a write is on its way
    indexReconciled = 2,    ///< the hardware held the entry's place from before a restart
    frameworkComplete = 3,  ///< finished by the framework
    success = 4,            ///< the hardware holds the entry
    failedNeededEntry = 5,
    failedNoIndex = 6,
  };

  /// Why an entry handle exists, and with that whether its table's use of it counts.
  enum class EntryType : U8 {
    unset = 0,          ///< nobody has said; counts
    referenceOnly = 1,  ///< the entry lives as long as somebody holds the handle; does not count
    committed = 2,      ///< the table owns the entry; counts
    inDeletion = 3,     ///< the entry is leaving in an order of its own; counts
  };

  class EntryHandle;

  /// The hardware index of a handle's entry; exhausted while it has none.
  static Asic::Index getHwEntryIndex(EntryHandle const& handle);
  /// The index to write into a field that refers to a handle's entry.
  static Asic::Index getHwIndexForDependentField(EntryHandle const& handle);
  /// Tells the table of a needed entry at which values of a dependent field the hardware may have
  /// held that entry before a restart.
  static void suggestIndicesToNeededEntryHandle(EntryHandle const& handle, IndexSet const& indices);
};

std::ostream& operator<<(std::ostream& out, SwTableBase::EntryState state);
/// As its number.
std::ostream& operator<<(std::ostream& out, SwTableBase::EntryType type);

/// The counted record by which the rest of the world holds on to one entry. Setting a state that is
/// already there does nothing; otherwise the state is stored, its hook runs, then the watchers hear
/// of it, all inside the call.
class SwTableBase::EntryHandle : public Vell::Node {
 public:
  static constexpr U32 entryStateField = 0x102;
  static constexpr U32 resolvedEntryStateField = 0x103;

  EntryHandle();
  ~EntryHandle() override;

  Vell::Publisher* publisher() override { return &publisher_; }
  /// Where the states are told. Watching an entry does not change it.
  Vell::Publisher& watched() const { return publisher_; }

  /// Runs after `entryState` changed.
  virtual void handleEntryState() {}
  /// The index to write into a field that refers to this entry.
  virtual Asic::Index hwIndexForDependentField() const { return hwIndex_; }
  /// Takes candidates for the entry's place in the hardware, as values of a dependent field.
  virtual void handleIndexSuggestions(IndexSet const&) const {}
  /// Runs after `resolvedEntryState` changed.
  virtual void handleResolvedEntryState() {}

  Asic::Index hwIndex() const { return hwIndex_; }
  void hwIndexIs(Asic::Index index) { hwIndex_ = index; }
  EntryState entryState() const { return entryState_; }
  void entryStateIs(EntryState state);
  EntryState resolvedEntryState() const { return resolvedEntryState_; }
  void resolvedEntryStateIs(EntryState state);
  EntryType entryType() const { return entryType_; }
  void entryTypeIs(EntryType type) { entryType_ = type; }

  /// The live handle at that address, or null: how a handle is found again by its text form, whose
  /// writer may have been wrong.
  static EntryHandle* atAddress(U64 address);

 protected:
  /// The entry is in the hardware no more: it has no index, and is `unresolved` in both states. That is
  /// told, but no hook runs. The `entryState` of an entry that waits stays, as it is that of a later wish.
  void statesEnd();

 private:
  Asic::Index hwIndex_;
  EntryState entryState_ = EntryState::unresolved;
  EntryState resolvedEntryState_ = EntryState::unresolved;
  EntryType entryType_ = EntryType::unset;
  mutable Vell::Publisher publisher_;
  EntryHandle* liveBefore_ = nullptr;  ///< the list of all live handles, for `atAddress`
  EntryHandle* liveNext_ = nullptr;
};

}  // namespace Asic

/// An index as a field is told as its number.
template <>
struct Zarn::FieldType<Asic::SwTableBase::Index> : Zarn::FieldType<U32> {
  static Vell::Value toValue(Asic::SwTableBase::Index index) { return U64{index.value()}; }
};
