// Environment helpers of the SDK.
#include "korvatin/qrnutil.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

std::string CQrnUtil::GetEnv(const char* name, bool* found) {
    const char* value = name != nullptr ? std::getenv(name) : nullptr;
    if (found != nullptr)
        *found = value != nullptr;
    return value != nullptr ? std::string(value) : std::string();
}

int CQrnUtil::EnvToInt(const char* name, int defaultValue) {
    bool found = false;
    const std::string text = GetEnv(name, &found);
    if (!found || text.empty())
        return defaultValue;
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 0);
    // Trailing blanks are tolerated; anything else makes the text "not a number".
    while (end != nullptr && (*end == ' ' || *end == '\t' || *end == '\n' || *end == '\r'))
        ++end;
    if (errno != 0 || end == text.c_str() || (end != nullptr && *end != '\0') || value < INT_MIN ||
        value > INT_MAX)
        return defaultValue;
    return static_cast<int>(value);
}
