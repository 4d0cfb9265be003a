// The reflection data of the flowset read table: its attribute record, and the types of its module.

#include "containers/HashMap2018Iterator.h"
#include "frame/FieldEntry.h"
#include "frame/TableReflection.h"
#include "read/DlbEcmpFlowsetTableRead.h"

namespace TessarLoadBalance {
namespace {

using Table = DlbEcmpFlowsetTableRead;
using Entry = Table::Entry;
using ReadReq = Table::ReadReq;
using Key = Asic::KeyValue<Table::Key>;
using Arguments = std::span<Vell::Value const>;
using Asic::needArguments;

constexpr auto tableAttributes = [] {
  using enum Vell::AttributeKind;
  using enum Vell::AttributeAccess;
  using enum Vell::AttributeConstness;
  using enum Vell::ValueShape;
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
  using enum Vell::AttributeKind;
  using enum Vell::AttributeAccess;
  using enum Vell::AttributeConstness;
  using enum Vell::ValueShape;
  return std::to_array<Vell::AttributeData>({
      {0x202, "minIndex", operation, isPublic, isConst, number, 32},
      {0x203, "maxIndex", operation, isPublic, isConst, number, 32},
      {0x204, "hwTableReadReqIs", operation, notPublic, isConst, number, 64},
      {0x205, "syncEntries", operation, notPublic, isConst},
  });
}();

Table& tableOf(void const* object) {
  return static_cast<Table&>(*static_cast<Vell::Node*>(const_cast<void*>(object)));
}

Asic::TransactionId transactionOf(Vell::Value const& value) {
  if (auto const* number = value.number()) return *number;
  throw Vell::ArgumentError("a transaction id is asked for, as a number");
}

Vell::Ptr<Vell::Node> makeTable(Vell::String const&, Arguments arguments) {
  if (!arguments.empty())
    Vell::throwNewEntityArgsException(Vell::ZarnType{&Table::module(), Table::typeNumber}.data(),
                                      arguments.size());
  return new Table;
}

Vell::Value getOfTable(void const* object, Vell::AttributeData const& attribute) {
  auto const& table = tableOf(object);
  auto const name = attribute.name;
  if (name == "minIndex") return U64{table.minIndex()};
  if (name == "maxIndex") return U64{table.maxIndex()};
  if (name == "readAccess") return Table::readAccess;
  if (name == "writeAccess") return Table::writeAccess;
  if (name == "isExternalKeyType") return false;
  // The machine itself stays behind the interface; its class tells that there is one.
  auto* const machine = table.readResponseSm();
  return machine ? Vell::Value(std::string(machine->typeData().data().name)) : Vell::Value();
}

Vell::Value callTable(void* object, Vell::AttributeData const& attribute, Arguments arguments) {
  auto& table = tableOf(object);
  auto const name = attribute.name;
  if (name == "invokeReadResponseHandler") {
    needArguments(arguments, 4);
    table.invokeReadResponseHandler(
        transactionOf(arguments[0]), Key::fromValue(arguments[1]).value(),
        Asic::EntryReflection<Entry>::fromValue(arguments[2]), Key::fromValue(arguments[3]));
  } else if (name == "invokeReadResponseHandlerUnsafe") {
    needArguments(arguments, 2);
    if (table.readRequestMap().empty()) throw Vell::ArgumentError("no request is stored");
    return table
        .invokeReadResponseHandlerUnsafe(Key::fromValue(arguments[0]),
                                         Asic::EntryReflection<Entry>::fromValue(arguments[1]))
        .value();
  } else if (name == "removeReadRequest") {
    needArguments(arguments, 1);
    table.removeReadRequest(transactionOf(arguments[0]));
  } else {
    needArguments(arguments, 0);
    if (name == "readReqDelAll") table.readReqDelAll();
    if (name == "util" && table.util()) return Vell::Value(table.util()->featureName());
  }
  return {};
}

extern Vell::TypeData const readReqType;

void walkTable(void const* object, Vell::AttributeData const& attribute,
               Vell::TypeFunctions::Visitor const& visitor) {
  auto& table = tableOf(object);
  Vell::Ptr<Table> const held(&table);
  if (attribute.name == "entry") {
    for (Zarn::HashMap2018IteratorGeneric at(table.entryMap()); at; at.advance())
      visitor(Key::toValue(at.currNodeMaybeStale()->key()),
              Asic::EntryReflection<Entry>::toValue(at.currNodeMaybeStale()->value_));
    return;
  }
  for (Table::ReadRequestMap::Iterator at(table.readRequestMap()); at; at.advance())
    visitor(U64{at.key().value()},
            Vell::Record{&readReqType, std::make_shared<ReadReq>(at->value_)});
}

Vell::CollectionFigures figuresOfTable(void const* object, Vell::AttributeData const& attribute) {
  auto const& table = tableOf(object);
  if (attribute.name == "entry") return {table.entryMap().count(), table.entryMap().version()};
  return {table.readRequestMap().count(), table.readRequestMap().version()};
}

Vell::Value callUtil(void* object, Vell::AttributeData const& attribute, Arguments arguments) {
  needArguments(arguments, 0);
  auto const& util = static_cast<Table::Util const&>(*static_cast<Vell::Node*>(object));
  return U64{attribute.name == "minIndex" ? util.minIndex() : util.maxIndex()};
}

Vell::Value getOfReadReq(void const* object, Vell::AttributeData const& attribute) {
  return Zarn::FieldOps<ReadReq>::get(*static_cast<ReadReq const*>(object), attribute.id);
}
Vell::Value makeReadReq() { return Vell::Record{&readReqType, std::make_shared<ReadReq>()}; }

constexpr Vell::TypeData tableType{Table::names.qualified,
                                   tableAttributes,
                                   {.makeNode = &makeTable,
                                    .get = &getOfTable,
                                    .call = &callTable,
                                    .walk = &walkTable,
                                    .figures = &figuresOfTable}};
constexpr Vell::TypeData utilType{
    Asic::NestedName<Table, "::Util">::view, utilAttributes, {.call = &callUtil}};
constexpr auto readReqAttributes = Zarn::FieldOps<ReadReq>::attributes();
// A request is looked at, not edited, and has no hash.
constexpr Vell::TypeData readReqType{
    ReadReq::fields().tag, readReqAttributes, {.makeValue = &makeReadReq, .get = &getOfReadReq}};
constexpr Vell::TypeData readRequestType{
    Asic::NestedName<Table, "::ZarnReadRequest">::view, {}, {}};

// In the order of the type numbers.
constexpr Vell::TypeData const* types[] = {&Asic::EntryReflection<Entry>::type,
                                           &utilType,
                                           &Asic::UtilLoaderReflection<Table>::type,
                                           &tableType,
                                           &readReqType,
                                           &readRequestType};
constinit Vell::ModuleInspectData moduleData{Table::names.module, types};

}  // namespace

Vell::ModuleInspectData& DlbEcmpFlowsetTableRead::module() { return moduleData; }

}  // namespace TessarLoadBalance
