#include "read/DlbEcmpFlowsetTableRead.h"

#include "containers/HashMap2018Iterator.h"
#include "frame/Announcement.h"

namespace TessarLoadBalance {

static Asic::TableAnnouncement<DlbEcmpFlowsetTableRead> const announcement;

constinit Zarn::AllocTrackTypeInfo DlbEcmpFlowsetTableRead::memAllocationTracker_{names.qualified};
constinit Zarn::AllocTrackTypeInfo DlbEcmpFlowsetTableRead::ZarnReadRequest::memAllocationTracker_{
    "TessarLoadBalance::DlbEcmpFlowsetTableRead::ZarnReadRequest"};

Vell::Ptr<DlbEcmpFlowsetTableRead> dlbEcmpFlowsetTableReadFactory() {
  return new DlbEcmpFlowsetTableRead;
}

DlbEcmpFlowsetTableRead::DlbEcmpFlowsetTableRead() : SwKnownIndexTable(Vell::String()) {}

// The machine first, so that no answer comes while the requests go.
DlbEcmpFlowsetTableRead::~DlbEcmpFlowsetTableRead() {
  goingIs();
  readResponseSmDel();
}

DlbEcmpFlowsetTableRead::Util* DlbEcmpFlowsetTableRead::util() const {
  return static_cast<Util*>(SwTable::util());
}
U32 DlbEcmpFlowsetTableRead::minIndex() const { return util() ? util()->minIndex() : 0; }
U32 DlbEcmpFlowsetTableRead::maxIndex() const { return util() ? util()->maxIndex() : 0xFFFFFFFF; }

// ---- starting a read ----

void DlbEcmpFlowsetTableRead::readReqIs(Key index, Handler const& handler) {
  storeRead(index, ResponseNotify::eachEntry, handler);
}

void DlbEcmpFlowsetTableRead::readAllReqIs(ResponseNotify notify, Handler const& handler) {
  storeRead({}, notify, handler);
}

void DlbEcmpFlowsetTableRead::storeRead(Zarn::Optional<Key> key, ResponseNotify notify,
                                        Handler const& handler) {
  Vell::Ptr<SwTable> const held(this);
  auto const id = startRead(key);
  readRequestIs(id, {key, notify, handler});
}

Asic::TransactionId DlbEcmpFlowsetTableRead::startRead(
    Zarn::Optional<Key> const& key) const noexcept {
  static U64 lastId = 0;  // of the process: no two tables without hooks share an id
  if (Vell::Ptr<Util> const held = util()) return held->hwTableReadReqIs(hwTable(), key);
  return ++lastId;
}

// ---- answers ----

void DlbEcmpFlowsetTableRead::invokeReadResponseHandler(Asic::TransactionId const& transactionId,
                                                        Asic::Index idx, Entry const& entry,
                                                        Key swKey) {
  Vell::Ptr<SwTable> const held(this);
  auto const id = transactionId;
  auto const* const stored = readRequest_.lookup(id);
  if (!stored) return;
  // The handler may remove its own request: it runs on a copy.
  auto const handler = stored->value_.responseHandler;
  if (!handler) return;
  bool const end = idx == Asic::ReadResponse::endOfRead;
  bool const ofOneIndex = stored->value_.key.has_value();
  switch (stored->value_.notify) {
    case ResponseNotify::eachEntry:
      if (ofOneIndex || !end) handler(Response(swKey, entry));
      if (ofOneIndex || end) removeReadRequest(id);
      break;
    case ResponseNotify::endOnly:
      if (!end) break;
      handler({});
      removeReadRequest(id);
  }
}

Asic::TransactionId DlbEcmpFlowsetTableRead::invokeReadResponseHandlerUnsafe(
    Key idx, Entry const& entry) const {
  Vell::Ptr<ZarnReadRequest> const oldest(readRequest_.first());
  VELL_ASSERT(oldest, "readRequest_.first()", names.qualified,
              ": an answer came, and no request is there");
  auto const id = oldest->key();
  auto const handler = oldest->value_.responseHandler;
  switch (oldest->value_.notify) {
    case ResponseNotify::eachEntry:
      handler(Response(idx, entry));
      break;
    case ResponseNotify::endOnly:
      handler({});
  }
  return id;
}

// ---- requests ----

void DlbEcmpFlowsetTableRead::readRequestIs(Asic::TransactionId const& transactionId,
                                            ReadReq const& request) {
  Vell::Ptr<SwTable> const held(this);
  auto const id = transactionId;
  ReadReq previous;
  if (Vell::Ptr<ZarnReadRequest> const present = readRequest_.lookup(id)) {
    if (present->value_ == request) return;
    previous = std::exchange(present->value_, ReadReq(request));
  } else {
    readRequest_.memberIs(new ZarnReadRequest(id, request));
  }
  publisher()->publishChangeRecursive(readRequestField, &id, &previous, &Asic::TransactionId::isEq);
}

auto DlbEcmpFlowsetTableRead::readRequest(Asic::TransactionId const& transactionId) const
    -> ReadReq {
  return readRequestGet(transactionId).value_or(ReadReq());
}

auto DlbEcmpFlowsetTableRead::readRequestGet(Asic::TransactionId const& transactionId) const
    -> Zarn::Optional<ReadReq> {
  auto const* const request = readRequest_.lookup(transactionId);
  return request ? Zarn::Optional<ReadReq>(request->value_) : Zarn::Optional<ReadReq>();
}

auto DlbEcmpFlowsetTableRead::readRequestDel(Asic::TransactionId const& transactionId) -> ReadReq {
  return unlinked(readRequest_.memberDel(transactionId));
}

auto DlbEcmpFlowsetTableRead::readRequestDel(ReadRequestMap::Iterator const& at) -> ReadReq {
  return readRequestDel(at.key());
}

/// Tells that a member has left the collection, and gives what it held.
auto DlbEcmpFlowsetTableRead::unlinked(Vell::Ptr<ZarnReadRequest> request) -> ReadReq {
  if (!request) return {};
  Vell::Ptr<SwTable> const held(this);
  ReadReq const previous = request->value_;
  auto const id = request->key();
  publisher()->publishChangeRecursive(readRequestField, &id, &previous, &Asic::TransactionId::isEq);
  return previous;
}

void DlbEcmpFlowsetTableRead::readRequestDelAll() {
  Vell::Ptr<SwTable> const held(this);
  if (!publisher()->hasWatchers()) {
    readRequest_._memberDelAll();
    return;
  }
  for (ReadRequestMap::Iterator at(readRequest_); at; at.advance()) readRequestDel(at);
}

void DlbEcmpFlowsetTableRead::removeReadRequest(Asic::TransactionId const& transactionId) {
  readRequestDel(transactionId);
}

void DlbEcmpFlowsetTableRead::readReqDelAll() { readRequestDelAll(); }

// ---- indices that exist ----

void DlbEcmpFlowsetTableRead::entryIs(Key key, Entry const& entry) {
  if (entryHas(key)) return;
  Vell::Ptr<SwTable> const held(this);
  entry_.newMemberG(key, {entry, key});
  publisher()->publishChangeRecursive(entryField, &key, nullptr, &Key::isEq);
}

auto DlbEcmpFlowsetTableRead::entryDel(Key key) -> Entry {
  Vell::Ptr<SwTable> const held(this);
  EntryMap::Node removed;
  if (entry_.deleteMemberG(key, &removed))
    publisher()->publishChangeRecursive(entryField, &key, &removed.value_, &Key::isEq);
  return removed.value_;
}

void DlbEcmpFlowsetTableRead::entryDelAll() {
  Vell::Ptr<SwTable> const held(this);
  if (!publisher()->hasWatchers()) {
    entry_._memberDelAll();
    return;
  }
  for (Zarn::HashMap2018IteratorGeneric at(entry_); at; at.advance())
    entryDel(at.currNodeMaybeStale()->key());
}

// ---- what the framework calls ----

void DlbEcmpFlowsetTableRead::syncEntries() {
  Vell::Ptr<SwTable> const held(this);
  AccessorT(*this).syncEntries();
}

void DlbEcmpFlowsetTableRead::doInitComplete() {
  Vell::Ptr<SwTable> const held(this);
  AccessorT(*this).doInitComplete();
}

void DlbEcmpFlowsetTableRead::doMountHwTableMountInfo(Mirel::MountGroup& mg) {
  SwTable::Util::doMountHwTableMountInfo({&module(), utilTypeNumber}, mg, {});
}

}  // namespace TessarLoadBalance
