// Environment helpers of the SDK.
#pragma once

#include <string>

class CQrnUtil {
public:
    // The variable's value; `found` tells whether it is set at all.
    static std::string GetEnv(const char* name, bool* found = nullptr);
    // The variable as an integer (decimal, 0x hex or 0 octal); `defaultValue` when it is unset
    // or not a number.
    static int EnvToInt(const char* name, int defaultValue = -1);
};
