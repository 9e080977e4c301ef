// Fetches GenICam description text from a device's URLs or from a file, unzipping as needed.
#include "genicamloader.h"

#include "gobjectref.h"
#include "korvatin/korvatinexception.h"
#include "zipreader.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace korvatin {

namespace {

constexpr uint32_t kUrlSize = 512;
// A description in device memory larger than this is a damaged URL, not a real file.
constexpr uint64_t kLargestDescription = 64u * 1024u * 1024u;

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

bool endsWith(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() &&
           lower(text.substr(text.size() - tail.size())) == lower(tail);
}

bool parseHex(const std::string& text, uint64_t* value) {
    std::string digits = text;
    digits.erase(std::remove_if(digits.begin(), digits.end(),
                                [](unsigned char c) { return std::isspace(c) != 0; }),
                 digits.end());
    if (digits.empty())
        return false;
    errno = 0;
    char* end = nullptr;
    const unsigned long long parsed = std::strtoull(digits.c_str(), &end, 16);
    if (errno != 0 || end == nullptr || *end != '\0')
        return false;
    *value = parsed;
    return true;
}

std::string unzipIfNeeded(const std::string& data, const std::string& name) {
    if (endsWith(name, ".zip") || ZipReader::LooksLikeZip(data))
        return ZipReader::ExtractDescription(data);
    return data;
}

} // namespace

std::string GenicamLoader::ReadUrl(ArvDevice* device, uint64_t urlAddress) {
    char url[kUrlSize + 1] = {};
    GErrorPtr error;
    if (!arv_device_read_memory(device, urlAddress, kUrlSize, url, Out(error)))
        throw CKorvatinException(std::string("cannot read the URL: ") +
                                     (error ? error->message : "no answer"),
                                 QRN_ERR_IO);
    url[kUrlSize] = '\0';
    return std::string(url);
}

std::string GenicamLoader::Fetch(ArvDevice* device, const std::string& url) {
    if (url.empty())
        throw CKorvatinException("the URL is empty", QRN_ERR_NOT_FOUND);
    const std::size_t colon = url.find(':');
    if (colon == std::string::npos)
        throw CKorvatinException("'" + url + "' is not a URL", QRN_ERR_INVALID);
    const std::string scheme = lower(url.substr(0, colon));
    std::string rest = url.substr(colon + 1);
    // A query such as "?SchemaVersion=1.1.0" describes the file, it does not locate it.
    const std::size_t query = rest.find('?');
    if (query != std::string::npos)
        rest.erase(query);

    if (scheme == "local") {
        while (!rest.empty() && rest[0] == '/')
            rest.erase(0, 1);
        const std::size_t first = rest.find(';');
        const std::size_t second =
            first == std::string::npos ? std::string::npos : rest.find(';', first + 1);
        uint64_t address = 0;
        uint64_t length = 0;
        if (second == std::string::npos ||
            !parseHex(rest.substr(first + 1, second - first - 1), &address) ||
            !parseHex(rest.substr(second + 1), &length))
            throw CKorvatinException("'" + url + "' is not a valid local URL", QRN_ERR_INVALID);
        const std::string name = rest.substr(0, first);
        if (length == 0 || length > kLargestDescription)
            throw CKorvatinException("'" + url + "' gives an impossible length", QRN_ERR_INVALID);
        std::string data(length, '\0');
        GErrorPtr error;
        if (!arv_device_read_memory(device, address, static_cast<guint32>(length), data.data(),
                                    Out(error)))
            throw CKorvatinException("cannot read " + name + " from the device: " +
                                         (error ? error->message : "no answer"),
                                     QRN_ERR_IO);
        // Some devices pad the file with zeros up to the advertised length.
        if (!endsWith(name, ".zip") && !ZipReader::LooksLikeZip(data)) {
            const std::size_t nul = data.find('\0');
            if (nul != std::string::npos)
                data.resize(nul);
        }
        return unzipIfNeeded(data, name);
    }
    if (scheme == "file") {
        std::string path = rest;
        // "file:///dir/name.xml" names the absolute path /dir/name.xml.
        if (path.rfind("//", 0) == 0)
            path.erase(0, 2);
        return FromFile(path.c_str());
    }
    throw CKorvatinException("the URL scheme of '" + url + "' is not supported",
                             QRN_ERR_UNSUPPORTED);
}

std::string GenicamLoader::FromFile(const char* path) {
    if (path == nullptr || path[0] == '\0')
        throw CKorvatinException("No GenICam file name was given", QRN_ERR_INVALID);
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw CKorvatinException(std::string("Cannot open the GenICam file '") + path +
                                     "': " + std::strerror(errno),
                                 QRN_ERR_NOT_FOUND);
    std::ostringstream content;
    content << file.rdbuf();
    if (file.bad())
        throw CKorvatinException(std::string("Cannot read the GenICam file '") + path + "'",
                                 QRN_ERR_IO);
    try {
        return unzipIfNeeded(content.str(), path);
    } catch (const CKorvatinException& e) {
        throw CKorvatinException(std::string("The GenICam file '") + path + "' is a " + e.what(),
                                 e.Code());
    }
}

} // namespace korvatin
