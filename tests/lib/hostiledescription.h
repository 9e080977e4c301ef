// GenICam descriptions that misbehave, for the tests of what the viewer and the command line
// do with them: the simulator's own description with nodes added that read without end, list
// themselves, or fail when their type is read.
#pragma once

#include <QString>

namespace hostiledescription {

enum class Kind {
    // Under the root: HostileText, a string register at a 64-bit address whose length comes
    // from HostileLength (also at a 64-bit address), and HugeText, a string register whose
    // length is read from the device's current IP address register (0x0024): 2 GiB and more
    // for an address of 127.x.x.x.
    EndlessReads,
    // Under the root: category "Loop" listing Width and itself, and categories "Outer" and
    // "Inner" listing each other.
    CategoryCycles,
    // Under the root, last: category "Broken" with BadMin, an integer whose minimum comes from
    // a register at an address the simulator does not have, so reading its type fails.
    TypeReadFails,
};

// Writes the simulator's own description with the nodes of `kind` added to `outPath`. Returns
// false with `error` set on failure.
bool Write(Kind kind, const QString& outPath, QString* error);

} // namespace hostiledescription
