#include "sim/HexReader.h"

#include <algorithm>
#include <array>
#include <optional>

#include "sim/HexAddressMap.h"
#include "sim/HexRecord.h"

namespace sim {

namespace {

/// What each record type asks of its length and address.
struct TypeRule {
    std::uint8_t type;
    std::optional<std::uint8_t> length;  // none: any
    bool addressZero;
};
constexpr std::array kTypeRules{
    TypeRule{kDataRecord, std::nullopt, false}, TypeRule{kEndRecord, 0, true},
    TypeRule{kSegmentAddressRecord, 2, true},   TypeRule{kStartSegmentRecord, 4, true},
    TypeRule{kLinearAddressRecord, 2, true},    TypeRule{kStartLinearRecord, 4, true},
};

/// Columns of a record's fields.
constexpr std::uint32_t kLengthColumn = 2, kAddressColumn = 4, kTypeColumn = 8, kDataColumn = 10;

class Reader {
public:
    Reader(std::string_view content, AddressRange allowed) : cursor(content), map(allowed) {}

    std::variant<HexImage, HexProblem> run() {
        while (!problem && !ended) readLine();
        if (!problem) checkNothingFollows();
        if (problem) return *problem;
        return map.image();
    }

private:
    void readLine() {
        if (cursor.atEnd()) return failHere("the end record :00000001FF");
        const std::uint32_t line = cursor.line();
        HexRecord record;
        if (auto wrong = readRecord(cursor, record)) {
            problem = std::move(wrong);
            return;
        }
        if (checkType(line, record)) apply(line, record);
    }

    bool checkType(std::uint32_t line, const HexRecord& record) {
        const auto rule = std::find_if(kTypeRules.begin(), kTypeRules.end(),
                                       [&](const TypeRule& row) { return row.type == record.type; });
        if (rule == kTypeRules.end())
            return fail(line, kTypeColumn, "a record type from 00 to 05", hexText(record.type, 2));
        if (rule->length && record.data.size() != *rule->length)
            return fail(line, kLengthColumn,
                        "length " + hexText(*rule->length, 2) + " of a record of type " + hexText(record.type, 2),
                        hexText(static_cast<std::uint32_t>(record.data.size()), 2));
        if (rule->addressZero && record.address != 0)
            return fail(line, kAddressColumn, "address 0000 of a record of type " + hexText(record.type, 2),
                        hexText(record.address, 4));
        return true;
    }

    void apply(std::uint32_t line, const HexRecord& record) {
        switch (record.type) {
            case kDataRecord:
                if (const auto wrong = map.add(record))
                    fail(line, kDataColumn + 2 * wrong->dataIndex, wrong->expected, wrong->got);
                break;
            case kSegmentAddressRecord:
                map.setSegment(record.word());
                break;
            case kLinearAddressRecord:
                map.setLinear(record.word());
                break;
            case kEndRecord:
                ended = true;
                break;
            default:  // a start address says where to run, not what to program
                break;
        }
    }

    void checkNothingFollows() {
        if (cursor.atEnd()) return;
        const std::string_view rest = cursor.rest();
        std::string what = cursor.describe();
        if (rest.starts_with(':')) what = "a record after the end record";
        if (rest.starts_with(":00000001")) what = "a second end record";
        fail(cursor.line(), cursor.column(), "the end of the file", std::move(what));
    }

    void failHere(std::string expected) {
        fail(cursor.line(), cursor.column(), std::move(expected), cursor.describe());
    }

    /// Always false, for the caller to return.
    bool fail(std::uint32_t line, std::uint32_t column, std::string expected, std::string got) {
        problem = HexProblem{line, column, std::move(expected), std::move(got)};
        return false;
    }

    HexCursor cursor;
    HexAddressMap map;
    std::optional<HexProblem> problem;
    bool ended = false;
};

}  // namespace

std::variant<HexImage, HexProblem> readHex(std::string_view text, AddressRange allowed) {
    return Reader(text, allowed).run();
}

}  // namespace sim
