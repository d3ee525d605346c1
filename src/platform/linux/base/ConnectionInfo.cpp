#include "platform/linux/base/ConnectionInfo.h"

#include "platform/linux/base/ByteOrder.h"

namespace {

/// Takes one text, a length byte and its bytes, off the front of `rest`. A text that is cut short is empty and ends
/// the payload.
std::string takeText(std::span<const std::uint8_t>& rest) {
    if (rest.empty()) return {};
    const std::size_t length = rest.front();
    rest = rest.subspan(1);
    if (length > rest.size()) {
        rest = {};
        return {};
    }
    std::string text(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(length));
    rest = rest.subspan(length);
    return text;
}

}  // namespace

std::optional<ServerConnectionEntry> parseConnectionInfo(std::span<const std::uint8_t> payload) {
    if (payload.size() < 4) return std::nullopt;
    ServerConnectionEntry entry;
    entry.processId = static_cast<std::int32_t>(byteorder::loadLittle32(payload.data()));
    std::span<const std::uint8_t> rest = payload.subspan(4);
    entry.applicationName = takeText(rest);
    entry.description = applicationDescription(entry.applicationName);
    entry.version = takeText(rest);
    entry.versionLabel = takeText(rest);
    return entry;
}
