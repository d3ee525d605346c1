#include "sw_drv/RTkernel/linux/WholeText.h"

#include <array>
#include <ostream>

namespace threadfunc {

void printWhole(std::ostream& stream, std::initializer_list<std::string_view> pieces) {
    std::array<char, kLongestWholeText> text{};
    std::size_t used = 0;
    bool missing = false;
    for (std::string_view rest : pieces) {
        missing = rest.data() == nullptr;
        if (missing) break;
        while (!rest.empty()) {
            if (used == text.size()) {
                stream.write(text.data(), static_cast<std::streamsize>(used));
                used = 0;
            }
            const std::size_t taken = rest.copy(text.data() + used, text.size() - used);
            rest.remove_prefix(taken);
            used += taken;
        }
    }
    stream.write(text.data(), static_cast<std::streamsize>(used)).flush();
    if (missing) stream.setstate(std::ios_base::badbit);
}

}  // namespace threadfunc
