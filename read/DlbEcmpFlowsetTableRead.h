// The read side of the flowset hardware table: a client asks for one index or for the whole table
// and hands over a handler, which is called when the hardware has answered.
//
// A protocol end, not a shadow: no contents of the hardware are held. `readRequest` remembers the
// handlers by transaction, `entry` the bare existence of indices.
//
// How a read goes
//  1. `readReqIs` or `readAllReqIs` has the hooks start a hardware read, which gives it its id, and
//     stores the request under that id. Hooks must not answer from inside that call: the request is
//     not stored yet, and the answer would be dropped.
//  2. Answers come through `readResponseSm` (platform/asic/ReadResponseSm.h tells the way), which
//     is there from `doInitComplete` on, and only with a hardware table.
//  3. `invokeReadResponseHandler` calls the handler and retires the request when its read has
//     ended:
//
//     request               answer        handler is called with      request afterwards
//     no such id            any           -                           -
//     empty handler         any           -                           stays
//     eachEntry, one index  any           (key, entry)                removed, after the call
//     eachEntry, all        end of read   -                           removed
//     eachEntry, all        a row         (key, entry)                stays
//     endOnly               end of read   an empty `std::any`         removed, after the call
//     endOnly               a row         -                           stays
//     any other notify      any           -                           stays
//
// A request whose end never comes stays until it is removed: there is no time-out. Handlers of
// requests that are left when the table goes are destroyed without being called.
//
// A handler may remove its own request, start reads, and drop the table. It may throw: the
// exception passes out of `invokeReadResponseHandler`, and the request stays.
//
// Threading: the thread of the owning agent.

#pragma once

#include <any>
#include <functional>
#include <tuple>

#include "containers/HashMap2018.h"
#include "containers/RbTreeMap.h"
#include "frame/FieldEntry.h"
#include "frame/Sheet.h"
#include "frame/UtilLoader.h"
#include "frame/Variants.h"
#include "platform/asic/ReadResponseSm.h"
#include "platform/asic/ResponseSmHolder.h"
#include "platform/asic/SwTable.h"
#include "platform/bruvel/Slab.h"
#include "platform/zarn/Optional.h"

