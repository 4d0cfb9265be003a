// The base of every table: its hardware table and chip hooks, the phase of its life, the working
// fields of the operation in progress, and the hooks that the framework drives it through.
//
// Life of a table, driven by `TableRunner`:
//
//   doCreateHwTable -> doCreateHwTableResponse -> doCreateResourceSms -> doInitResourceConfigSm
//     -> doPublishHwTableMountInfo -> doPublishResourceMountInfo -> doCreateAllocator ->
//     syncEntries
//     -> (the owner replays its configuration) -> doInitComplete -> purgeStaleEntries
//
// A table that needs nothing at a step leaves that hook as it is here.
//
// Invariants
//  1. `configReplayComplete` goes from false to true once, and never back.
//  2. `resolvedKeyPrior` and `reconcilingEntry` belong to the operation in progress. An operation
//     that runs inside another (from a watcher, or from a plug-in's hook) leaves them as it found
//     them, so that the outer one can go on; `OperationScope` sees to that.
//  3. Operations in progress on one key know of each other: the older one stops where a newer one has
//     carried what it was called for (frame/KeyOperation.h).
//
// Threading: the thread of the owning agent.

#pragma once

#include "platform/asic/Chip.h"
#include "platform/asic/Feature.h"
#include "platform/asic/HwTable.h"
#include "platform/asic/ReconciliationStatistics.h"
#include "platform/asic/SwTableBase.h"
#include "platform/mirel/MountGroup.h"
#include "platform/vell/Assert.h"
#include "platform/vell/Ptr.h"
#include "platform/vell/Publisher.h"

namespace Asic {

class ResponseSm;

/// Which chip of a switch a hardware table belongs to.
struct UnitId {
  U32 value = 0;
};
/// The chip's make, by its plug-in's name.
struct ChipInfo {
  std::string chip;
};
/// The hardware tables that an agent has to recover after a restart.
class HwTableRecoverGroup {
 public:
  struct Recovery {
    std::string typeName;  ///< qualified name of the table
    std::string name;
    UnitId unitId;
    std::string chip;
    std::string entityManager;
  };

  void recoveryIs(Recovery recovery) { recoveries_.push_back(std::move(recovery)); }
  std::vector<Recovery> const& recoveries() const { return recoveries_; }

 private:
  std::vector<Recovery> recoveries_;
};

class SwTable : public SwTableBase {
 public:
  class Util;
  class OperationScope;
  class KeyOperation;
  class Telling;
  class EntryHandle;
  class UnresolvedEntry;
  class IndexHelper;
  /// The generic logic of a table class (frame/Variants.h).
  template <class T>
  class Accessor;
  /// A walk over the keys of a table that have a value (frame/EntryIterator.h).
  template <class T>
  class EntryIteratorConst;
  using ReconciliationStatus = Asic::ReconciliationStatus;

  /// What of a read its handler sees.
  enum class ResponseNotify : U8 {
    eachEntry = 0,  ///< each entry, and not the end
    endOnly = 1,    ///< the end, and no entry
  };
  friend constexpr ResponseNotify highestEnumerator(ResponseNotify) {
    return ResponseNotify::endOnly;
  }

  /// What the key of the operation in progress held before it.
  enum class KeyPrior : U8 { noKey = 0, noValue = 1, value = 2 };

  Vell::Publisher* publisher() override { return &publisher_; }

  /// Makes the hardware table from the chip, and hands it to `doCreateHwTableResponse`.
  virtual void doCreateHwTable();
  /// Takes the hardware table; null when the chip has none for this table.
  virtual void doCreateHwTableResponse(Vell::Ptr<HwTable> hwTable);
  /// The server of weak references to this table's entries, or null in a table
  /// without entry handles.
  virtual Vell::Node* entryWeakRefServer() { return nullptr; }
  /// The handle of the entry at `index`, or null.
  virtual Vell::Ptr<SwTableBase::EntryHandle> getEntryHandle(Asic::Index index);
  /// Brings the hardware's answer to a write at `index` to the entry's handle, if there is one.
  virtual void dispatchResponse(Asic::Index index, EntryState outcome);
  virtual void handleWeakResourceStatusResponse() {}
  virtual void handleStrongResourceStatusResponse() {}
  virtual void doPublishHwTableMountInfo() {}
  /// Deletes from the hardware what sync found and no commit claimed.
  virtual void purgeStaleEntries() {}
  virtual void doCreateResourceSms() {}
  virtual void doInitResourceConfigSm() {}
  virtual void doPublishResourceMountInfo() {}
  /// Makes or joins the index allocator, in tables that have one.
  virtual void doCreateAllocator() {}
  /// Replay has ended.
  virtual void doInitComplete() {}
  /// Reads the hardware, once the hardware table exists and before any commit.
  virtual void syncEntries() {}

