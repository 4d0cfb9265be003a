// The reflection data of the flowset read table: its attribute record, and the types of its module.

#include "frame/TableReflection.h"
#include "read/DlbEcmpFlowsetTableRead.h"

namespace TessarLoadBalance {
namespace {

using Asic::Arguments;
using Asic::indexOf;
using Table = DlbEcmpFlowsetTableRead;
using Util = Table::Util;
using ReadReq = Table::ReadReq;
using Key = Asic::KeyValue<Table::Key>;
using Entry = Asic::EntryReflection<Table::Entry>;

constexpr auto tableAttributes = [] {
  using namespace Asic::AttributeWords;
  return std::to_array<Vell::AttributeData>({
      {0x202, "isExternalKeyType", constant, isPublic, isConst, boolean, 1},
      {0x203, "entry", collection, isPublic, notConst, record},
      {0x204, "minIndex", value, isPublic, isConst, number, 32},
      {0x205, "maxIndex", value, isPublic, isConst, number, 32},
      {0x206, "readAccess", constant, isPublic, isConst, boolean, 1},
      {0x207, "writeAccess", constant, isPublic, isConst, boolean, 1},
      {0x208, "readRequest", collection, isPublic, notConst, record},
      {0x20b, "invokeReadResponseHandler", operation, isPublic, notConst},
      {0x20c, "removeReadRequest", operation, isPublic, notConst},
      {0x20d, "readReqDelAll", operation, isPublic, notConst},
      {0x20e, "invokeReadResponseHandlerUnsafe", operation, isPublic, isConst, number, 64},
      {0x20f, "readResponseSm", value, isPublic, isConst, text},
      {0x210, "util", operation, isPublic, isConst, text},
      {0x211, "doMountHwTableMountInfo", staticOperation, isPublic, notConst},
  });
}();

constexpr auto utilAttributes = [] {
  using namespace Asic::AttributeWords;
  return std::to_array<Vell::AttributeData>({
      {0x202, "minIndex", operation, isPublic, isConst, number, 32},
      {0x203, "maxIndex", operation, isPublic, isConst, number, 32},
      {0x204, "hwTableReadReqIs", operation, notPublic, isConst, number, 64},
      {0x205, "syncEntries", operation, notPublic, isConst},
  });
}();

Asic::TransactionId transactionOf(Vell::Value const& value) {
  if (auto const* number = value.number()) return *number;
  throw Vell::ArgumentError("a transaction id is asked for, as a number");
}

Vell::Value getOfTable(void const* object, Vell::AttributeData const& attribute) {
  auto const& table = Asic::nodeOf<Table>(object);
  auto const name = attribute.name;
  if (name == "minIndex") return U64{table.minIndex()};
  if (name == "maxIndex") return U64{table.maxIndex()};
  if (name != "readResponseSm") return Asic::valueOfTable<Table>(object, attribute);
  // The machine itself stays behind the interface; its class tells that there is one.
  auto* const machine = table.readResponseSm();
  return machine ? Vell::Value(std::string(machine->typeData().data().name)) : Vell::Value();
}

constexpr Asic::Operation<Table> tableOperations[] = {
    {"invokeReadResponseHandler", 4,
     [](Table& table, Arguments with) {
       table.invokeReadResponseHandler(transactionOf(with[0]), indexOf(with[1]),
                                       Entry::fromValue(with[2]), Key::fromValue(with[3]));
     }},
    {"removeReadRequest", 1,
     [](Table& table, Arguments with) { table.removeReadRequest(transactionOf(with[0])); }},
    {"readReqDelAll", 0, [](Table& table, Arguments) { table.readReqDelAll(); }},
    {"invokeReadResponseHandlerUnsafe", 2,
     [](Table& table, Arguments with) {
       if (table.readRequestMap().empty()) throw Vell::ArgumentError("no request is stored");
       return table
           .invokeReadResponseHandlerUnsafe(Key::fromValue(with[0]), Entry::fromValue(with[1]))
           .value();
     }},
    Asic::utilOperation<Table>,
};
constexpr Asic::Operation<Util> utilOperations[] = {
    {"minIndex", 0, [](Util& util, Arguments) { return util.minIndex(); }},
    {"maxIndex", 0, [](Util& util, Arguments) { return util.maxIndex(); }},
};

/// A request is looked at, not edited, and has no hash.
struct ReadReqReflection : Asic::RecordReflection<ReadReq, ReadReqReflection> {
  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    return Zarn::FieldOps<ReadReq>::get(*static_cast<ReadReq const*>(object), attribute.id);
  }
  static constexpr auto attributes = Zarn::FieldOps<ReadReq>::attributes();
  static constexpr Vell::TypeData type{
      ReadReq::fields().tag, attributes, {.makeValue = &makeValue, .get = &get}};
};

struct Shown {
  template <class Use>
  static void show(Table& table, std::string_view name, Use const& use) {
    if (name == "entry")
      use(table.entryMap(), &Key::toValue, Asic::elementValue);
    else
      use(table.readRequestMap(), Asic::indexValue, &ReadReqReflection::toValue);
  }
};
using Collections = Asic::CollectionReflection<Table, Shown>;

constexpr Vell::TypeData tableType{
    Table::names.qualified,
    tableAttributes,
    {.makeNode = Asic::makeTable<Table>,
     .get = &getOfTable,
     .call = &Asic::callOperation<Table, tableAttributes, tableOperations>,
     .walk = &Collections::walk,
     .figures = &Collections::figures}};
constexpr Vell::TypeData utilType{
    Asic::NestedName<Table, "::Util">::view,
    utilAttributes,
    {.call = &Asic::callOperation<Util, utilAttributes, utilOperations>}};
constexpr Vell::TypeData readRequestType{
    Asic::NestedName<Table, "::ZarnReadRequest">::view, {}, {}};

// In the order of the type numbers.
constexpr Vell::TypeData const* types[] = {&Entry::type,
                                           &utilType,
                                           &Asic::UtilLoaderReflection<Table>::type,
                                           &tableType,
                                           &ReadReqReflection::type,
                                           &readRequestType};
constinit Vell::ModuleInspectData moduleData{Table::names.module, types};

}  // namespace

Vell::ModuleInspectData& DlbEcmpFlowsetTableRead::module() { return moduleData; }

}  // namespace TessarLoadBalance
