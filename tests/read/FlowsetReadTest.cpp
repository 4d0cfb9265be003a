// Reading the flowset table: requests, answers, handlers that do what they like, and the way of an
// answer from the hardware to its handler.

#include <gmock/gmock.h>

#include "platform/vell/Inspect.h"
#include "platform/zarn/Trace.h"
#include "platform/zarn/ValueText.h"
#include "read/FlowsetRow.h"

namespace Testing {
namespace {

using Table = TessarLoadBalance::DlbEcmpFlowsetTableRead;
using Asic::ReadResponse;
using Asic::TransactionId;
using TessarLoadBalance::FlowsetRow;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using enum Table::ResponseNotify;

constexpr Asic::Index end = ReadResponse::endOfRead;

/// Chip hooks that give out the ids they are told to, and bring answers on to the table.
class ReadUtil final : public Table::Util {
 public:
  U32 minIndex() const override { return 3; }
  U32 maxIndex() const override { return 44; }
  TransactionId hwTableReadReqIs(Asic::HwTable*, Zarn::Optional<Key> const& key) const override {
    started.push_back(key ? std::to_string(key->value()) : "all");
    if (onRead) onRead();
    return nextId++;
  }
  void syncEntries(Asic::HwTable&, Vell::Ptr<Table> const& table) const override {
    synced = table.get();
  }
  void doNotifyReadResponse(Asic::SwTable& table, ReadResponse const& response) const override {
    static_cast<Table&>(table).invokeReadResponseHandler(
        response.transactionId, response.idx, static_cast<Table::Entry const&>(*response.entry),
        response.idx.value());
  }
  void doNotifyReadResponseAll(Asic::SwTable& table, TransactionId id) const override {
    static_cast<Table&>(table).invokeReadResponseHandler(id, end, {}, 0);
  }

  std::function<void()> onRead;
  mutable U64 nextId = 100;
  mutable std::vector<std::string> started;
  mutable Table* synced = nullptr;
};

class FlowsetReadTest : public ::testing::Test {
 protected:
  FlowsetReadTest() {
    table_->utilIs(util_);
    table_->hwTableIs(hwTable_);
  }