  Vell::String const& name() const { return name_; }
  HwTable* hwTable() const { return hwTable_.get(); }
  void hwTableIs(Vell::Ptr<HwTable> hwTable) { hwTable_ = std::move(hwTable); }
  /// Whether the hardware is to answer each write of this table.
  bool hwResponseNeeded() const { return hwResponseNeeded_; }
  void hwResponseNeededIs(bool needed) { hwResponseNeeded_ = needed; }
  /// The chip that `doCreateHwTable` asks, or null.
  Chip* chip() const { return chip_.get(); }
  void chipIs(Vell::Ptr<Chip> chip) { chip_ = std::move(chip); }
  /// The table's chip hooks, or null. The framework gives them; a table works without.
  Util* util() const { return util_.get(); }
  void utilIs(Vell::Ptr<Util> util);

  /// The last use has gone: from here on the table takes no wish any more.
  bool isGoing() const { return isGoing_; }
  bool configReplayComplete() const { return configReplayComplete_; }
  void configReplayCompleteIs(bool complete);
  KeyPrior resolvedKeyPrior() const { return resolvedKeyPrior_; }
  bool operationInProgress() const { return operationDepth_ > 0; }
  void resolvedKeyPriorIs(KeyPrior prior) { resolvedKeyPrior_ = prior; }
  bool reconcilingEntry() const { return reconcilingEntry_; }
  void reconcilingEntryIs(bool reconciling) { reconcilingEntry_ = reconciling; }
  void updateStatistic(ReconciliationStatus status) { statistics_.count(status); }
  ReconciliationStatistics const& statistics() const { return statistics_; }

 protected:
  explicit SwTable(Vell::String name) : name_(std::move(name)) {}
  ~SwTable() override;
  /// Uses taken and dropped from here on free nothing, and `isGoing` is true.
  void goingIs() {
    nodeFlagSet(freedAtZeroFlag, false);
    isGoing_ = true;
  }

 private:
  friend class ResponseSm;

  Vell::String name_;
  ResponseSm* responseSms_ = nullptr;  ///< the first of those that were made for this table
  Vell::Ptr<HwTable> hwTable_;
  Vell::Ptr<Chip> chip_;
  Vell::Ptr<Util> util_;
  Vell::Publisher publisher_;
  ReconciliationStatistics statistics_;
  bool hwResponseNeeded_ = false;
  bool configReplayComplete_ = false;
  bool reconcilingEntry_ = false;
  bool isGoing_ = false;
  KeyPrior resolvedKeyPrior_ = KeyPrior::noKey;
  U32 operationDepth_ = 0;
  KeyOperation* keyOperation_ = nullptr;   ///< the innermost in progress
  KeyOperation const* telling_ = nullptr;  ///< the one that a line of trace is from
};

/// Stands around a line of trace. Whoever reads it must leave alone the entry of the operation that the
/// line is from: that goes on with what it knows, and asks nobody.
class SwTable::Telling {
 public:
  explicit Telling(SwTable& table)
      : table_(table), outer_(std::exchange(table.telling_, table.keyOperation_)) {}
  ~Telling() { table_.telling_ = outer_; }
  Telling(Telling const&) = delete;
  Telling& operator=(Telling const&) = delete;

 private:
  SwTable& table_;
  KeyOperation const* outer_;
};

/// Stands around an operation that calls out: holds a use of the table until it is done,
/// and, when it runs inside another operation of the same table, brings that one's
/// working fields back at its end.
class SwTable::OperationScope {
 public:
  explicit OperationScope(SwTable& table)
      : table_(&table),
        outerPrior_(table.resolvedKeyPrior_),
        outerReconciling_(table.reconcilingEntry_) {
    if (++table.operationDepth_ > 1) table.reconcilingEntry_ = false;
  }
  ~OperationScope() {
    if (--table_->operationDepth_ == 0) return;
    table_->resolvedKeyPrior_ = outerPrior_;
    table_->reconcilingEntry_ = outerReconciling_;
  }
  OperationScope(OperationScope const&) = delete;
  OperationScope& operator=(OperationScope const&) = delete;

 private:
  Vell::Ptr<SwTable> table_;
  KeyPrior outerPrior_;
  bool outerReconciling_;
};

/// What all operations on a key have in common, whatever the key's type: a place in the table's chain
/// of those in progress, and whether a newer one has overtaken this one. See frame/KeyOperation.h.
class SwTable::KeyOperation {
 public:
  /// What an operation does about its key.
  enum class Stage : U8 {
    commit,       ///< the table shall have an entry there
    reference,    ///< somebody needs an entry there, and says which
    use,          ///< somebody needs whatever entry is there
    programming,  ///< a changed value of the collection is carried to the hardware
    finding,      ///< what became of a write is told, or a row that may be its place is looked at
    recall,       ///< a commit that has claimed nothing yet is taken back
    revocation,   ///< a commit is taken back, and with it a value that waits
    removal,      ///< an entry that nobody needs leaves
  };

