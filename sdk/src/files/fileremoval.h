// Removing what a failed write left behind.
#pragma once

#include <sys/stat.h>

#include <cstdio>

namespace korvatin {

// Removes `fileName` when it is a regular file: a part written by a failed save or recording is
// no picture or film, while a name such as a device's must stay.
inline void RemoveIfRegularFile(const char* fileName) {
    struct stat status {};
    if (::stat(fileName, &status) == 0 && S_ISREG(status.st_mode))
        std::remove(fileName);
}

} // namespace korvatin
