// The path functions against paths put together and taken apart character by character.
// Input: two texts (a length and so many bytes each), the rest is a third one.
#include "toolsmisc/Path.h"
#include "fuzz/oracle/Paths.h"
#include "toolsmisc/DurableFile.h"

using namespace toolsmisc;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string a = input.text(), b = input.text(), c = input.rest();
    fuzz::check(joinPath(a, b) == fuzz::below(a, b));
    fuzz::check(joinPath(a, b, c) == fuzz::below(fuzz::below(a, b), c));
    fuzz::check(joinPath(c, a, b, c) == fuzz::below(fuzz::below(fuzz::below(c, a), b), c));
    fuzz::check(joinPath(b, c, a, b, c) == fuzz::below(fuzz::below(fuzz::below(fuzz::below(b, c), a), b), c));
    for (const std::string& path : {a, b, c}) {
        fuzz::check(isAbsolutePath(path) == (!path.empty() && path[0] == '/'));
        fuzz::check(getFileName(path, false) == fuzz::fileName(path, false));
        fuzz::check(getFileName(path, true) == fuzz::fileName(path, true));
        fuzz::check(getDirectoryName(path) == fuzz::directoryName(path));
        fuzz::check(getExtension(path) == fuzz::extension(path));
        fuzz::check(getBackupName(path) == path + '~');
        fuzz::check(normalizePath(path) == fuzz::normal(path));
        fuzz::check(normalizePath(path.c_str()) == fuzz::normal(path.c_str()));
    }
    return 0;
}
