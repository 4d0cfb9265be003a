#include "platform/asic/IndexUserTracker.h"

#include <array>
#include <ostream>

#include "platform/asic/HwTable.h"
#include "platform/vell/Assert.h"

namespace Asic {
namespace {

using Uses = IndexUserTracker::Uses;
using Operation = IndexUserTracker::OpType;

bool has(Uses const& uses, Operation operation) {
  using enum IndexUserTracker::OpType;
  switch (operation) {
    case userAdd:
      return true;
    case userActivate:
    case userRemoveInactive:
      return uses.users > uses.active;
    case userRemove:
      return uses.users > 0;
    case userDeactivate:
      return uses.active > 0;
  }
  return false;
}

/// The uses of a recovered index as they must have been for `operation` to be right.
Uses settled(Operation operation) {
  using enum IndexUserTracker::OpType;
  bool const adds = operation == userAdd;
  bool const active = operation == userRemove || operation == userDeactivate;
  return {.users = adds ? 0u : 1u, .active = active ? 1u : 0u, .found = true};
}

}  // namespace

void IndexUserTracker::update(Index index, OpType operation) {
  if (operation == OpType::userRemove && !uses_.contains(index.value()) &&
      givenUp_.erase(index.value()) != 0)
    return;
  auto& uses = uses_[index.value()];
  if (uses.recovered) uses = settled(operation);
  VELL_ASSERT(has(uses, operation), "the use is there", operation, " of index ", index, " with ",
              uses.users, " users, ", uses.active, " active");
  switch (operation) {
    case OpType::userAdd:
      ++uses.users;
      ++uses.active;
      break;
    case OpType::userActivate:
      ++uses.active;
      break;
    case OpType::userDeactivate:
      --uses.active;
      break;
    case OpType::userRemove:  // an active use, unless a whole table goes at once
      if (uses.active > 0) --uses.active;
      --uses.users;
      break;
    case OpType::userRemoveInactive:
      --uses.users;
      break;
  }
  if (uses.users != 0) return;
  if (uses.found && recovering_) givenUp_.insert(index.value());
  uses_.erase(index.value());
}

void IndexUserTracker::recover(Index index) {
  recovering_ = true;
  uses_[index.value()] = {.users = 1, .active = 1, .recovered = true, .found = true};
}

void IndexUserTracker::recoveredUseStands(Index index) {
  auto const at = uses_.find(index.value());
  if (at == uses_.end() || at->second.recovered) return;
  // Found still, or given up and taken anew.
  if (!at->second.found && givenUp_.erase(index.value()) == 0) return;
  ++at->second.users;
  ++at->second.active;
  at->second.found = false;
}

void IndexUserTracker::recoveredUseClaimed(Index index) {
  auto const at = uses_.find(index.value());
  if (at != uses_.end()) at->second.recovered = false;  // one user, active: as it was recovered
}

IndexUserTracker::Uses IndexUserTracker::uses(Index index) const {
  auto const found = uses_.find(index.value());
  return found == uses_.end() ? Uses{} : found->second;
}

IndexUserTracker& IndexUserTracker::Stub::tracker(HwTable& hwTable) {
  auto& tracker = hwTable.indexUserTracker_;
  if (!tracker) tracker = std::make_unique<IndexUserTracker>();
  return *tracker;
}

void IndexUserTracker::Stub::recoveredUseStands(HwTable* hwTable, Index index) {
  if (hwTable && hwTable->indexUserTracker_) hwTable->indexUserTracker_->recoveredUseStands(index);
}

void IndexUserTracker::Stub::recoveredUseClaimed(HwTable* hwTable, Index index) {
  if (hwTable && hwTable->indexUserTracker_) hwTable->indexUserTracker_->recoveredUseClaimed(index);
}

void IndexUserTracker::Stub::recoveryEnded(HwTable* hwTable) {
  if (hwTable && hwTable->indexUserTracker_) hwTable->indexUserTracker_->recoveryEnded();
}

void IndexUserTracker::Stub::deleteTracker(HwTable* hwTable, U32 instance, bool keepIfUsed) {
  if (!hwTable || instance != 0 || !hwTable->indexUserTracker_) return;
  if (keepIfUsed && hwTable->indexUserTracker_->indices() != 0) return;
  hwTable->indexUserTracker_.reset();
}

std::ostream& operator<<(std::ostream& out, IndexUserTracker::OpType operation) {
  static constexpr std::array names{"userAdd", "userActivate", "userRemove", "userDeactivate",
                                    "userRemoveInactive"};
  return out << names.at(static_cast<std::size_t>(operation));
}

}  // namespace Asic
