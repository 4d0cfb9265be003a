#include "platform/asic/UnresolvedEntry.h"

#include <algorithm>

namespace Asic {

bool SwTable::UnresolvedEntry::isUsable(SwTableBase::EntryHandle const& handle, Util const* util) {
  using enum EntryState;
  bool const hasIndex = !handle.hwIndex().isExhausted();
  auto const state = handle.entryState();
  if ((state == frameworkComplete || state == success) && hasIndex) return true;
  if (state == indexReconciled) return true;
  return util && util->indexKnownAtWrite() && hasIndex;
}

bool SwTable::UnresolvedEntry::hasFailed(SwTableBase::EntryHandle const& handle) {
  return handle.entryState() == EntryState::failedNeededEntry ||
         handle.entryState() == EntryState::failedNoIndex;
}

bool SwTable::UnresolvedEntry::neededEntryHasFailed() const {
  return std::ranges::any_of(watches_, [](auto const& each) { return hasFailed(*each.handle); });
}

std::vector<Vell::Ptr<SwTableBase::EntryHandle const>>
SwTable::UnresolvedEntry::neededEntryHandles() const {
  std::vector<Vell::Ptr<SwTableBase::EntryHandle const>> handles;
  for (auto const& each : watches_) handles.push_back(each.handle);
  return handles;
}

void SwTable::UnresolvedEntry::neededEntryHandleSmIs(SwTableBase::EntryHandle const& handle) {
  auto const watch = watches_.insert(watches_.end(), {&handle, {}});
  watch->claim =
      handle.watched().watch(SwTableBase::EntryHandle::entryStateField,
                             [this, watch](Vell::Change const&) { neededEntryChanged(watch); });
}

void SwTable::UnresolvedEntry::neededEntryChanged(Watches::iterator watch) {
  Vell::Ptr<UnresolvedEntry> const held(this);
  auto const handle = watch->handle;  // the watch may be the last to hold it
  if (isUsable(*handle, swTable_ ? swTable_->util() : nullptr)) {
    watches_.erase(watch);
    if (watches_.empty()) doResolve();
  } else if (hasFailed(*handle)) {
    markFailedNeededEntry();
  }
}

}  // namespace Asic
