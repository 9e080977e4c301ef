// GenICam descriptions with many features, for feature-tree tests and benchmarks: the simulator's
// own description with a category of extra features added, each backed by a register of the
// simulator's file-access buffer, so that every one is read over the control channel and the
// camera still streams as usual.
#pragma once

#include <QString>

namespace bulkdescription {

// Features of the added category, by kind, for `count` features: they cycle through Integer,
// Boolean, Enumeration, Float and String.
struct Counts {
    int integers = 0;
    int booleans = 0;
    int enumerations = 0;
    int floats = 0;
    int strings = 0;
    int groups = 0; // nested categories holding them, 50 features each
};

// Writes the description read from `builtInPath` with `count` features added under a top-level
// category "Bulk Features" to `outPath`. Returns false with `error` set on failure.
bool Write(const QString& builtInPath, const QString& outPath, int count, QString* error,
           Counts* counts = nullptr);

// The simulator's own description in the source tree.
QString BuiltInPath();

} // namespace bulkdescription