namespace TessarLoadBalance {

class DlbEcmpFlowsetTableRead final : public Asic::SwKnownIndexTable,
                                      public Bruvel::Allocated<DlbEcmpFlowsetTableRead> {
 public:
  using Key = Asic::SwTableBase::Index;
  using ResponseNotify = Asic::SwTable::ResponseNotify;
  /// A handler gets the `std::any` of a `Response`, or an empty one for the end of a read. What the
  /// two references refer to is good during the call only.
  using Handler = std::function<void(std::any const&)>;

  /// A row that exists. What a chip tells of it beyond that is in a class derived from this one, as
  /// `FlowsetRow` (read/FlowsetRow.h) is.
  class Entry : public Asic::FieldEntry<Entry> {
   public:
    static constexpr auto fields() {
      return Zarn::fieldList("TessarLoadBalance::DlbEcmpFlowsetTableRead::Entry");
    }
  };
  using Response = std::tuple<Key const&, Entry const&>;

  class ReadReq;
  class ZarnReadRequest;
  class Util;
  using UtilLoader = Asic::TableUtilLoader<DlbEcmpFlowsetTableRead>;
  using EntryMap = Zarn::HashMap2018<Zarn::HN<Key, Entry, 0xeeb9b7bb>>;
  using ReadRequestMap = Zarn::RbTreeMap<ZarnReadRequest, Asic::TransactionId, ReadReq>;

  static constexpr Asic::TableNames names{"TessarLoadBalance::DlbEcmpFlowsetTableRead",
                                          "DlbEcmpFlowsetTableRead"};
  /// What the table does with its hardware.
  static constexpr bool readAccess = true;
  static constexpr bool writeAccess = false;
  /// Numbers of the table's types in its module.
  static constexpr U32 entryTypeNumber = 0;
  static constexpr U32 utilTypeNumber = 1;
  static constexpr U32 utilLoaderTypeNumber = 2;
  static constexpr U32 typeNumber = 3;
  static constexpr U32 readReqTypeNumber = 4;
  static constexpr U32 readRequestTypeNumber = 5;
  /// Field ids of the publications, and what their former value is.
  static constexpr U32 entryField = 0x203;           ///< `Entry`, or null
  static constexpr U32 readRequestField = 0x208;     ///< `ReadReq`
  static constexpr U32 readResponseSmField = 0x20f;  ///< `Vell::Ptr<Asic::ReadResponseSm>`

  static Zarn::AllocTrackTypeInfo memAllocationTracker_;
  static Vell::ModuleInspectData& module();

  DlbEcmpFlowsetTableRead();
  ~DlbEcmpFlowsetTableRead() override;
  Vell::ZarnType typeData() const override { return {&module(), typeNumber}; }

  // What clients do.

  /// Reads one index.
  void readReqIs(Key index, Handler const& handler);
  /// Reads the whole table.
  void readAllReqIs(ResponseNotify notify, Handler const& handler);
  /// Forgets a request; its answers are dropped from here on.
  void removeReadRequest(Asic::TransactionId const& transactionId);
  void readReqDelAll();

  /// Valid indices of the hardware table; 0 and 0xFFFFFFFF without chip hooks.
  U32 minIndex() const;
  U32 maxIndex() const;
  Util* util() const;

  // What the response side does: chip hooks, mostly.

  /// Brings an answer to its request, as told above. `idx` is the hardware index of the row, or
  /// `Asic::ReadResponse::endOfRead`; `swKey` is what the handler is told as key.
  void invokeReadResponseHandler(Asic::TransactionId const& transactionId, Asic::Index idx,
                                 Entry const& entry, Key swKey);
  /// The same for hardware that cannot tell which read it answers: serves the request with the
  /// smallest id, of which there must be one, and gives that id. The request stays: the caller
  /// retires it. An empty handler is a `std::bad_function_call`.
  Asic::TransactionId invokeReadResponseHandlerUnsafe(Key idx, Entry const& entry) const;

  // The collections.

  /// Stores a request; one of the same id is replaced.
  void readRequestIs(Asic::TransactionId const& transactionId, ReadReq const& request);
  /// A copy of a request; a default one if there is none of that id.
  ReadReq readRequest(Asic::TransactionId const& transactionId) const;
  /// A copy of a request; empty if there is none of that id.
  Zarn::Optional<ReadReq> readRequestGet(Asic::TransactionId const& transactionId) const;
  /// Removes a request and gives what it was; a default one if there was none.
  ReadReq readRequestDel(Asic::TransactionId const& transactionId);
  ReadReq readRequestDel(ReadRequestMap::Iterator const& at);
  /// Removes every request; tells each removal if anybody watches.
  void readRequestDelAll();
  ReadRequestMap const& readRequestMap() const { return readRequest_; }

  bool entryHas(Key key) const { return entry_.lookupNodeG(key) != nullptr; }
  /// Notes that the index exists. The entry adds nothing, having no fields.
  void entryIs(Key key, Entry const& entry);
  Entry entryDel(Key key);
  /// Forgets every index; tells each removal if anybody watches.
  void entryDelAll();
  U32 entrys() const { return entry_.count(); }
  EntryMap const& entryMap() const { return entry_; }

  /// The response machine for that table: the one that is there, or a new active one in the place
  /// of another table's.
  Vell::Ptr<Asic::ReadResponseSm> readResponseSmIs(Asic::SwTable* swTable) {
    return readResponseSm_.machineIs(swTable);
  }
  /// Takes the response machine away and gives it; null if there was none.
  Vell::Ptr<Asic::ReadResponseSm> readResponseSmDel() { return readResponseSm_.machineDel(); }
  Asic::ReadResponseSm* readResponseSm() const { return readResponseSm_.get(); }

  // What the framework calls.

  void syncEntries() override;
  void doInitComplete() override;

  static void doMountHwTableMountInfo(Mirel::MountGroup& mg);

 private:
  using AccessorT = Asic::SwTable::Accessor<DlbEcmpFlowsetTableRead>;

  /// Starts a read and stores its request.
  void storeRead(Zarn::Optional<Key> key, ResponseNotify notify, Handler const& handler);
  /// Has the hooks start a hardware read; without hooks only an id is made.
  Asic::TransactionId startRead(Zarn::Optional<Key> const& key) const noexcept;
  ReadReq unlinked(Vell::Ptr<ZarnReadRequest> request);

  // Requests go before indices when the table goes.
  EntryMap entry_{1, false};
  ReadRequestMap readRequest_;
  Asic::ResponseSmHolder<Asic::ReadResponseSm, &Asic::ReadResponseSm::ReadResponseSmIs>
      readResponseSm_{*this, readResponseSmField};
};

/// What a client asked for.
///
/// Two requests are equal only if they are the same object, since handlers cannot be compared; it
/// follows that every request differs from a default one.
class DlbEcmpFlowsetTableRead::ReadReq {
 public:
  ReadReq() = default;
  ReadReq(Zarn::Optional<Key> theKey, ResponseNotify theNotify, Handler handler)
      : key(theKey), notify(theNotify), responseHandler(std::move(handler)) {}

