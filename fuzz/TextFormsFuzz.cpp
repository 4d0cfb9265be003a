// Texts that are values: of keys, entries and fields, and what the command line takes. Each is either
// refused with words that name the place, or read; and what was read is written, and read again as the same.

#include <fmt/format.h>

#include "agent/Document.h"
#include "agent/Failure.h"
#include "agent/Tracing.h"
#include "agent/Words.h"
#include "chips/sim/Switches.h"
#include "config/DlbControlSwTable.h"
#include "config/DlbEcmpControlSwTable.h"
#include "config/DlbEcmpDlbId0To63EnableSwTable.h"
#include "config/DlbEcmpDlbId64To127EnableSwTable.h"
#include "config/DlbEcmpFlowsetSwTable.h"
#include "config/DlbEcmpGroupSwTable.h"
#include "config/DlbEcmpPortControlSwTable.h"
#include "config/DlbEcmpQualityMapSwTable.h"
#include "config/DlbEcmpQuantizationThresholdSwTable.h"
#include "forwarding/AdjacencySwTable.h"
#include "forwarding/NextHopSwTable.h"
#include "fuzz/Expect.h"
#include "group/EcmpGroup1DlbSwTable.h"
#include "group/EcmpGroup1SelectiveDlbSwTable.h"
#include "group/VxlanEcmpGroup1DlbSwTable.h"
#include "group/VxlanEcmpGroup1SelectiveDlbSwTable.h"
#include "member/DlbEcmpMember1SwTable.h"
#include "platform/zarn/Trace.h"
#include "platform/zarn/ValueText.h"
#include "read/DlbEcmpFlowsetTableRead.h"

namespace {

using Fuzz::expect;

/// A value of a form of its own, alone.
template <class V>
struct Alone {
  V value{};

  static constexpr auto fields() {
    return Zarn::fieldList("Alone", Zarn::field(1, "value", &Alone::value));
  }
  friend std::ostream& operator<<(std::ostream& out, Alone const& alone) {
    return Zarn::FieldOps<Alone>::write(out, alone);
  }
};

template <class V>
void roundTrip(std::string_view text) {
  std::string written;
  try {
    written = Zarn::valueToStrep(Zarn::strepToValue<V>(text));
  } catch (Vell::RangeException const& error) {
    expect(error.position() <= text.size(), "the place of an error is in the text", error.what());
    expect(!error.attribute().empty() && !error.problem().empty(), "an error says what and where",
           error.what());
    return;
  }
  try {
    auto const again = Zarn::valueToStrep(Zarn::strepToValue<V>(written));
    expect(again == written, "a value is read as it was written", written + '\n' + again);
  } catch (Vell::RangeException const& error) {
    expect(false, "what was written can be read", written + '\n' + error.what());
  }
}

template <class... Each>
void roundTrips(std::string_view text) {
  (roundTrip<Each>(text), ...);
}

void readForms(std::string_view text) {
  using namespace TessarLoadBalance;
  using namespace Forwarding;
  using Handle = Vell::Ptr<Asic::SwTableBase::EntryHandle const>;
  roundTrips<DlbEcmpQualityMapKey, TessarL3Common::L3AdjIdKey,
             TessarL3Common::VxlanL3UnderlayAdjIdKey, Asic::SwTableBase::Index>(text);
  roundTrips<DlbControlTable::Entry, DlbEcmpControlTable::Entry,
             DlbEcmpDlbId0To63EnableTable::Entry, DlbEcmpDlbId64To127EnableTable::Entry,
             DlbEcmpFlowsetTable::Entry, DlbEcmpPortControlTable::Entry,
             DlbEcmpQualityMapTable::Entry, DlbEcmpQuantizationThresholdTable::Entry,
             DlbEcmpFlowsetTableRead::ReadReq, DlbEcmpMember1Table::Entry>(text);
  roundTrips<EcmpGroup1DlbTable::Entry, VxlanEcmpGroup1DlbTable::Entry,
             EcmpGroup1SelectiveDlbTable::Entry, VxlanEcmpGroup1SelectiveDlbTable::Entry,
             NextHopTable::Entry, AdjacencyTable::Entry>(text);
  roundTrips<Alone<bool>, Alone<U8>, Alone<U64>, Alone<Zarn::U12>, Alone<MacAddress>, Alone<VlanId>,
             Alone<TessarL3Common::L3AdjIdKeyType>, Alone<Handle>, Alone<Zarn::Optional<U16>>>(
      text);
}

void readNumbers(std::string_view text) {
  using Outcome = DlbAgent::NumberText::Outcome;
  auto const [outcome, number] = DlbAgent::readNumber(text);
  if (outcome != Outcome::number) return;
  for (auto const& written : {std::to_string(number), fmt::format("{:#x}", number)}) {
    auto const again = DlbAgent::readNumber(written);
    expect(again.outcome == Outcome::number && again.value == number,
           "a number is read as it was written", written);
  }
}

void readMac(std::string_view text) {
  auto const read = Forwarding::MacAddress::fromText(text);
  if (read) expect(Forwarding::MacAddress::fromText(read->text()) == read, "an address stays");
}

/// "NAME=VALUE", as the command line cuts it.
void readSwitch(std::string_view text) {
  auto const equals = text.find('=');
  if (equals == text.npos) return;
  std::string const name(text.substr(0, equals));
  try {
    Sim::switchesOf({{name, std::string(text.substr(equals + 1))}});
  } catch (std::runtime_error const& error) {
    expect(std::string_view(error.what()).find(name) != std::string_view::npos,
           "a refused switch is named", error.what());
  }
}

void readTrace(std::string_view text) {
  static DlbAgent::Catalogue const catalogue;
  try {
    DlbAgent::traceIs({std::string(text)}, catalogue);
  } catch (DlbAgent::Failure const& failure) {
    expect(failure.lines().size() == 1, "one option, one error", failure.what());
  }
}

void useAsName(std::string_view text) {
  expect(!DlbAgent::hintFor(text, {"groups", "vxlanGroups"}).empty(), "a hint says something");
  expect(DlbAgent::clipped(text).size() <= 63, "a clipped text is short");
  expect(!DlbAgent::pathTo("", text).empty(), "a path has a step for each key");
}

/// A handle to be found by its address, which no input can know: "LIVE" stands for it.
std::string withAddress(std::string_view text) {
  static auto const& table = *new Vell::Ptr(new Forwarding::NextHopTable);
  static auto const& handle = *new auto(table->entryRef({.id = 1}));
  constexpr std::string_view mark = "LIVE";
  std::string with(text);
  if (auto const at = with.find(mark); at != with.npos)
    with.replace(at, mark.size(), std::to_string(Zarn::addressOf(handle)));
  return with;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Zarn::TraceHandle::sinkIs([](std::string_view) {});
  auto const text = Fuzz::textOf(data, size);
  readForms(withAddress(text));
  readNumbers(text);
  readMac(text);
  if (text.find('\0') == text.npos) {  // no argument of a command line holds one
    readSwitch(text);
    readTrace(text);
  }
  useAsName(text);
  return 0;
}
