// GenICam descriptions that misbehave, built from the simulator's own description.
#include "hostiledescription.h"

#include "bulkdescription.h"

#include <QFile>

namespace hostiledescription {

namespace {

struct Addition {
    const char* rootFeatures; // pFeature lines placed first (or last) in the root category
    bool last;
    const char* nodes;
};

Addition additionFor(Kind kind) {
    switch (kind) {
    case Kind::EndlessReads:
        return {
            "<pFeature>HostileText</pFeature><pFeature>HugeText</pFeature>", false,
            R"(<StringReg Name="HostileText"><Address>0x6100000000000</Address><pLength>HostileLength</pLength><AccessMode>RO</AccessMode><pPort>Device</pPort><Cachable>NoCache</Cachable></StringReg>
<IntReg Name="HostileLength"><Address>0x6100000000400</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort><Cachable>NoCache</Cachable><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>
<StringReg Name="HugeText"><Address>0x00000048</Address><pLength>HugeLength</pLength><AccessMode>RO</AccessMode><pPort>Device</pPort><Cachable>NoCache</Cachable></StringReg>
<IntReg Name="HugeLength"><Address>0x00000024</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort><Cachable>NoCache</Cachable><Sign>Unsigned</Sign><Endianess>BigEndian</Endianess></IntReg>
)"};
    case Kind::CategoryCycles:
        return {
            "<pFeature>Loop</pFeature><pFeature>Outer</pFeature>", false,
            R"(<Category Name="Loop"><pFeature>Width</pFeature><pFeature>Loop</pFeature></Category>
<Category Name="Outer"><pFeature>Inner</pFeature></Category>
<Category Name="Inner"><pFeature>Height</pFeature><pFeature>Outer</pFeature></Category>
)"};
    case Kind::TypeReadFails:
        return {"<pFeature>Broken</pFeature>", true,
                R"(<Category Name="Broken"><pFeature>BadMin</pFeature></Category>
<Integer Name="BadMin"><Value>5</Value><pMin>BadMinReg</pMin><Max>10</Max></Integer>
<IntReg Name="BadMinReg"><Address>0x00EE0000</Address><Length>4</Length><AccessMode>RO</AccessMode><pPort>Device</pPort><Cachable>NoCache</Cachable><Sign>Signed</Sign><Endianess>BigEndian</Endianess></IntReg>
)"};
    }
    return {"", false, ""};
}

} // namespace

bool Write(Kind kind, const QString& outPath, QString* error) {
    QFile in(bulkdescription::BuiltInPath());
    if (!in.open(QIODevice::ReadOnly)) {
        *error = "cannot read " + in.fileName();
        return false;
    }
    QByteArray xml = in.readAll();
    const Addition addition = additionFor(kind);
    const int root = xml.indexOf("<Category Name=\"Root\"");
    const int place =
        addition.last ? xml.indexOf("</Category>", root) : xml.indexOf("<pFeature>", root);
    const int end = xml.lastIndexOf("</RegisterDescription>");
    if (root < 0 || place < 0 || end < 0) {
        *error = "the simulator's description has no root category";
        return false;
    }
    xml.insert(end, addition.nodes);
    xml.insert(place, addition.rootFeatures);
    QFile out(outPath);
    if (!out.open(QIODevice::WriteOnly) || out.write(xml) != xml.size()) {
        *error = "cannot write " + outPath;
        return false;
    }
    return true;
}

} // namespace hostiledescription