  Zarn::Optional<Key> key;  ///< the index; absent for a read of the whole table
  ResponseNotify notify = ResponseNotify::eachEntry;
  Handler responseHandler;  ///< may be empty; not part of the text form

  explicit operator bool() const { return !(*this == ReadReq()); }
  friend bool operator==(ReadReq const& a, ReadReq const& b) { return &a == &b; }
  friend std::ostream& operator<<(std::ostream& out, ReadReq const& request) {
    return Zarn::FieldOps<ReadReq>::write(out, request);
  }

  static constexpr auto fields() {
    return Zarn::fieldList("TessarLoadBalance::DlbEcmpFlowsetTableRead::ReadReq",
                           Zarn::field(2, "key", &ReadReq::key),
                           Zarn::field(3, "notify", &ReadReq::notify));
  }
};

/// A member of the collection of requests.
class DlbEcmpFlowsetTableRead::ZarnReadRequest final
    : public Zarn::RbTreeMember<ZarnReadRequest, Asic::TransactionId, ReadReq> {
 public:
  static Zarn::AllocTrackTypeInfo memAllocationTracker_;

  ZarnReadRequest(Asic::TransactionId transactionId, ReadReq const& request)
      : RbTreeMember(transactionId, request) {}
  Vell::ZarnType typeData() const override { return {&module(), readRequestTypeNumber}; }
};

/// The seam to a chip. Hooks bring answers to the table by overriding `doNotifyReadResponse` and
/// `doNotifyReadResponseAll`.
class DlbEcmpFlowsetTableRead::Util : public Asic::SwTable::Util {
 public:
  using Key = DlbEcmpFlowsetTableRead::Key;

  explicit Util(Vell::String name = Vell::String(names.qualified))
      : SwTable::Util(std::move(name)) {}

  Vell::ZarnType typeData() const override { return {&module(), utilTypeNumber}; }

  /// Lowest and highest valid index of the hardware table.
  virtual U32 minIndex() const = 0;
  virtual U32 maxIndex() const = 0;
  /// Starts a hardware read of one index, or of the whole table if `key` is empty, and gives it an
  /// id that no other read of the table has or had. `hwTable` is null while there is no hardware
  /// table. Must not answer from inside the call, and must not throw: that ends the process.
  virtual Asic::TransactionId hwTableReadReqIs(Asic::HwTable* hwTable,
                                               Zarn::Optional<Key> const& key) const = 0;
  /// Called once, when the hardware table is there and before the first read.
  virtual void syncEntries(Asic::HwTable& hwTable,
                           Vell::Ptr<DlbEcmpFlowsetTableRead> const& swTable) const = 0;
};

/// A new table, empty and in its first phase.
Vell::Ptr<DlbEcmpFlowsetTableRead> dlbEcmpFlowsetTableReadFactory();

}  // namespace TessarLoadBalance
