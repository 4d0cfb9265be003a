#include "platform/asic/SwTableBase.h"

#include <array>
#include <cstdint>
#include <string>

namespace Asic {

Index SwTableBase::getHwEntryIndex(EntryHandle const& handle) { return handle.hwIndex(); }

Index SwTableBase::getHwIndexForDependentField(EntryHandle const& handle) {
  return handle.hwIndexForDependentField();
}

void SwTableBase::suggestIndicesToNeededEntryHandle(EntryHandle const& handle,
                                                    IndexSet const& indices) {
  handle.handleIndexSuggestions(indices);
}

namespace {
SwTableBase::EntryHandle* firstLive = nullptr;
}

SwTableBase::EntryHandle::EntryHandle() : liveNext_(firstLive) {
  if (firstLive) firstLive->liveBefore_ = this;
  firstLive = this;
}

SwTableBase::EntryHandle::~EntryHandle() {
  (liveBefore_ ? liveBefore_->liveNext_ : firstLive) = liveNext_;
  if (liveNext_) liveNext_->liveBefore_ = liveBefore_;
}

SwTableBase::EntryHandle* SwTableBase::EntryHandle::atAddress(U64 address) {
  auto* at = firstLive;
  while (at && reinterpret_cast<std::uintptr_t>(at) != address) at = at->liveNext_;
  return at;
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

void SwTableBase::EntryHandle::statesEnd() {
  using enum EntryState;
  Vell::Ptr<EntryHandle> const held(this);
  bool const waits = entryState_ == unresolved || entryState_ == failedNeededEntry;
  hwIndex_ = {};
  auto const resolvedBefore = std::exchange(resolvedEntryState_, unresolved);
  auto const before = waits ? unresolved : std::exchange(entryState_, unresolved);
  // The outcome first: it may be that of the very write that ends the entry, which nobody has seen yet.
  if (resolvedBefore != unresolved)
    publisher_.publishChangeRecursive(resolvedEntryStateField, nullptr, &resolvedBefore, nullptr);
  if (before != unresolved)
    publisher_.publishChangeRecursive(entryStateField, nullptr, &before, nullptr);
}

std::ostream& operator<<(std::ostream& out, SwTableBase::EntryState state) {
  static constexpr std::array names{"unresolved",        "inProgress", "indexReconciled",
                                    "frameworkComplete", "success",    "failedNeededEntry",
                                    "failedNoIndex"};
  auto const number = static_cast<std::size_t>(state);
  return number < names.size() ? out << names[number] : out << std::to_string(number);
}

std::ostream& operator<<(std::ostream& out, SwTableBase::EntryType type) {
  return out << std::to_string(static_cast<U32>(type));
}

}  // namespace Asic
