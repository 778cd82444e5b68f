#include "velaenc/id3_tag.hpp"

#include <algorithm>
#include <array>
#include <taglib/fileref.h>
#include <taglib/id3v2tag.h>
#include <taglib/tpropertymap.h>

namespace tools {

byte_list id3_tag_of(const std::string &path) {
    // TagLib's names for them in all formats.
    constexpr std::array fields{"TITLE",       "ARTIST", "ALBUM",   "DATE",
                                "TRACKNUMBER", "GENRE",  "COMMENT", "ISRC"};
    const TagLib::FileRef file(path.c_str(), false);
    if (file.isNull()) return {};
    const TagLib::PropertyMap there = file.file()->properties();
    TagLib::PropertyMap taken;
    for (const char *field : fields)
        if (there.contains(field)) taken[field] = there[field];
    if (taken.isEmpty()) return {};
    TagLib::ID3v2::Tag tag;
    tag.setProperties(taken);
    const TagLib::ByteVector rendered = tag.render();
    byte_list bytes(rendered.size());
    std::ranges::transform(rendered, bytes.begin(),
                           [](char each) { return static_cast<std::byte>(each); });
    return bytes;
}

} // namespace tools
