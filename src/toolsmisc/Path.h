#pragma once
/// Path text: putting paths together and taking them apart. Except for `getRealPath` nothing here looks at the file
/// system. Any thread may call any function at any time; each returns a new text.

#include <string>

namespace toolsmisc {

/// The path separator of every function of this library.
inline constexpr char kPathSeparator[] = "/";

/// `b` below `a`: the one way paths are put together. An empty `b` gives `a`; a `b` that begins with "/" replaces `a`.
/// There is no separator behind an empty `a`, behind one that ends with "/", and behind any `a` of exactly two
/// characters ("ab" and "c" give "abc", also "/x" and "c" give "/xc").
[[nodiscard]] std::string joinPath(const std::string& a, const std::string& b);
/// Several components, joined left to right, one at a time.
[[nodiscard]] std::string joinPath(const std::string& a, const std::string& b, const std::string& c);
/// \copydoc joinPath(const std::string&,const std::string&,const std::string&)
[[nodiscard]] std::string joinPath(const std::string& a, const std::string& b, const std::string& c,
                                   const std::string& d);
/// \copydoc joinPath(const std::string&,const std::string&,const std::string&)
[[nodiscard]] std::string joinPath(const std::string& a, const std::string& b, const std::string& c,
                                   const std::string& d, const std::string& e);

/// Whether `path` begins with "/".
[[nodiscard]] bool isAbsolutePath(const std::string& path);

/// The absolute path without links, "." and ".." that `realpath` finds; empty when it fails, with its `errno`. Reads
/// the file system.
[[nodiscard]] std::string getRealPath(const std::string& path);

/// What follows the last "/" of `path`. With `stripExtension` it ends before the last "." of the whole path; positions
/// follow the rules of `subString`: without any "." the last two characters go ("readme" gives "read"), a "." at the
/// very start makes the last one go (".profile" gives ".profil"), and a "." only in a folder's name leaves nothing.
[[nodiscard]] std::string getFileName(const std::string& path, bool stripExtension);

/// What stands before the last "/" of `path`, empty without one. Positions follow the rules of `subString`: for a "/"
/// only at the start the answer is the path without its last character ("/file" gives "/fil").
[[nodiscard]] std::string getDirectoryName(const std::string& path);

/// What follows the last "." behind the last "/", at most 1,000,000 characters. Empty when there is no such ".", or
/// nothing behind it. A leading "." counts: ".profile" has the extension "profile".
[[nodiscard]] std::string getExtension(const std::string& path);

/// Name of the file that keeps the old content while `path` is rewritten: `path` with "~" appended.
[[nodiscard]] std::string getBackupName(const std::string& path);

}  // namespace toolsmisc
