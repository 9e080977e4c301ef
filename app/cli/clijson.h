// The --json form of viewlane-cli's results: one JSON document on standard output per command.
#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

#include <iosfwd>
#include <string>

// Commands build their result as a QJsonObject with the fields of their text form and hand it
// here, so every command prints the same way.
class CCliJson {
public:
    // Writes `document` as indented JSON, ending with a line break.
    static void Write(std::ostream& out, const QJsonObject& document);
    // A text of the SDK or of the command line (local 8-bit encoding) as a JSON string.
    static QString Text(const std::string& text);
};
