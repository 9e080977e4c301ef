// The --json form of viewlane-cli's results: one JSON document on standard output per command.
#include "clijson.h"

#include <QJsonDocument>

#include <ostream>

void CCliJson::Write(std::ostream& out, const QJsonObject& document) {
    const QByteArray text = QJsonDocument(document).toJson(QJsonDocument::Indented);
    out.write(text.constData(), text.size());
}

QString CCliJson::Text(const std::string& text) {
    return QString::fromLocal8Bit(text.data(), qsizetype(text.size()));
}
