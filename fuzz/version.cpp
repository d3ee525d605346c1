// Version facts of any keyword and any marker, against a second reading of both.
// Input: a marker (a length and so many bytes), the rest is the keyword.
#include "AgApp/VersionFacts.h"

#include "fuzz/oracle/Versions.h"

using namespace AgApp;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string marker = input.text(), keyword = input.rest();
    const std::string date = buildDateFrom(marker);
    fuzz::check(date == fuzz::cut(marker, 13, 35));
    fuzz::check(buildTimeFrom(date) == fuzz::secondsOf(date));

    const std::string path = repositoryPathFrom(keyword);
    fuzz::check(path == fuzz::treeOf(keyword));
    for (const std::string& tree : {path, keyword}) {
        const fuzz::Version wanted = fuzz::versionOf(tree);
        fuzz::check(isTaggedPath(tree) == wanted.tagged);
        fuzz::check(versionStringFrom(tree) == wanted.text);
        fuzz::check(majorVersionFrom(tree) == wanted.major && minorVersionFrom(tree) == wanted.minor);
        fuzz::check(versionLetterFrom(tree) == wanted.letter);
        fuzz::check(versionLabelFrom(tree, date) == fuzz::labelOf(tree, date));
    }
    return 0;
}
