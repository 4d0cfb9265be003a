// The tables that there are, found in the reflection data of the libraries that are loaded. Nothing
// that configures, shows and clears names a table: what a library announces is served alike.
//
// A table is a class that can be made and has the attributes `entryCommit`, `resolvedEntry` and
// `syncedEntry`, and no handles; its entries are of the class TABLE::Entry of the same module.
//
// Threading: immutable once made.

#pragma once

#include <string_view>
#include <vector>

#include "platform/vell/ModuleInspectData.h"

namespace DlbAgent {

class TableType {
 public:
  TableType(Vell::TypeData const& table, Vell::TypeData const& entry);

  /// As "TessarLoadBalance::DlbControlTable", and as "DlbControlTable".
  std::string_view qualifiedName() const { return table_->name; }
  std::string_view name() const { return name_; }
  Vell::TypeData const& table() const { return *table_; }
  Vell::TypeData const& entry() const { return *entry_; }
  /// The fields of an entry, plain ones and collections, in the order of their ids. Pointers, which
  /// no hardware holds, are left out.
  std::vector<Vell::AttributeData const*> const& fields() const { return fields_; }
  std::vector<std::string_view> fieldNames() const;
  /// The field of that name, or null.
  Vell::AttributeData const* field(std::string_view name) const;
  /// Whether a key is an index of the hardware table; any other key is known by its text.
  bool keyIsIndex() const;

 private:
  Vell::TypeData const* table_;
  Vell::TypeData const* entry_;
  std::string_view name_;
  std::vector<Vell::AttributeData const*> fields_;
};

class Catalogue {
 public:
  /// Looks at everything that is loaded by now.
  Catalogue();

  /// In alphabetical order, whatever order the libraries were loaded in.
  std::vector<TableType> const& tables() const { return tables_; }
  /// The table of that name, short or qualified, or null.
  TableType const* find(std::string_view name) const;
  /// The short names.
  std::vector<std::string_view> names() const;

 private:
  std::vector<TableType> tables_;
};

}  // namespace DlbAgent
