#include "platform/fennlog/Reader.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstring>
#include <map>
#include <optional>

#include "platform/fennlog/Ring.h"

namespace Fennlog {

namespace {

struct Entry {
  U64 ticks;
  U32 site;
  std::array<U64, maxArguments> arguments;

  U32 siteNumber() const { return site & RecordSite::numberMask; }
  U32 argumentCount() const {
    return std::min<U32>(site >> RecordSite::countShift & RecordSite::countMask, maxArguments);
  }
  bool isSigned(U32 argument) const { return site >> (RecordSite::signedShift + argument) & 1; }
};

// The record at a position, unless it is not whole or was overwritten meanwhile.
std::optional<Entry> entryAt(U64 position, U64 capacity, Header const& header,
                             Record const* records) {
  constexpr auto relaxed = std::memory_order_relaxed;
  auto const& record = records[position & (capacity - 1)];
  if (record.sequence.load(std::memory_order_acquire) != static_cast<U32>(position + 1)) return {};
  Entry const entry{record.ticks.load(relaxed),
                    record.site.load(relaxed),
                    {record.arguments[0].load(relaxed), record.arguments[1].load(relaxed)}};
  std::atomic_thread_fence(std::memory_order_acquire);
  if (header.next.load(relaxed) - position > capacity) return {};
  return entry;
}

void appendNumber(std::string& text, Entry const& entry, U32 argument, int base) {
  char digits[24];
  auto const value = entry.arguments[argument];
  auto const signedDecimal = base == 10 && entry.isSigned(argument);
  auto const end = signedDecimal ? std::to_chars(std::begin(digits), std::end(digits),
                                                 static_cast<std::int64_t>(value))
                                 : std::to_chars(std::begin(digits), std::end(digits), value, base);
  text.append(digits, end.ptr);
}

std::string messageText(std::string_view format, Entry const& entry) {
  using enum FormatPiece::Kind;
  std::string text;
  U32 filled = 0;
  for (auto rest = format; !rest.empty();) {
    auto const piece = firstPiece(rest);
    bool const isArgument = piece.kind == decimal || piece.kind == hexadecimal;
    if (piece.kind == literal) {
      text += piece.text;
    } else if (isArgument && filled < entry.argumentCount()) {
      appendNumber(text, entry, filled++, piece.kind == hexadecimal ? 16 : 10);
    } else {
      text += rest.substr(0, piece.length);
    }
    rest.remove_prefix(piece.length);
  }
  for (auto separator = ": "; filled < entry.argumentCount(); separator = ", ") {
    text += separator;
    appendNumber(text, entry, filled++, 10);
  }
  return text;
}

// `textOf` gives the text of a site's number, empty if it is not known.
template <class TextOf>
std::vector<Message> messages(Header const& header, Record const* records, U64 capacity,
                              Calibration const& calibration, TextOf textOf) {
  using std::chrono::system_clock;
  std::vector<Message> result;
  auto const next = header.next.load(std::memory_order_acquire);
  result.reserve(std::min(next, capacity));
  for (auto position = next > capacity ? next - capacity : 0; position != next; ++position) {
    auto const entry = entryAt(position, capacity, header, records);
    if (!entry) continue;
    std::string format = textOf(entry->siteNumber());
    if (format.empty()) format = "site " + std::to_string(entry->siteNumber());
    std::chrono::nanoseconds const sinceEpoch(calibration.wallTime(entry->ticks));
    result.push_back(
        {system_clock::time_point(std::chrono::duration_cast<system_clock::duration>(sinceEpoch)),
         messageText(format, *entry)});
  }
  return result;
}

using Dictionary = std::map<U32, std::string_view>;

Dictionary dictionaryOf(Mapping const& mapping, std::filesystem::path const& path) {
  Dictionary result;
  auto const used = mapping.header().dictionaryUsed.load(std::memory_order_acquire);
  for (U64 at = 0; at < used;) {
    DictionaryEntry entry{};
    if (used - at >= sizeof entry) std::memcpy(&entry, mapping.dictionary() + at, sizeof entry);
    auto const bytes = dictionaryEntryBytes(entry.length);
    if (entry.number == 0 || bytes > used - at) {
      throw Error(path, "is damaged in its dictionary; delete it, or move it away");
    }
    result[entry.number] = {mapping.dictionary() + at + sizeof entry, entry.length};
    at += bytes;
  }
  return result;
}

Calibration calibrationOf(Header const& header, std::filesystem::path const& path) {
  auto const result = header.calibrations[header.calibrationInUse.load(std::memory_order_acquire)];
  if (std::isfinite(result.nanosecondsPerTick) && result.nanosecondsPerTick > 0) return result;
  throw Error(path, "is damaged in its clock's rate; delete it, or move it away");
}

}  // namespace

std::vector<Message> read(Handle const& handle) {
  return messages(handle.header(), handle.records(), handle.capacity(), calibrate(),
                  [](U32 number) { return Registry::textOf(number); });
}

std::vector<Message> readFile(std::filesystem::path const& path) {
  Mapping const mapping(path, File::Use::read);
  auto const& header = mapping.header();
  auto const calibration = calibrationOf(header, path);
  auto const dictionary = dictionaryOf(mapping, path);
  return messages(header, mapping.records(), header.capacity, calibration, [&](U32 number) {
    auto const found = dictionary.find(number);
    return found == dictionary.end() ? std::string() : std::string(found->second);
  });
}

}  // namespace Fennlog
