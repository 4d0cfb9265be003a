// The reflection data of the flowset read table: its attribute record, and the types of its module.

#include "frame/TableReflection.h"
#include "read/DlbEcmpFlowsetTableRead.h"

namespace TessarLoadBalance {
namespace {

using Asic::indexOf;
using Vell::Arguments;
using Table = DlbEcmpFlowsetTableRead;
using Util = Table::Util;
using ReadReq = Table::ReadReq;
using Key = Asic::KeyValue<Table::Key>;
using Entry = Asic::EntryReflection<Table::Entry>;

constexpr auto tableAttributes = [] {
  using namespace Vell::AttributeWords;
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
  using namespace Vell::AttributeWords;
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

constexpr Vell::Operation<Table> tableOperations[] = {
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
constexpr Vell::Operation<Util> utilOperations[] = {
    {"minIndex", 0, [](Util& util, Arguments) { return util.minIndex(); }},
    {"maxIndex", 0, [](Util& util, Arguments) { return util.maxIndex(); }},
};

/// A request is looked at, not edited, and has no hash.
struct ReadReqReflection : Zarn::FieldReflection<ReadReq, ReadReqReflection> {
  static constexpr auto attributes = Zarn::FieldOps<ReadReq>::attributes();
  static constexpr Vell::TypeData type{
      ReadReq::fields().tag, attributes, {.makeValue = &makeValue, .get = &get}};
};

/// What the frame makes the table's type of.
struct TableReflection {
  static constexpr auto const& attributes = tableAttributes;
  static constexpr auto const& operations = tableOperations;
  static constexpr auto get = &getOfTable;
  template <class Use>
  static void show(Table& table, std::string_view name, Use const& use) {
    if (name == "entry")
      use(table.entryMap(), &Key::toValue, Asic::elementValue);
    else
      use(table.readRequestMap(), Asic::indexValue, &ReadReqReflection::toValue);
  }
};

constexpr Vell::TypeData utilType{
    Asic::NestedName<Table, "::Util">::view,
    utilAttributes,
    {.call = &Vell::callOperation<Util, utilAttributes, utilOperations>}};
constexpr Vell::TypeData readRequestType{
    Asic::NestedName<Table, "::ZarnReadRequest">::view, {}, {}};

// In the order of the type numbers.
constexpr Vell::TypeData const* types[] = {&Entry::type,
                                           &utilType,
                                           &Asic::UtilLoaderReflection<Table>::type,
                                           &Asic::tableType<Table, TableReflection>,
                                           &ReadReqReflection::type,
                                           &readRequestType};
constinit Vell::ModuleInspectData moduleData{Table::names.module, types};

}  // namespace

Vell::ModuleInspectData& DlbEcmpFlowsetTableRead::module() { return moduleData; }

}  // namespace TessarLoadBalance
