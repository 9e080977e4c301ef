// The texts a GenICam description gives its features (ToolTip, Description, Visibility), read
// straight from the XML: what the feature help must show.
#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QXmlStreamReader>

namespace featuredescriptions {

// Per feature of a description: its ToolTip, Description and Visibility elements.
struct Feature {
    QString element;
    QString toolTip;
    QString description;
    QString visibility = "Beginner";
};

inline QMap<QString, Feature> Parse(const QByteArray& xml) {
    static const QStringList kFeatureElements{
        "Category",      "Integer", "IntReg",   "MaskedIntReg", "IntConverter",
        "IntSwissKnife", "Float",   "FloatReg", "Converter",    "SwissKnife",
        "Boolean",       "Command", "String",   "StringReg",    "Enumeration"};
    QMap<QString, Feature> features;
    QXmlStreamReader reader(xml);
    QString current;
    int depth = 0, featureDepth = -1;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement()) {
            ++depth;
            const QString element = reader.name().toString();
            if (kFeatureElements.contains(element) && reader.attributes().hasAttribute("Name")) {
                current = reader.attributes().value("Name").toString();
                featureDepth = depth;
                features[current].element = element;
                const QString tip = reader.attributes().value("ToolTip").toString();
                if (!tip.isEmpty())
                    features[current].toolTip = tip;
            } else if (!current.isEmpty() && depth == featureDepth + 1) {
                if (element == "ToolTip") {
                    features[current].toolTip = reader.readElementText().trimmed();
                    --depth;
                } else if (element == "Description") {
                    features[current].description = reader.readElementText().trimmed();
                    --depth;
                } else if (element == "Visibility") {
                    features[current].visibility = reader.readElementText().trimmed();
                    --depth;
                }
            }
        } else if (reader.isEndElement()) {
            if (depth == featureDepth) {
                current.clear();
                featureDepth = -1;
            }
            --depth;
        }
    }
    return features;
}

} // namespace featuredescriptions
