#pragma once
/// Creating the directories in front of a file.

#include <string>

namespace toolsmisc {

/// Creates the directories that are missing on the way to `file`, with mode 0755 as far as the umask allows, from the
/// root or from the current directory, which stays as it is. Returns false with `errno` when one cannot be created or
/// entered, and with EINVAL for an empty one ("a//b"); what was created before stays. Any thread may call it.
[[nodiscard]] bool makeFoldersOf(const std::string& file);

}  // namespace toolsmisc
