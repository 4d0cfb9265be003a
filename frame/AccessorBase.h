// What the generic logic of every table does: traces and messages, the chip hooks, the sync, the
// end of the replay, the purge's frame.
//
// An accessor is made for one operation, on a table that its caller holds for as long as it takes. It
// keeps nothing from one call to the next: what a step needs is passed to it.

#pragma once

#include <algorithm>
#include <array>
#include <string_view>

#include "frame/Announcement.h"
#include "platform/asic/SwTable.h"
#include "platform/fennlog/Fennlog.h"
#include "platform/vell/Assert.h"
#include "platform/zarn/Trace.h"

namespace Asic {

/// The name of an operation, as a template argument.
template <std::size_t Size>
struct OperationName {
  char text[Size];
  constexpr explicit(false) OperationName(char const (&literal)[Size]) {
    std::copy_n(literal, Size, text);
  }
  constexpr std::string_view view() const { return {text, Size - 1}; }
};

/// The qualified name of a class inside a table's class.
template <class T, OperationName suffix>
struct NestedName {
  static constexpr auto text = [] {
    constexpr auto table = T::names.qualified;
    std::array<char, table.size() + suffix.view().size()> joined{};
    std::ranges::copy(suffix.view(), std::ranges::copy(table, joined.begin()).out);
    return joined;
  }();
  static constexpr std::string_view view{text.data(), text.size()};
};

/// Trace levels of the tables.
enum TraceLevel : unsigned {
  traceSummary = 0,  ///< on the handle "SwTableStat"
  traceClient = 5,   ///< what a client asked
  traceLife = 6,     ///< syncs, cleanups, handles
  traceKey = 8,      ///< all work on one key
  tracePhase = 9,    ///< the end of replay
};

template <class T>
class AccessorBase {
 public:
  explicit AccessorBase(T& table) : swTable_(&table), traceHandle_(_defaultTraceHandle()) {}

  /// The table's chip hooks with a use held, or null if it has none: it then programs nothing.
  Vell::Ptr<typename T::Util> utilIfExists() const { return swTable_->util(); }

  void doInitComplete();
  /// Deletes from the hardware what nobody claimed.
  void purgeStaleEntries();

  // For the accessor's and the table's own operations alike.

  /// A table whose last use has gone takes no wish any more: it only tells of one.
  template <class Key>
  void refuse(std::string_view operation, Key const& key) const {
    trace(traceClient, operation, " : The table goes, and takes no entry at key : ", key);
  }

  /// The always-on message that an operation begins with.
  template <OperationName operation, Fennlog::Time time = Fennlog::Time::now>
  static void message() {
    static constinit Fennlog::Site site("{}: {}", T::names.brief(), operation.view());
    Fennlog::write<time>(site);
  }
  /// A trace line of an operation; its text is built only if the level is on.
  template <class... Parts>
  void trace(TraceLevel level, std::string_view operation, Parts const&... parts) const {
    if (!traceHandle_.on(level)) [[likely]]
      return;
    SwTable::Telling const telling(*swTable_);
    traceHandle_.write(T::names.qualified, " : ", operation, parts...);
  }

 protected:
  /// Lets the chip tell what the hardware holds, once, before any of `entries` is there.
  void sync(U32 entries, char const* noEntries) const noexcept;
  /// Traces the summary of the reconciliation, the last step of every purge.
  void traceStatistics(std::string_view operation) const;
  /// The tracker operation of a row's delete, by what its key held.
  IndexUserTracker::OpType trackerOfDelete() const;
  /// Calls hooks of the chip. They must not throw: that ends the process, since half an operation would
  /// leave hardware and table apart, and nothing above could mend that.
  template <class Call>
  static decltype(auto) hook(Call const& call) noexcept {
    return call();
  }

  /// The generic logic that this is a part of.
  SwTable::Accessor<T>& self() { return static_cast<SwTable::Accessor<T>&>(*this); }

  T* swTable_;

 private:
  void syncedEntryRemoveAll();

  /// One trace handle for each table type. It stays to the end of the process: a table that is held
  /// by a static pointer still traces when it goes.
  static Zarn::TraceHandle& _defaultTraceHandle() {
    static auto& handle = *new Zarn::TraceHandle(T::names.qualified, false);
    return handle;
  }

  Zarn::TraceHandle const& traceHandle_;
};

template <class T>
void AccessorBase<T>::doInitComplete() {
  trace(tracePhase, "doInitComplete");
  swTable_->configReplayCompleteIs(true);
}

template <class T>
void AccessorBase<T>::sync(U32 entries, char const* noEntries) const noexcept {
  trace(traceLife, "syncEntries", ": swTableInstPtr:", static_cast<void const*>(swTable_));
  VELL_ASSERT(swTable_->hwTable(), "hwTable()", T::names.qualified);
  VELL_ASSERT(entries == 0, noEntries, T::names.qualified, ": sync must precede every commit");
  if (auto const util = utilIfExists())
    util->syncEntries(*swTable_->hwTable(), Vell::Ptr<T>(swTable_));
}

template <class T>
void AccessorBase<T>::purgeStaleEntries() {
  syncedEntryRemoveAll();
  if (utilIfExists()) IndexUserTracker::Stub::recoveryEnded(swTable_->hwTable());
  traceStatistics("purgeStaleEntries");
}

template <class T>
void AccessorBase<T>::syncedEntryRemoveAll() {
  message<"syncedEntryRemoveAll">();
  trace(traceKey, "syncedEntryRemoveAll");
  if (!utilIfExists() || swTable_->syncedEntryMap().count() == 0) {
    trace(traceKey, "syncedEntryRemoveAll", " No stale entries in syncedEntryColl");
    return;
  }
  swTable_->resolvedKeyPriorIs(SwTable::KeyPrior::noKey);
  swTable_->reconcilingEntryIs(true);
  self().handleStaleEntries();
  swTable_->syncedEntryDelAll();
  swTable_->reconcilingEntryIs(false);
}

template <class T>
IndexUserTracker::OpType AccessorBase<T>::trackerOfDelete() const {
  using enum SwTable::KeyPrior;
  auto const prior = swTable_->resolvedKeyPrior();
  if (swTable_->reconcilingEntry() || prior == value) return IndexUserTracker::OpType::userRemove;
  VELL_ASSERT(prior == noValue, "false", T::names.qualified,
              ": a key was removed without its prior being set");
  return IndexUserTracker::OpType::userRemoveInactive;
}

template <class T>
void AccessorBase<T>::traceStatistics(std::string_view operation) const {
  auto const& handle = TableAnnouncement<T>::swTableStat();
  if (handle.on(traceSummary))
    handle.write(T::names.qualified, " : ", operation, " ", swTable_->statistics());
}

}  // namespace Asic