  KeyOperation(KeyOperation const&) = delete;
  KeyOperation& operator=(KeyOperation const&) = delete;

  Stage stage() const { return stage_; }
  /// Whether a newer operation has carried what this one was called for: it stops then.
  bool isOvertaken() const { return isOvertaken_; }
  /// Whether one has taken back what this one wanted: a wish, or its end. What came after that stands by
  /// itself.
  bool isRevoked() const { return isRevoked_; }

 protected:
  KeyOperation(SwTable& table, Stage stage)
      : table_(table),
        outer_(std::exchange(table.keyOperation_, this)),
        told_(std::exchange(table.telling_, nullptr)),
        stage_(stage) {}
  ~KeyOperation() {
    table_.keyOperation_ = outer_;
    table_.telling_ = told_;
  }

  KeyOperation* outer() const { return outer_; }
  /// Whether a line of that one is being told.
  bool isTold(KeyOperation const& older) const { return told_ == &older; }
  void overtakenBy(Stage newer) {
    // With an entry that leaves goes what had overtaken a commit.
    if (stage_ == Stage::commit && newer == Stage::removal) isOvertaken_ = isRevoked_;
    if (!overtakes(newer, stage_)) return;
    isOvertaken_ = true;
    isRevoked_ = isRevoked_ || newer >= Stage::recall ||
                 (stage_ == Stage::revocation && newer == Stage::commit);
  }

 private:
  /// The whole rule. An older wish gives way to a newer one and to its being taken back; what is on its
  /// way to the hardware, or comes from there, to a newer change of the same key; a removal, to whoever
  /// wants the entry.
  static constexpr bool overtakes(Stage newer, Stage older) {
    using enum Stage;
    switch (older) {
      case commit:
        return newer == commit || newer == reference || newer == recall || newer == revocation;
      case reference:
      case use:
        return newer == commit || newer == reference || newer >= revocation;
      case recall:
      case revocation:
        return newer == commit || newer == reference;
      case programming:
      case finding:
        return newer == programming;
      case removal:
        return newer == commit || newer == reference || newer == use || newer == removal;
    }
    return false;
  }

  SwTable& table_;
  KeyOperation* outer_;
  KeyOperation const* told_;  ///< whose line was being told when this one began
  Stage stage_;
  bool isOvertaken_ = false;
  bool isRevoked_ = false;
};

/// The base of every table's chip hooks.
class SwTable::Util : public Feature {
 public:
  explicit Util(Vell::String name) : Feature(std::move(name)) {}

  Vell::Publisher* publisher() override { return &publisher_; }

  /// Brings the hardware's answer to the write at `index` to the table.
  virtual void doNotifyWriteResponse(SwTable& table, Asic::Index index, EntryState outcome) const;
  /// Brings a row that was read, or the end of a read, to the table. Hooks of tables that are not
  /// read back have nobody to tell; those of a read table call its `invokeReadResponseHandler`.
  virtual void doNotifyReadResponse(SwTable&, ReadResponse const&) const {}
  virtual void doNotifyReadResponseAll(SwTable&, TransactionId) const {}
  /// Rows of the hardware table; 0 when the chip does not say.
  virtual U32 numEntries() const { return 0; }
  /// Copies the hardware table's rows to another one. False when the chip cannot.
  virtual bool doCopyHwTable(HwTable const&, HwTable&) const { return false; }

  /// The chip fixes an entry's index at the write, so that the table itself may tell it.
  bool indexKnownAtWrite() const { return indexKnownAtWrite_; }

  /// Asks the state database for what a hardware table of `type` needs before it is created.
  static void doMountHwTableMountInfo(Vell::ZarnType type, Mirel::MountGroup& mg,
                                      Vell::String const& name);
  static void doMountHwTableRecoveryStatus(Vell::ZarnType type, Mirel::MountGroup& mg,
                                           Vell::String const& name);
  /// Enters the hardware table of `type` in the group of those to recover.
  static void doRecoverHwTable(Vell::ZarnType type, HwTableRecoverGroup& rg, UnitId unitId,
                               Mirel::EntityManager& mirelEm, ChipInfo const& chipInfo,
                               Vell::String const& name);

 protected:
  void indexKnownAtWriteIs(bool known) { indexKnownAtWrite_ = known; }

 private:
  Vell::Publisher publisher_;
  bool indexKnownAtWrite_ = false;
};

/// The base of tables whose keys the client knows.
class SwKnownIndexTable : public SwTable {
 protected:
  explicit SwKnownIndexTable(Vell::String name) : SwTable(std::move(name)) {}
};

}  // namespace Asic
