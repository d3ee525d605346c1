// The simulated server's HEX reader against a second one that notes byte after byte: verdict, place of the first fault,
// ranges and count.
// Input: '1' or '3' puts length and checksum of each line right first, '2' or '3' allows some addresses only; the text.
#include "fuzz/oracle/HexText.h"
#include "sim/HexReader.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::uint8_t choice = input.byte();
    std::string text = input.rest();
    if ((choice & 1) != 0) text = fuzz::withRightSums(text);
    const sim::AddressRange allowed = (choice & 2) != 0 ? sim::AddressRange{0x20, 0x1FFFF} : sim::AddressRange{};
    const fuzz::HexVerdict wanted = fuzz::verdictOf(text, allowed.first, allowed.last);

    const auto read = sim::readHex(text, allowed);
    if (const auto* problem = std::get_if<sim::HexProblem>(&read)) {
        fuzz::check(problem->line == wanted.wrongLine && fuzz::isPlace(text, problem->line, problem->column));
        fuzz::check(!problem->expected.empty() && !problem->got.empty());
        return 0;
    }
    const auto& image = std::get<sim::HexImage>(read);
    fuzz::check(wanted.wrongLine == 0 && image.byteCount == wanted.addresses.size());
    fuzz::check(image.ranges == fuzz::rangesOf(wanted.addresses));
    return 0;
}
