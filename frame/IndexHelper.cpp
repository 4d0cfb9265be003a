#include "frame/IndexHelper.h"

#include "containers/HashMap2018Iterator.h"

namespace Asic {
namespace {

constexpr Vell::TypeData type{"Asic::SwTable::IndexHelper", {}, {}};
constexpr Vell::TypeData const* types[] = {&type};
constinit Vell::ModuleInspectData module{"IndexHelper", types};

}  // namespace

constinit Zarn::AllocTrackTypeInfo SwTable::IndexHelper::memAllocationTracker_{
    "Asic::SwTable::IndexHelper"};

Vell::ZarnType SwTable::IndexHelper::typeData() const { return {&module, 0}; }

SwTable::IndexHelper::~IndexHelper() {
  if (!allocator_) return;
  for (Zarn::HashMap2018IteratorGeneric at(index_); at; at.advance())
    allocator_->candidateDel(at.currNodeMaybeStale()->key().value());
}

void SwTable::IndexHelper::allocatorIs(GenericIndexAllocator* allocator) {
  if (allocator_ || !allocator) return;
  allocator_ = allocator;
  for (Zarn::HashMap2018IteratorGeneric at(index_); at; at.advance())
    allocator_->candidateIs(at.currNodeMaybeStale()->key().value());
}

void SwTable::IndexHelper::indexIs(Asic::Index index) {
  if (indexHas(index)) return;
  index_.lookupOrNewMember({index.value()});
  if (allocator_) allocator_->candidateIs(index);
}

void SwTable::IndexHelper::indexDel(Asic::Index index) {
  if (index_.deleteMemberG(index.value()) && allocator_) allocator_->candidateDel(index);
}

}  // namespace Asic
