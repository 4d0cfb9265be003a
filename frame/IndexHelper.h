// The candidates for one entry's place in the hardware, as others suggested them during replay.
//
// It exists from the first suggestion until the entry's index is settled. For as long it asks the
// allocator not to give the candidates to new keys, of whatever table, that could go elsewhere.

#pragma once

#include "containers/HashMap2018.h"
#include "platform/asic/GenericIndexAllocator.h"
#include "platform/asic/SwTable.h"
#include "platform/zarn/AllocTrack.h"

namespace Asic {

class SwTable::IndexHelper final : public Vell::Node,
                                   public Bruvel::Allocated<SwTable::IndexHelper> {
 public:
  using HN_Index = Zarn::HNKeyOnly<SwTableBase::Index, 0xA875A114>;
  using Indices = Zarn::HashMap2018<HN_Index>;

  static Zarn::AllocTrackTypeInfo memAllocationTracker_;

  ~IndexHelper() override;
  Vell::ZarnType typeData() const override;

  /// The allocator that is to hold the candidates back, once the table has one.
  void allocatorIs(GenericIndexAllocator* allocator);
  /// Adds a candidate.
  void indexIs(Asic::Index index);
  /// Takes a candidate back; nothing if it is none.
  void indexDel(Asic::Index index);
  bool indexHas(Asic::Index index) const { return index_.lookupNodeG(index.value()) != nullptr; }
  /// The candidates, tried in the order of this set.
  Indices const& indices() const { return index_; }

 private:
  Indices index_{1, false};
  Vell::Ptr<GenericIndexAllocator> allocator_;  ///< knows of all candidates, unless it is null
};

}  // namespace Asic
