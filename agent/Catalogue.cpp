#include "agent/Catalogue.h"

#include <fmt/format.h>

#include <algorithm>

#include "agent/FieldValue.h"

namespace DlbAgent {
namespace {

// Entries that have handles are the chain's affair, by name.
bool isTable(Vell::TypeData const& type) {
  return !type.attribute("entryHandle") && type.functions.makeNode &&
         type.attribute("entryCommit") && type.attribute("resolvedEntry") &&
         type.attribute("syncedEntry");
}

Vell::TypeData const* entryOf(Vell::TypeData const& table, Vell::ModuleInspectData const& module) {
  auto const name = fmt::format("{}::Entry", table.name);
  auto const found =
      std::ranges::find_if(module.types(), [&](auto const* each) { return each->name == name; });
  return found == module.types().end() ? nullptr : *found;
}

template <class Elements, class Predicate>
auto const* findOrNull(Elements const& elements, Predicate predicate) {
  auto const found = std::ranges::find_if(elements, predicate);
  return found == elements.end() ? nullptr : &*found;
}

}  // namespace

TableType::TableType(Vell::TypeData const& table, Vell::TypeData const& entry)
    : table_(&table), entry_(&entry), name_(table.name.substr(table.name.rfind(':') + 1)) {
  for (auto const& attribute : entry.attributes)
    if (isCollection(attribute) || (attribute.kind == Vell::AttributeKind::field &&
                                    attribute.shape != Vell::ValueShape::pointer))
      fields_.push_back(&attribute);
}

std::vector<std::string_view> TableType::fieldNames() const {
  std::vector<std::string_view> names;
  for (auto const* field : fields_) names.push_back(field->name);
  return names;
}

Vell::AttributeData const* TableType::field(std::string_view name) const {
  auto const* found = findOrNull(fields_, [=](auto const* each) { return each->name == name; });
  return found ? *found : nullptr;
}

bool TableType::keyIsIndex() const {
  if (table_->attribute("minIndex") && table_->attribute("maxIndex")) return true;
  auto const* const synced = table_->attribute("syncedEntry");
  return synced && synced->keyBits == 32;  // an allocator gives the index
}

Catalogue::Catalogue() {
  for (auto const* module = Vell::ModuleInspectData::first(); module; module = module->next())
    for (auto const* type : module->types())
      if (auto const* entry = isTable(*type) ? entryOf(*type, *module) : nullptr)
        tables_.emplace_back(*type, *entry);
  std::ranges::sort(tables_, {}, &TableType::qualifiedName);
}

TableType const* Catalogue::find(std::string_view name) const {
  return findOrNull(tables_, [=](TableType const& each) {
    return each.name() == name || each.qualifiedName() == name;
  });
}

std::vector<std::string_view> Catalogue::names() const {
  std::vector<std::string_view> names;
  for (auto const& table : tables_) names.push_back(table.name());
  return names;
}

}  // namespace DlbAgent
