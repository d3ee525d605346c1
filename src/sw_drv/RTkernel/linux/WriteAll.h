#pragma once
/// Output for those that may use no stream: signal handlers, and a process without memory.

#include <string_view>

namespace threadfunc {

/// Writes all of `text` to `descriptor`, in as many pieces as it takes and however often signals interrupt it: the
/// terminal may stand still for a while. Gives up, and returns false, when the output takes no more; errno says why.
/// Waits as long as the output makes it wait. Any thread; async-signal-safe.
bool writeAll(int descriptor, std::string_view text);

}  // namespace threadfunc
