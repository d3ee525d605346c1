#include "app/StatusBlock.h"

#include <ostream>
#include <sstream>
#include <string_view>

#include "Hardware/UploadNames.h"

namespace CANFlasher {

namespace {

constexpr std::string_view kClearToEndOfLine = "\x1b[0K";

/// A serial number from here on says that none is known.
constexpr std::uint32_t kNoSerial = 0x1FFFFFFF;

/// Cursor up; the digit is the number of lines, written at each paint.
char cursorUp[] = "\x1b[0A";
constexpr std::size_t kCursorUpDigit = 2;

std::string hexadecimal(std::uint32_t value) {
    std::ostringstream text;
    text << std::hex << value;
    return text.str();
}

std::string serialText(std::uint32_t serial) { return serial >= kNoSerial ? "---" : std::to_string(serial); }

}  // namespace

std::array<std::string, kStatusLines> statusLines(const TStatus& status) {
    std::array<std::string, kStatusLines> lines{
        "Upload state:",
        "    mode     " + std::string(modeDisplayName(status.mode)),
        "    state    " + std::string(stateDisplayName(status.state)),
        "    progress " + std::to_string(static_cast<std::int32_t>(status.progress)) + "%",
        "    adr      " + hexadecimal(status.address),
        "    serial   " + serialText(status.serial),
    };
    for (std::string& line : lines) line += kClearToEndOfLine;
    return lines;
}

void drawStatus(std::ostream& out, const TStatus& status, bool& firstDraw) {
    out.clear();  // a block that did not get out, to a full disk or pipe, does not keep back those that follow
    if (firstDraw) {
        firstDraw = false;
        for (int line = 0; line < kStatusLines + 1; ++line) out << std::endl;
    }
    cursorUp[kCursorUpDigit] = '0' + kStatusLines;
    out << cursorUp;
    for (const std::string& line : statusLines(status)) out << line << std::endl;
}

}  // namespace CANFlasher
