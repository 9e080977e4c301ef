// A small, bounds-checked reader for the zip files GenICam descriptions are shipped in.
#include "zipreader.h"

#include "korvatin/korvatinexception.h"

#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <vector>

namespace korvatin {

namespace {

constexpr uint32_t kLocalHeaderMagic = 0x04034b50;
constexpr uint32_t kCentralHeaderMagic = 0x02014b50;
constexpr uint32_t kEndOfDirectoryMagic = 0x06054b50;
constexpr std::size_t kEndOfDirectorySize = 22;
constexpr std::size_t kCentralHeaderSize = 46;
constexpr std::size_t kLocalHeaderSize = 30;
// A description is text of a few megabytes at most; refuse absurd sizes from a damaged header.
constexpr uint32_t kLargestMember = 256u * 1024u * 1024u;

[[noreturn]] void damaged(const std::string& why) {
    throw CKorvatinException("damaged zip archive: " + why, QRN_ERR_INVALID);
}

class Bytes {
public:
    explicit Bytes(const std::string& data) : data_(data) {}
    std::size_t size() const { return data_.size(); }
    void need(std::size_t offset, std::size_t length, const char* what) const {
        if (offset > data_.size() || length > data_.size() - offset)
            damaged(std::string(what) + " lies outside the archive");
    }
    uint16_t le16(std::size_t offset) const {
        need(offset, 2, "a header");
        return static_cast<uint16_t>(byte(offset) | (byte(offset + 1) << 8));
    }
    uint32_t le32(std::size_t offset) const {
        need(offset, 4, "a header");
        return uint32_t(byte(offset)) | (uint32_t(byte(offset + 1)) << 8) |
               (uint32_t(byte(offset + 2)) << 16) | (uint32_t(byte(offset + 3)) << 24);
    }
    const char* at(std::size_t offset) const { return data_.data() + offset; }

private:
    uint8_t byte(std::size_t offset) const { return static_cast<uint8_t>(data_[offset]); }
    const std::string& data_;
};

struct Member {
    std::string name;
    uint16_t method;
    uint32_t compressedSize;
    uint32_t size;
    uint32_t localHeader;
};

bool endsWithXml(const std::string& name) {
    if (name.size() < 4)
        return false;
    std::string tail = name.substr(name.size() - 4);
    std::transform(tail.begin(), tail.end(), tail.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return tail == ".xml";
}

} // namespace

bool ZipReader::LooksLikeZip(const std::string& data) {
    return data.size() >= 4 && static_cast<uint8_t>(data[0]) == 0x50 &&
           static_cast<uint8_t>(data[1]) == 0x4b && static_cast<uint8_t>(data[2]) == 0x03 &&
           static_cast<uint8_t>(data[3]) == 0x04;
}

std::string ZipReader::ExtractDescription(const std::string& archive) {
    const Bytes bytes(archive);
    if (archive.size() < kEndOfDirectorySize)
        damaged("too short");

    // The end-of-directory record is the last thing in the file, before a comment of at most
    // 65535 bytes.
    std::size_t end = std::string::npos;
    const std::size_t lowest = archive.size() > kEndOfDirectorySize + 0xFFFF
                                   ? archive.size() - kEndOfDirectorySize - 0xFFFF
                                   : 0;
    for (std::size_t at = archive.size() - kEndOfDirectorySize + 1; at-- > lowest;) {
        if (bytes.le32(at) == kEndOfDirectoryMagic) {
            end = at;
            break;
        }
    }
    if (end == std::string::npos)
        damaged("no end-of-directory record");
    const uint16_t entries = bytes.le16(end + 10);
    const uint32_t directorySize = bytes.le32(end + 12);
    const uint32_t directoryOffset = bytes.le32(end + 16);
    if (entries == 0)
        damaged("it holds no file");
    bytes.need(directoryOffset, directorySize, "the central directory");

    std::vector<Member> members;
    std::size_t at = directoryOffset;
    for (uint16_t i = 0; i < entries; ++i) {
        bytes.need(at, kCentralHeaderSize, "a directory entry");
        if (bytes.le32(at) != kCentralHeaderMagic)
            damaged("a directory entry has a bad signature");
        Member member;
        member.method = bytes.le16(at + 10);
        member.compressedSize = bytes.le32(at + 20);
        member.size = bytes.le32(at + 24);
        const uint16_t nameLength = bytes.le16(at + 28);
        const uint16_t extraLength = bytes.le16(at + 30);
        const uint16_t commentLength = bytes.le16(at + 32);
        member.localHeader = bytes.le32(at + 42);
        bytes.need(at + kCentralHeaderSize, nameLength, "a file name");
        member.name.assign(bytes.at(at + kCentralHeaderSize), nameLength);
        members.push_back(member);
        at += kCentralHeaderSize + nameLength + extraLength + commentLength;
    }

    auto chosen = std::find_if(members.begin(), members.end(),
                               [](const Member& m) { return endsWithXml(m.name); });
    if (chosen == members.end())
        chosen = members.begin();
    const Member& member = *chosen;

    bytes.need(member.localHeader, kLocalHeaderSize, "a file header");
    if (bytes.le32(member.localHeader) != kLocalHeaderMagic)
        damaged("the header of " + member.name + " has a bad signature");
    const std::size_t dataOffset = member.localHeader + kLocalHeaderSize +
                                   bytes.le16(member.localHeader + 26) +
                                   bytes.le16(member.localHeader + 28);
    bytes.need(dataOffset, member.compressedSize, "the data of a file");
    if (member.size > kLargestMember)
        damaged(member.name + " claims an impossible size");

    if (member.method == 0) {
        if (member.compressedSize != member.size)
            damaged("stored file " + member.name + " has inconsistent sizes");
        return std::string(bytes.at(dataOffset), member.size);
    }
    if (member.method != 8)
        damaged(member.name + " uses compression method " + std::to_string(member.method) +
                ", only stored and deflated files are read");

    std::string output(member.size, '\0');
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK)
        throw CKorvatinException("cannot start zlib", QRN_ERR_NO_MEMORY);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.at(dataOffset)));
    stream.avail_in = member.compressedSize;
    stream.next_out = reinterpret_cast<Bytef*>(output.data());
    stream.avail_out = static_cast<uInt>(output.size());
    const int result = inflate(&stream, Z_FINISH);
    const uLong produced = stream.total_out;
    inflateEnd(&stream);
    if (result != Z_STREAM_END || produced != member.size)
        damaged("the compressed data of " + member.name + " is corrupt");
    return output;
}

} // namespace korvatin
