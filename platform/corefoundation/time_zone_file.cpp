// Reading TZif files: RFC 8536. A file begins with a block of 32-bit times; from version 2 on a block of 64-bit times
// follows, and a POSIX TZ text for the time after the last change between two line feeds.
#include <algorithm>
#include <cstring>

#include "platform/corefoundation/time_zone.h"

namespace cf {

class TZifReader {
 public:
  explicit TZifReader(std::span<const std::uint8_t> file) : rest_(file) {}

  std::optional<Zone> read() {
    std::optional<Header> header = readHeader();
    if (!header) return std::nullopt;
    const bool has64BitBlock = header->version >= '2';
    if (has64BitBlock) {
      if (!skip(header->size(4))) return std::nullopt;
      header = readHeader();
      if (!header) return std::nullopt;
    }
    if (!readBlock(*header, has64BitBlock ? 8 : 4)) return std::nullopt;
    if (has64BitBlock && !readFooter()) return std::nullopt;
    return std::move(zone_);
  }

 private:
  struct Header {
    std::uint8_t version;
    std::uint32_t utIndicators, standardIndicators, leapSeconds, changes, types, abbreviationBytes;

    std::uint64_t size(std::uint64_t timeSize) const noexcept {
      return changes * (timeSize + 1) + types * std::uint64_t{6} + abbreviationBytes + leapSeconds * (timeSize + 4) +
             standardIndicators + utIndicators;
    }
  };

  std::uint64_t integer(std::size_t size) {
    std::uint64_t value = 0;
    for (const std::uint8_t byte : rest_.first(size)) value = value << 8 | byte;
    rest_ = rest_.subspan(size);
    return value;
  }

  // With the sign of its highest bit.
  std::int64_t signedInteger(std::size_t size) {
    const std::uint64_t value = integer(size);
    return size == 4 ? static_cast<std::int32_t>(static_cast<std::uint32_t>(value)) : static_cast<std::int64_t>(value);
  }

  bool skip(std::uint64_t size) {
    if (size > rest_.size()) return false;
    rest_ = rest_.subspan(static_cast<std::size_t>(size));
    return true;
  }

  std::optional<Header> readHeader() {
    constexpr std::size_t headerSize = 44;
    if (rest_.size() < headerSize || std::memcmp(rest_.data(), "TZif", 4) != 0) return std::nullopt;
    Header header{};
    header.version = rest_[4];
    skip(20);
    for (std::uint32_t* const field : {&header.utIndicators, &header.standardIndicators, &header.leapSeconds,
                                       &header.changes, &header.types, &header.abbreviationBytes}) {
      *field = static_cast<std::uint32_t>(integer(4));
    }
    return header;
  }

  bool readBlock(const Header& header, std::size_t timeSize) {
    if (header.size(timeSize) > rest_.size()) return false;
    if (header.types == 0 || header.types > 256 || header.abbreviationBytes == 0 || header.leapSeconds != 0) {
      return false;
    }
    for (std::uint32_t i = 0; i < header.changes; ++i) zone_.changes_.push_back(signedInteger(timeSize));
    for (std::uint32_t i = 0; i < header.changes; ++i) {
      zone_.changeTypes_.push_back(static_cast<std::uint8_t>(integer(1)));
    }
    for (std::uint32_t i = 0; i < header.types; ++i) {
      const auto offset = static_cast<std::int32_t>(signedInteger(4));
      const bool isDaylightSaving = integer(1) != 0;
      zone_.types_.push_back({offset, isDaylightSaving, static_cast<std::uint8_t>(integer(1))});
    }
    zone_.abbreviations_.assign(reinterpret_cast<const char*>(rest_.data()), header.abbreviationBytes);
    skip(header.abbreviationBytes + std::uint64_t{header.standardIndicators} + header.utIndicators);
    return isSound();
  }

  // Whether what was read holds together: order, numbers within their tables, offsets of less than 26 hours.
  bool isSound() const {
    const auto& changes = zone_.changes_;
    const bool ascending = std::ranges::adjacent_find(changes, std::ranges::greater_equal()) == changes.end();
    const bool typesExist =
        std::ranges::all_of(zone_.changeTypes_, [&](std::uint8_t type) { return type < zone_.types_.size(); });
    const bool typesAreSound = std::ranges::all_of(zone_.types_, [&](const Zone::LocalType& type) {
      return type.offset > -90000 && type.offset < 93600 && type.abbreviationIndex < zone_.abbreviations_.size();
    });
    return ascending && typesExist && typesAreSound && zone_.abbreviations_.back() == '\0';
  }

  // An empty text says that nothing is known of the time after the last change.
  bool readFooter() {
    const std::string_view text(reinterpret_cast<const char*>(rest_.data()), rest_.size());
    const std::size_t end = text.find('\n', 1);
    if (text.empty() || text.front() != '\n' || end == std::string_view::npos) return false;
    if (end == 1) return true;
    zone_.rulesAfterwards_ = PosixZone::parse(text.substr(1, end - 1));
    return zone_.rulesAfterwards_.has_value();
  }

  std::span<const std::uint8_t> rest_;
  Zone zone_;
};

std::optional<Zone> Zone::fromTZif(std::span<const std::uint8_t> file) { return TZifReader(file).read(); }

}  // namespace cf
