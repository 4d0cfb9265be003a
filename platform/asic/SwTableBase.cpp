#include "platform/asic/SwTableBase.h"

#include <array>

namespace Asic {

Index SwTableBase::getHwEntryIndex(EntryHandle const& handle) { return handle.hwIndex(); }

Index SwTableBase::getHwIndexForDependentField(EntryHandle const& handle) {
  return handle.hwIndexForDependentField();
}

void SwTableBase::EntryHandle::entryStateIs(EntryState state) {
  if (state == entryState_) return;
  Vell::Ptr<EntryHandle> const held(this);  // the hook or a watcher may drop the last use
  auto const previous = std::exchange(entryState_, state);
  handleEntryState();
  publisher_.publishChangeRecursive(entryStateField, nullptr, &previous, nullptr);
}

void SwTableBase::EntryHandle::resolvedEntryStateIs(EntryState state) {
  if (state == resolvedEntryState_) return;
  Vell::Ptr<EntryHandle> const held(this);
  auto const previous = std::exchange(resolvedEntryState_, state);
  handleResolvedEntryState();
  publisher_.publishChangeRecursive(resolvedEntryStateField, nullptr, &previous, nullptr);
}

std::ostream& operator<<(std::ostream& out, SwTableBase::EntryState state) {
  static constexpr std::array names{"unresolved",        "inProgress", "indexReconciled",
                                    "frameworkComplete", "success",    "failedNeededEntry",
                                    "failedNoIndex"};
  return out << names.at(static_cast<std::size_t>(state));
}

}  // namespace Asic
