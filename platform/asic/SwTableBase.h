// What every table is known by outside its class: keys, entry states, and entry handles.

#pragma once

#include <compare>
#include <ostream>

#include "platform/asic/Index.h"
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

  class EntryHandle;

  /// The hardware index of a handle's entry; exhausted while it has none.
  static Asic::Index getHwEntryIndex(EntryHandle const& handle);
  /// The index to write into a field that refers to a handle's entry.
  static Asic::Index getHwIndexForDependentField(EntryHandle const& handle);
};

std::ostream& operator<<(std::ostream& out, SwTableBase::EntryState state);

/// The counted record by which the rest of the world holds on to one entry. Setting a state that is
/// already there does nothing; otherwise the state is stored, its hook runs, then the watchers hear
/// of it, all inside the call.
class SwTableBase::EntryHandle : public Vell::Node {
 public:
  static constexpr U32 entryStateField = 0x102;
  static constexpr U32 resolvedEntryStateField = 0x103;

  Vell::Publisher* publisher() override { return &publisher_; }

  /// Runs after `entryState` changed.
  virtual void handleEntryState() {}
  /// The index to write into a field that refers to this entry.
  virtual Asic::Index hwIndexForDependentField() const { return hwIndex_; }
  /// Runs after `resolvedEntryState` changed.
  virtual void handleResolvedEntryState() {}

  Asic::Index hwIndex() const { return hwIndex_; }
  void hwIndexIs(Asic::Index index) { hwIndex_ = index; }
  EntryState entryState() const { return entryState_; }
  void entryStateIs(EntryState state);
  EntryState resolvedEntryState() const { return resolvedEntryState_; }
  void resolvedEntryStateIs(EntryState state);

 private:
  Asic::Index hwIndex_;
  EntryState entryState_ = EntryState::unresolved;
  EntryState resolvedEntryState_ = EntryState::unresolved;
  Vell::Publisher publisher_;
};

}  // namespace Asic

/// An index as a field is told as its number.
template <>
struct Zarn::FieldType<Asic::SwTableBase::Index> : Zarn::FieldType<U32> {
  static Vell::Value toValue(Asic::SwTableBase::Index index) { return U64{index.value()}; }
};
