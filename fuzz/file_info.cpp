// The line of a file's information: what a scan of it reads is what went in. The attributes of any mode.
// Input: four numbers of 4 bytes, the rest is the name.
#include "toolsmisc/FileInfo.h"

#include "fuzz/Fuzz.h"

using toolsmisc::FileInfo;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    FileInfo info;
    for (std::uint32_t* field : {&info.attributes, &info.time, &info.date, &info.size})
        *field = input.number<std::uint32_t>();
    info.name = input.rest();
    const std::string line = toolsmisc::formatFileInfo(info);
    FileInfo read;
    int used = 0;
    const int fields = std::sscanf(line.c_str(), "attrib: 0x%x; time: %u; date: %u; size: %u; '%n", &read.attributes,
                                   &read.time, &read.date, &read.size, &used);
    fuzz::check(fields == 4 && read.attributes == info.attributes && read.time == info.time);
    fuzz::check(read.date == info.date && read.size == info.size);
    fuzz::check(line.substr(static_cast<std::size_t>(used)) == info.name + "'");

    const std::uint32_t mode = info.attributes;
    const bool directory = (mode & 0x4000) != 0, file = (mode & 0x8000) != 0, writable = (mode & 0x80) != 0;
    const unsigned kind = directory ? 0x10 : file ? 0 : 0x04;
    fuzz::check(toolsmisc::attributesOfMode(mode) == kind + (writable ? 0 : 1));
    return 0;
}
