// GenICam descriptions with many features, for feature-tree tests and benchmarks.
#include "bulkdescription.h"

#include "testnetwork.h"

#include <QFile>

#include <algorithm>

namespace bulkdescription {
namespace {

// The simulator's file-access buffer: 4096 bytes of plain read-write registers.
constexpr unsigned kBufferAddress = 0x11000;
constexpr int kBufferWords = 1024;
constexpr int kGroupSize = 50;

// A register node of `kind` (IntReg, FloatReg or StringReg) at `address`; `extra` lines come
// first (a display name for a register that is a feature itself).
QString Register(const QString& name, unsigned address, const QString& kind,
                 const QString& extra = QString()) {
    QString xml = QString("  <%1 Name=\"%2\">\n%3    <Address>0x%4</Address>\n"
                          "    <Length>4</Length>\n    <AccessMode>RW</AccessMode>\n"
                          "    <pPort>Device</pPort>\n")
                      .arg(kind, name, extra)
                      .arg(address, 0, 16);
    if (kind == "IntReg")
        xml += "    <Sign>Unsigned</Sign>\n";
    if (kind != "StringReg")
        xml += "    <Endianess>BigEndian</Endianess>\n";
    return xml + QString("  </%1>\n").arg(kind);
}

} // namespace

QString BuiltInPath() {
    return TestNetwork::sourceDir() + "/camsim/korvatin-camsim.xml";
}

bool Write(const QString& builtInPath, const QString& outPath, int count, QString* error,
           Counts* counts) {
    QFile in(builtInPath);
    if (!in.open(QIODevice::ReadOnly)) {
        *error = "cannot read " + builtInPath;
        return false;
    }
    QString xml = QString::fromUtf8(in.readAll());
    const QString rootEnd = "<pFeature>SimulationControl</pFeature>\n  </Category>";
    if (!xml.contains(rootEnd) || !xml.contains("</RegisterDescription>")) {
        *error = "unexpected layout of " + builtInPath;
        return false;
    }
    xml.replace(rootEnd, "<pFeature>SimulationControl</pFeature>\n"
                         "    <pFeature>BulkFeatures</pFeature>\n  </Category>");

    Counts made;
    const int groups = (count + kGroupSize - 1) / kGroupSize;
    QString nodes =
        "  <Category Name=\"BulkFeatures\">\n    <DisplayName>Bulk Features</DisplayName>\n";
    for (int g = 0; g < groups; ++g)
        nodes += QString("    <pFeature>BulkGroup%1</pFeature>\n").arg(g);
    nodes += "  </Category>\n";
    for (int g = 0; g < groups; ++g) {
        nodes +=
            QString(
                "  <Category Name=\"BulkGroup%1\">\n    <DisplayName>Bulk Group %1</DisplayName>\n")
                .arg(g);
        for (int i = g * kGroupSize; i < std::min(count, (g + 1) * kGroupSize); ++i)
            nodes += QString("    <pFeature>Bulk%1</pFeature>\n").arg(i);
        nodes += "  </Category>\n";
    }
    for (int i = 0; i < count; ++i) {
        const QString name = QString("Bulk%1").arg(i);
        const QString reg = name + "Reg";
        const unsigned address = kBufferAddress + 4u * unsigned(i % kBufferWords);
        const QString head = QString("    <DisplayName>Bulk Feature %1</DisplayName>\n").arg(i);
        switch (i % 5) {
        case 0:
            nodes += QString("  <Integer Name=\"%1\">\n%2    <pValue>%3</pValue>\n"
                             "    <Min>0</Min>\n    <Max>1000000</Max>\n    <Inc>1</Inc>\n"
                             "  </Integer>\n")
                         .arg(name, head, reg);
            nodes += Register(reg, address, "IntReg");
            ++made.integers;
            break;
        case 1:
            nodes += QString("  <Boolean Name=\"%1\">\n%2    <pValue>%3</pValue>\n"
                             "    <OnValue>1</OnValue>\n    <OffValue>0</OffValue>\n"
                             "  </Boolean>\n")
                         .arg(name, head, reg);
            nodes += Register(reg, address, "IntReg");
            ++made.booleans;
            break;
        case 2:
            nodes += QString("  <Enumeration Name=\"%1\">\n%2"
                             "    <EnumEntry Name=\"%1Off\">\n      <Value>0</Value>\n"
                             "    </EnumEntry>\n"
                             "    <EnumEntry Name=\"%1On\">\n      <Value>1</Value>\n"
                             "    </EnumEntry>\n"
                             "    <pValue>%3</pValue>\n  </Enumeration>\n")
                         .arg(name, head, reg);
            nodes += Register(reg, address, "IntReg");
            ++made.enumerations;
            break;
        case 3:
            nodes += QString("  <Float Name=\"%1\">\n%2    <pValue>%3</pValue>\n"
                             "    <Min>0</Min>\n    <Max>100</Max>\n    <Unit>ms</Unit>\n"
                             "  </Float>\n")
                         .arg(name, head, reg);
            nodes += Register(reg, address, "FloatReg");
            ++made.floats;
            break;
        default:
            // A string register is its own feature.
            nodes += Register(name, address, "StringReg", head);
            ++made.strings;
            break;
        }
    }
    made.groups = groups;
    xml.replace("</RegisterDescription>", nodes + "</RegisterDescription>");

    QFile out(outPath);
    if (!out.open(QIODevice::WriteOnly) || out.write(xml.toUtf8()) < 0) {
        *error = "cannot write " + outPath;
        return false;
    }
    if (counts)
        *counts = made;
    return true;
}

} // namespace bulkdescription
