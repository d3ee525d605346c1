#pragma once
/// Which addresses the data records of an Intel HEX file fill. Pure.

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "sim/HexReader.h"
#include "sim/HexRecord.h"

namespace sim {

/// Places records below the base address in force and notices double and forbidden addresses.
class HexAddressMap {
public:
    /// What is wrong with a data record, and from which of its data bytes on (counted from 0).
    struct Conflict {
        std::uint32_t dataIndex;
        std::string expected;
        std::string got;
    };

    explicit HexAddressMap(AddressRange permitted) : allowed(permitted) {}

    /// Base address of the records that follow: `paragraph` times 16, each record within 64 KiB from there.
    void setSegment(std::uint16_t paragraph);
    /// Base address of the records that follow: `upperHalf` are the upper 16 address bits.
    void setLinear(std::uint16_t upperHalf);

    /// Adds the addresses of a data record. None when all were free and allowed.
    std::optional<Conflict> add(const HexRecord& record);

    /// What was added so far.
    HexImage image() const;

private:
    std::optional<Conflict> addRun(std::uint64_t first, std::uint32_t byteCount, std::uint32_t dataIndex);
    std::optional<Conflict> checkAllowed(std::uint64_t first, std::uint64_t last, std::uint32_t dataIndex) const;
    std::optional<Conflict> checkFree(std::uint64_t first, std::uint64_t last, std::uint32_t dataIndex) const;
    void insert(std::uint64_t first, std::uint64_t last);

    AddressRange allowed;
    std::map<std::uint64_t, std::uint64_t> runs;  // first address to last address; no two touch
    std::uint64_t base = 0;
    bool linear = false;
};

}  // namespace sim
