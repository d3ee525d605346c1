#pragma once
/// The home directory of the user who runs the program.

#include <optional>
#include <string>

namespace toolsmisc {

/// Home directory of the real user by the user database, whatever the environment says. Empty when the database has no
/// entry or cannot be read. Any thread may call it; it may wait for the database.
[[nodiscard]] std::optional<std::string> homeOfRealUser();

}  // namespace toolsmisc
