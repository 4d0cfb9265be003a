// The candidates for one entry's place in the hardware, as others suggested them during replay.
//
// It exists from the first suggestion until the entry's index is settled.

#pragma once

#include "containers/HashMap2018.h"
#include "platform/asic/SwTable.h"
#include "platform/zarn/AllocTrack.h"

namespace Asic {

class SwTable::IndexHelper final : public Vell::Node,
                                   public Bruvel::Allocated<SwTable::IndexHelper> {
 public:
  using HN_Index = Zarn::HNKeyOnly<SwTableBase::Index, 0xA875A114>;
  using Indices = Zarn::HashMap2018<HN_Index>;

  static Zarn::AllocTrackTypeInfo memAllocationTracker_;
  Vell::ZarnType typeData() const override;

  /// Adds a candidate.
  void indexIs(Asic::Index index) { index_.lookupOrNewMember({index.value()}); }
  bool indexHas(Asic::Index index) const { return index_.lookupNodeG(index.value()) != nullptr; }
  /// The candidates, tried in the order of this set.
  Indices const& indices() const { return index_; }

 private:
  Indices index_{1, false};
};

}  // namespace Asic