  /// Writes down what it is called with: the key and the port of a row, or "end".
  Table::Handler handler() {
    return [this](std::any const& answer) {
      if (!answer.has_value()) return calls_.push_back("end");
      auto const& [key, entry] = std::any_cast<Table::Response const&>(answer);
      auto const* row = FlowsetRow::of(entry);
      calls_.push_back(row ? Vell::concatenate(key, ":", row->portAssignment)
                           : Vell::concatenate(key));
    };
  }
  void answer(U64 id, Asic::Index idx, U32 key) {
    table_->invokeReadResponseHandler(id, idx, FlowsetRow(true, 7, 1), key);
  }
  /// Lets the hardware answer, for a later delivery.
  void post(U64 id, Asic::Index idx) {
    hwTable_->readResponseIs({id, idx, std::make_shared<FlowsetRow>(true, idx.value() + 1, 0)});
  }
  std::vector<std::string> calls() { return std::exchange(calls_, {}); }
  std::vector<U64> requests() const {
    std::vector<U64> ids;
    for (Table::ReadRequestMap::Iterator at(table_->readRequestMap()); at; at.advance())
      ids.push_back(at.key().value());
    return ids;
  }
  std::vector<std::string> calls_;
  Vell::Ptr<ReadUtil> util_{new ReadUtil};
  Vell::Ptr<Asic::HwTable> hwTable_{new Asic::HwTable};
  Vell::Ptr<Table> table_ = TessarLoadBalance::dlbEcmpFlowsetTableReadFactory();
};

TEST_F(FlowsetReadTest, EveryRowOfTheTableOfAnswers) {
  struct Case {
    char const* name;
    bool ofOneIndex;
    U8 notify;
    bool emptyHandler;
    Asic::Index idx;
    std::vector<std::string> calls;
    bool stays;
  };
  for (auto const& each : {
           Case{"one index, row", true, 0, false, 5, {"5:7"}, false},
           Case{"one index, end", true, 0, false, end, {"5:7"}, false},
           Case{"one index, exhausted", true, 0, false, 0xFFFFFFFF, {"5:7"}, false},
           Case{"all, row", false, 0, false, 5, {"5:7"}, true},
           Case{"all, exhausted index", false, 0, false, 0xFFFFFFFF, {"5:7"}, true},
           Case{"all, end", false, 0, false, end, {}, false},
           Case{"end only, row", false, 1, false, 5, {}, true},
           Case{"end only, end", false, 1, false, end, {"end"}, false},
           Case{"end only of one index, end", true, 1, false, end, {"end"}, false},
           Case{"end only of one index, row", true, 1, false, 5, {}, true},
           Case{"another notify, row", true, 2, false, 5, {}, true},
           Case{"another notify, end", false, 2, false, end, {}, true},
           Case{"empty handler, end", false, 0, true, end, {}, true},
           Case{"empty handler, one index", true, 0, true, 5, {}, true},
       }) {
    table_->readRequestIs(
        9, {each.ofOneIndex ? Zarn::Optional<Table::Key>(5) : Zarn::Optional<Table::Key>(),
            static_cast<Table::ResponseNotify>(each.notify),
            each.emptyHandler ? Table::Handler() : handler()});
    answer(8, each.idx, 5);  // nobody's answer
    EXPECT_THAT(calls(), IsEmpty()) << each.name;
    answer(9, each.idx, 5);
    EXPECT_EQ(calls(), each.calls) << each.name;
    EXPECT_EQ(table_->readRequestGet(9).has_value(), each.stays) << each.name;
    answer(9, each.idx, 5);
    EXPECT_EQ(calls().empty(), each.calls.empty() || !each.stays) << each.name;
    table_->removeReadRequest(9);
  }
}

TEST_F(FlowsetReadTest, StartingAReadAsksTheHooksAndStoresTheRequest) {
  table_->readReqIs(17, handler());
  table_->readAllReqIs(endOnly, handler());
  EXPECT_THAT(util_->started, ElementsAre("17", "all"));
  EXPECT_THAT(requests(), ElementsAre(100, 101));
  EXPECT_EQ(table_->readRequest(100).key, Zarn::Optional<Table::Key>(17));
  EXPECT_EQ(table_->readRequest(100).notify, eachEntry);
  EXPECT_FALSE(table_->readRequest(101).key);
  EXPECT_EQ(table_->readRequest(101).notify, endOnly);
  EXPECT_FALSE(table_->readRequest(102).responseHandler);
}

TEST_F(FlowsetReadTest, WithoutHooksIdsComeFromOneCounterOfTheProcess) {
  table_->utilIs(nullptr);
  auto const other = TessarLoadBalance::dlbEcmpFlowsetTableReadFactory();
  table_->readReqIs(5, handler());
  auto const first = requests().front();
  other->readAllReqIs(eachEntry, handler());
  EXPECT_EQ(other->readRequestMap().first()->key(), TransactionId(first + 1));
  EXPECT_THAT(util_->started, IsEmpty());
  answer(first, 5, 5);
  EXPECT_THAT(calls(), ElementsAre("5:7"));
  EXPECT_EQ(table_->minIndex(), 0u);
  EXPECT_EQ(table_->maxIndex(), 0xFFFFFFFFu);
}

TEST_F(FlowsetReadTest, CollectionsTellTheirChanges) {
  std::vector<std::string> events;
  auto const watching = table_->publisher()->watch(Vell::Publisher::everyField, [&](auto& change) {
    if (change.fieldId == Table::readRequestField)
      events.push_back(Vell::concatenate(
          "request ", change.template keyAs<TransactionId>(), " was ",
          change.template previousAs<Table::ReadReq>()->key ? "of one" : "of all or none"));
    else
      events.push_back(Vell::concatenate("entry ", change.template keyAs<Table::Key>(),
                                         change.previous ? " went" : " came"));
  });
  auto const taken = [&] { return std::exchange(events, {}); };
  Table::ReadReq const request(5, eachEntry, handler());
  table_->readRequestIs(9, request);
  auto const* const member = table_->readRequestMap().first();
  table_->readRequestIs(9, request);
  EXPECT_EQ(table_->readRequestMap().first(), member) << "replaced in place";
  EXPECT_EQ(table_->readRequestDel(9).key, Zarn::Optional<Table::Key>(5));
  table_->readRequestDel(9);
  EXPECT_THAT(taken(), ElementsAre("request 9 was of all or none", "request 9 was of one",
                                   "request 9 was of one"));
  table_->entryIs(7, {});
  table_->entryIs(7, {});
  table_->entryDel(7);
  table_->entryDel(7);
  EXPECT_THAT(taken(), ElementsAre("entry 7 came", "entry 7 went"));
}

TEST_F(FlowsetReadTest, AHandlerMayRemoveItsRequestAndStartReads) {
  auto const live = Table::ZarnReadRequest::memAllocationTracker_.live();
  int called = 0;
  table_->readReqIs(5, [&](auto const&) {
    ++called;
    table_->removeReadRequest(100);
    table_->readReqIs(6, handler());
    for (int i = 0; i < 50; ++i) table_->readAllReqIs(endOnly, {});
    ++called;
  });
  answer(100, 5, 5);
  EXPECT_EQ(called, 2) << "runs to its end";
  EXPECT_EQ(requests().size(), 51u);
  answer(101, 6, 6);
  EXPECT_THAT(calls(), ElementsAre("6:7"));
  table_->readReqDelAll();
  EXPECT_EQ(Table::ZarnReadRequest::memAllocationTracker_.live(), live);
}

TEST_F(FlowsetReadTest, AnAnswerWithoutAnIdServesTheOldestRequest) {
  table_->readRequestIs(9, {{}, eachEntry, handler()});
  table_->readRequestIs(5, {5, endOnly, handler()});
  EXPECT_EQ(table_->invokeReadResponseHandlerUnsafe(1, FlowsetRow(true, 2, 3)), TransactionId(5));
  EXPECT_THAT(calls(), ElementsAre("end"));
  table_->readRequestIs(5, {5, eachEntry, [&](auto const& any) {
                              table_->removeReadRequest(5);
                              handler()(any);
                            }});
  EXPECT_EQ(table_->invokeReadResponseHandlerUnsafe(1, FlowsetRow(true, 2, 3)), TransactionId(5));
  EXPECT_EQ(table_->invokeReadResponseHandlerUnsafe(1, Table::Entry()), TransactionId(9));
  EXPECT_THAT(calls(), ElementsAre("1:2", "1"));
  EXPECT_THAT(requests(), ElementsAre(9)) << "served, and still there";
  table_->readRequestIs(9, {{}, endOnly, {}});
  EXPECT_THROW(table_->invokeReadResponseHandlerUnsafe(1, {}), std::bad_function_call);
  table_->readRequestIs(9, {{}, static_cast<Table::ResponseNotify>(2), {}});
  EXPECT_EQ(table_->invokeReadResponseHandlerUnsafe(1, {}), TransactionId(9));
}

// ---- the way of an answer ----

TEST_F(FlowsetReadTest, AnswersWaitForTheMachineAndComeInOrder) {
  table_->syncEntries();
  EXPECT_EQ(util_->synced, table_.get());
  table_->readAllReqIs(eachEntry, handler());
  table_->readReqIs(8, handler());
  for (Asic::Index idx : {Asic::Index(0), Asic::Index(1)}) post(100, idx);
  post(101, 8);
  EXPECT_EQ(hwTable_->deliverReadResponses(), 0u) << "no machine yet";
  EXPECT_EQ(table_->readResponseSm(), nullptr);
  table_->doInitComplete();
  EXPECT_TRUE(table_->configReplayComplete());
  EXPECT_EQ(hwTable_->readResponses(), 3u);
  post(100, end);
  EXPECT_EQ(hwTable_->deliverReadResponses(), 4u);
  EXPECT_THAT(calls(), ElementsAre("0:1", "1:2", "8:9"));
  EXPECT_THAT(requests(), IsEmpty());
}

TEST_F(FlowsetReadTest, AHandlerThatThrowsCostsNoOtherAnswer) {
  table_->doInitComplete();
  table_->readReqIs(1, [](auto const&) { throw 1; });
  table_->readReqIs(2, handler());
  post(100, 1);
  post(101, 2);
  EXPECT_THROW(hwTable_->deliverReadResponses(), int);
  EXPECT_EQ(hwTable_->deliverReadResponses(), 1u);
  EXPECT_THAT(calls(), ElementsAre("2:3"));
  EXPECT_THAT(requests(), ElementsAre(100)) << "its removal has not happened";
  table_->readRequestIs(100, {1, eachEntry, handler()});
  answer(100, 1, 1);
  EXPECT_THAT(calls(), ElementsAre("1:7"));
}

TEST_F(FlowsetReadTest, AHandlerMayDropTheTable) {
  auto const live = Table::memAllocationTracker_.live();
  table_->doInitComplete();
  table_->readAllReqIs(eachEntry, [this](auto const&) { table_ = nullptr; });
  table_->readReqIs(2, handler());
  for (U32 idx = 0; idx < 3; ++idx) post(100, idx);
  post(101, 2);
  EXPECT_EQ(hwTable_->deliverReadResponses(), 1u);
  EXPECT_EQ(Table::memAllocationTracker_.live(), live - 1);
  EXPECT_EQ(hwTable_->readResponseSm(), nullptr);
  EXPECT_THAT(calls(), IsEmpty()) << "requests that are left go without a call";
  table_ = TessarLoadBalance::dlbEcmpFlowsetTableReadFactory();
  table_->utilIs(util_);
  util_->onRead = [this] { table_ = nullptr; };
  table_->readReqIs(5, handler());
  EXPECT_EQ(table_, nullptr) << "hooks may, too";
}

TEST_F(FlowsetReadTest, AHandlerThatReadsOnKeepsNoDeliveryGoing) {
  table_->doInitComplete();
  U32 called = 0;
  Table::Handler const again = [&](auto const&) {
    ++called;
    auto const id = util_->nextId;
    table_->readReqIs(1, again);
    post(id, 1);
  };
  table_->readReqIs(1, again);
  post(100, 1);
  EXPECT_EQ(hwTable_->deliverReadResponses(), 1u);
  EXPECT_EQ(hwTable_->deliverReadResponses(), 1u);
  EXPECT_EQ(called, 2u);
}

TEST_F(FlowsetReadTest, TracesAndLimitsReadToTheLetter) {
  std::vector<std::string> lines;
  Zarn::TraceHandle::sinkIs([&](std::string_view line) { lines.emplace_back(line); });
  Zarn::TraceHandle::levelsIs("DlbEcmpFlowsetTableRead", 1u << 6 | 1u << 9);
  table_->syncEntries();
  table_->doInitComplete();
  Zarn::TraceHandle::levelsIs("DlbEcmpFlowsetTableRead", 0);
  Zarn::TraceHandle::sinkIs({});
  std::string const type = "TessarLoadBalance::DlbEcmpFlowsetTableRead : ";
  EXPECT_THAT(lines, ElementsAre(Vell::concatenate(type, "syncEntries: swTableInstPtr:",
                                                   static_cast<void const*>(table_.get())),
                                 type + "doInitComplete"));
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  table_->entryIs(1, {});
  EXPECT_DEATH(table_->syncEntries(), "\"!swTable_->entrys\\(\\)\"");
  table_->hwTableIs(nullptr);
  EXPECT_DEATH(table_->syncEntries(), "\"hwTable\\(\\)\"");
  EXPECT_DEATH(table_->invokeReadResponseHandlerUnsafe(1, {}), "no request is there");
}

TEST_F(FlowsetReadTest, ValuesHaveTheirTextsAndNoTwoRequestsAreEqual) {
  Table::ReadReq const request(7, endOnly, handler());
  auto const tag = std::string("TessarLoadBalance::DlbEcmpFlowsetTableRead::ReadReq");
  EXPECT_EQ(Zarn::valueToStrep(request), tag + "{key:7 notify:1}");
  EXPECT_EQ(Zarn::valueToStrep(Table::ReadReq()), tag + "{key:- notify:0}");
  auto const read = Zarn::strepToValue<Table::ReadReq>(tag + "{key:7 notify:1}");
  EXPECT_EQ(Zarn::valueToStrep(read), tag + "{key:7 notify:1}");
  EXPECT_FALSE(Zarn::strepToValue<Table::ReadReq>(tag + "{key:- notify:0}").key);
  for (auto const* text : {"{key:7 notify:2}", "{key:7 notify:1} "})
    EXPECT_THROW(Zarn::strepToValue<Table::ReadReq>(tag + text), Vell::RangeException) << text;
  auto const copy = request;
  EXPECT_TRUE(request == request);
  EXPECT_FALSE(request == copy);
  EXPECT_TRUE(Table::ReadReq());

  EXPECT_EQ(Table::Entry(), Table::Entry());
  EXPECT_FALSE(Table::Entry());
  EXPECT_EQ(Zarn::valueToStrep(Table::Entry()), "");
  EXPECT_THROW(Zarn::strepToValue<Table::Entry>(" "), Vell::RangeException);
}

TEST_F(FlowsetReadTest, ReflectionAnswersItsAttributes) {
  auto const node = Vell::inspectMake(table_->typeData().data());
  Vell::Inspect(*node).call("readReqDelAll");
  Vell::Inspect inspect(*table_);
  EXPECT_EQ(inspect.get(0x204), Vell::Value(U64{3}));
  EXPECT_EQ(inspect.get(0x205), Vell::Value(U64{44}));
  EXPECT_TRUE(inspect.get(0x20f).empty());
  table_->doInitComplete();
  EXPECT_EQ(inspect.get(0x20f), Vell::Value("Asic::ReadResponseSm"));
  for (U32 none : {0x201u, 0x209u, 0x20au, 0x212u, 0x20bu})
    EXPECT_THROW(inspect.get(none), Vell::InspectError) << none;

  table_->readReqIs(17, handler());
  table_->entryIs(4, {});
  EXPECT_EQ(inspect.figures(0x203).count, 1u);
  EXPECT_EQ(inspect.figures(0x208).count, 1u);
  inspect.walk("readRequest", [](auto const& key, auto const& value) {
    EXPECT_EQ(key, Vell::Value(U64{100}));
    Vell::Inspect request(*value.record());
    EXPECT_EQ(request.get(2), Vell::Value(U64{17}));
    EXPECT_EQ(request.get("notify"), Vell::Value(U64{0}));
    EXPECT_THROW(Vell::inspectHash(*value.record()), Vell::InspectError);
  });
}

}  // namespace
}  // namespace Testing
