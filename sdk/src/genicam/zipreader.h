// A small, bounds-checked reader for the zip files GenICam descriptions are shipped in.
#pragma once

#include <string>

namespace korvatin {

// Reads one member of a zip archive held in memory (stored or deflated, no zip64). Every
// offset is checked against the buffer, so a damaged archive is an exception, never a read
// outside it. (Aravis' own zip reader trusts the archive's offsets.)
class ZipReader {
public:
    // True when `data` starts like a zip archive.
    static bool LooksLikeZip(const std::string& data);

    // The first member whose name ends in ".xml" (any case), else the first member.
    // Throws CKorvatinException (QRN_ERR_INVALID) with the reason when the archive is damaged.
    static std::string ExtractDescription(const std::string& archive);
};

} // namespace korvatin
