// The reflection data of what tables with entry handles share: the handles, and the hook class.

#pragma once

#include <array>

#include "frame/HandleTable.h"
#include "frame/TableReflection.h"

namespace Asic {

/// The hook class of a table whose hooks are told rows by index.
template <class T>
using RowUtilReflection = HookReflection<T, 0x209>;

/// A table's handles. The queue of pending entries is counted, and offers its operations, under its
/// attribute. A key goes through the interface as `KeyOf` says; where it can come back from there, a
/// handle can be made of it, which is in no table and of none: when it goes it removes nothing.
template <class T, class KeyOf>
struct HandleReflection {
  using Handle = typename T::EntryHandle;
  using Entry = EntryReflection<typename T::Entry>;
  static constexpr HandleFields fields = T::handleFields;
  static constexpr bool hasBlockSize = fields.blockSize != 0;

  static constexpr auto attributes = [] {
    using namespace AttributeWords;
    std::array<Vell::AttributeData, 4 + hasBlockSize> all{};
    std::size_t next = 0;
    all[next++] = {fields.key, "key", value, isPublic, isConst, KeyOf::shape};
    all[next++] = {fields.swTable, "swTable", value, isPublic, isConst, pointer, 64};
    if (hasBlockSize)
      all[next++] = {fields.blockSize, "blockSize", field, isPublic, notConst, number, 32};
    all[next++] = {
        fields.pendingEntry, "pendingEntry", collection, isPublic, notConst, record, 0, 32};
    all[next++] = {fields.cleanup, "cleanup", operation, notPublic, notConst};
    return all;
  }();

  static constexpr Operation<Handle> operations[] = {
      {"pendingEntryEnq", 1,
       [](Handle& handle, Arguments with) { handle.pendingEntryEnq(Entry::fromValue(with[0])); }},
      {"pendingEntryDeq", 0,
       [](Handle& handle, Arguments) { return Entry::toValue(handle.pendingEntryDeq()); }},
      {"pendingEntryFront", 0,
       [](Handle& handle, Arguments) { return Entry::toValue(handle.pendingEntryFront()); }},
      {"pendingEntryBack", 0,
       [](Handle& handle, Arguments) { return Entry::toValue(handle.pendingEntryBack()); }},
  };

  static Vell::Ptr<Vell::Node> make(Vell::String const&, Arguments arguments) {
    Vell::needArguments(arguments, 1);
    return Handle::EntryHandleIs(KeyOf::fromValue(arguments[0]), nullptr);
  }
  static constexpr auto makeIfKeysComeBack() {
    if constexpr (requires { &KeyOf::fromValue; })
      return &make;
    else
      return nullptr;
  }
  static Vell::Value callOnPending(void* object, Vell::AttributeData const&,
                                   std::string_view operation, Arguments arguments) {
    return Vell::callByName<Handle, operations>(object, operation, arguments);
  }
  static Vell::Value get(void const* object, Vell::AttributeData const& attribute) {
    auto const& handle = nodeOf<Handle>(object);
    if (attribute.id == fields.key) return KeyOf::toValue(handle.key());
    if (hasBlockSize && attribute.id == fields.blockSize) return U64{handle.blockSize()};
    return addressValue(handle.swTable());
  }
  static void set(void* object, Vell::AttributeData const&, Vell::Value const& value) {
    nodeOf<Handle>(object).blockSizeIs(static_cast<U32>(*value.number()));
  }
  static Vell::CollectionFigures figures(void const* object, Vell::AttributeData const&) {
    auto const& queue = nodeOf<Handle>(object).pendingEntry();
    return {queue.count(), queue.lastSequence()};
  }

  static constexpr Vell::TypeData type{NestedName<T, "::EntryHandle">::view,
                                       attributes,
                                       {.makeNode = makeIfKeysComeBack(),
                                        .get = &get,
                                        .set = hasBlockSize ? &set : nullptr,
                                        .figures = &figures,
                                        .callOn = &callOnPending}};
};

}  // namespace Asic
