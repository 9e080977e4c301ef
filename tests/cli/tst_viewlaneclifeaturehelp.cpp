// viewlane-cli describe and tree --visibility against korvatin-camsim serving its own
// description and Aravis' fake camera description, checked against the descriptions' text and
// against Aravis reading the same device.
#include "aravisfeaturefacts.h"
#include "clirun.h"
#include "featuredescriptions.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QXmlStreamReader>
#include <QtTest>

namespace {

const char* const kAddress = "127.0.20.11";
const char* const kVendorAddress = "127.0.20.12";

// describe's "Label: text" lines as a map.
QMap<QString, QString> fieldsOf(const QString& out) {
    QMap<QString, QString> fields;
    for (const QString& line : out.split('\n', Qt::SkipEmptyParts)) {
        const qsizetype colon = line.indexOf(": ");
        if (colon > 0)
            fields.insert(line.left(colon), line.mid(colon + 2));
    }
    return fields;
}

// The feature names tree prints (its second tab-separated field).
QStringList treeNames(const QString& out) {
    QStringList names;
    for (const QString& line : out.split('\n', Qt::SkipEmptyParts)) {
        const QStringList fields = line.trimmed().split('\t');
        if (fields.size() >= 2)
            names << fields[1];
    }
    return names;
}

int visibilityRank(const QString& word) {
    static const QStringList kOrder{"Beginner", "Expert", "Guru", "Invisible"};
    return int(kOrder.indexOf(word));
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace

class TestViewlaneCliFeatureHelp : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    SimulatorProcess m_sim;
    QMap<QString, featuredescriptions::Feature> m_own;

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(m_sim.startCamsim({"--address", kAddress}), qPrintable(m_sim.errorString()));
        m_own = featuredescriptions::Parse(
            readFile(TestNetwork::sourceDir() + "/camsim/korvatin-camsim.xml"));
        QVERIFY(m_own.size() > 50);
    }

    void describeShowsIpv4AddressesDotted() {
        const CliRun run = RunCli({"describe", kAddress, "GevCurrentIPAddress"});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join('\n')));
        const auto fields = fieldsOf(run.out);
        QCOMPARE(fields.value("Name"), QString("GevCurrentIPAddress"));
        QCOMPARE(fields.value("Address"), QString(kAddress));
        QCOMPARE(fields.value("Representation"), QString("IPV4Address"));
        QCOMPARE(fields.value("Tool tip"), m_own.value("GevCurrentIPAddress").toolTip);
        QCOMPARE(fields.value("Visibility"), m_own.value("GevCurrentIPAddress").visibility);
        // One field a line, nothing else.
        QCOMPARE(fields.size(), run.out.count('\n'));
    }

    void describeShowsMacAddressesInColonForm() {
        const CliRun list = RunCli({"list", "--no-header"});
        QVERIFY2(list.exitCode == 0, qPrintable(list.errLines.join('\n')));
        QString mac;
        for (const QString& line : list.out.split('\n', Qt::SkipEmptyParts)) {
            const QStringList fields = line.split('\t');
            if (fields.size() >= 5 && fields[2] == kAddress)
                mac = fields[4];
        }
        QVERIFY2(!mac.isEmpty(), qPrintable(list.out));
        const CliRun run = RunCli({"describe", kAddress, "GevMACAddress"});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join('\n')));
        QCOMPARE(fieldsOf(run.out).value("Address"), mac.replace('-', ':').toLower());
        QCOMPARE(fieldsOf(run.out).value("Representation"), QString("MACAddress"));
    }

    void describeShowsRangeAndIncrementAsAravisReadsThem() {
        const CliRun run = RunCli({"describe", kAddress, "Width"});
        QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join('\n')));
        const auto fields = fieldsOf(run.out);

        int64_t minimum = 0, maximum = 0, increment = 0;
        QString error;
        QVERIFY2(
            aravisfacts::IntegerBounds(kAddress, "Width", &minimum, &maximum, &increment, &error),
            qPrintable(error));

        QCOMPARE(fields.value("Range"), QString("%1 .. %2").arg(minimum).arg(maximum));
        QCOMPARE(fields.value("Increment"), QString::number(increment));
        QCOMPARE(fields.value("Type"), QString("UInt32"));
        QCOMPARE(fields.value("Access"), QString("RW"));
        QCOMPARE(fields.value("Tool tip"), m_own.value("Width").toolTip);
    }

    void describeOfAnUnknownFeatureFails() {
        const CliRun run = RunCli({"describe", kAddress, "NoSuchFeature"});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.isEmpty());
        QVERIFY(run.errLines.join('\n').contains("NoSuchFeature"));
    }

    // Aravis' fake camera description, written by others, served by the simulator: every
    // feature with a description text says it.
    void describeShowsTheTextsOfAVendorDescription() {
        const QByteArray xml = aravisfacts::FakeCameraXml();
        const QString path = m_dir.filePath("aravis-fake.xml");
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(xml) == xml.size());
        file.close();

        SimulatorProcess vendor;
        QVERIFY2(vendor.startCamsim({"--address", kVendorAddress, "--description", path}),
                 qPrintable(vendor.errorString()));
        const QMap<QString, featuredescriptions::Feature> features =
            featuredescriptions::Parse(xml);
        const QStringList reachable = treeNames(RunCli({"tree", kVendorAddress}).out);
        int described = 0;
        for (auto it = features.begin(); it != features.end(); ++it) {
            if (!reachable.contains(it.key()))
                continue;
            if (it->toolTip.isEmpty() && it->description.isEmpty())
                continue;
            const CliRun run = RunCli({"describe", kVendorAddress, it.key()});
            QVERIFY2(run.exitCode == 0, qPrintable(it.key() + ": " + run.errLines.join('\n')));
            const auto fields = fieldsOf(run.out);
            QCOMPARE(fields.value("Name"), it.key());
            if (!it->toolTip.isEmpty())
                QCOMPARE(fields.value("Tool tip"), it->toolTip);
            if (!it->description.isEmpty() && it->description != it->toolTip)
                QCOMPARE(fields.value("Description"), it->description);
            QCOMPARE(fields.value("Visibility"), it->visibility);
            ++described;
        }
        QVERIFY2(described >= 10, qPrintable(QString::number(described)));
    }

    void treeVisibilityLeavesOutFeaturesAboveTheLevel() {
        const CliRun all = RunCli({"tree", kAddress});
        QVERIFY2(all.exitCode == 0, qPrintable(all.errLines.join('\n')));
        const QStringList everyName = treeNames(all.out);
        QList<QStringList> levels;
        for (const char* level : {"beginner", "expert", "guru"}) {
            const CliRun run = RunCli({"tree", kAddress, "--visibility", level});
            QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join('\n')));
            levels << treeNames(run.out);
        }
        for (int level = 0; level < 3; ++level) {
            for (const QString& name : levels[level]) {
                QVERIFY2(visibilityRank(m_own.value(name).visibility) <= level,
                         qPrintable(name + " shown at level " + QString::number(level)));
                QVERIFY(everyName.contains(name));
            }
            // Each level shows all of the one below it.
            if (level > 0)
                for (const QString& name : levels[level - 1])
                    QVERIFY2(levels[level].contains(name), qPrintable(name));
        }
        QVERIFY(!levels[0].contains("GevMACAddress"));
        QVERIFY(levels[1].contains("GevMACAddress"));
        QVERIFY(levels[0].size() < levels[1].size());
        QVERIFY(levels[1].size() < levels[2].size());
        // Without the option every feature is there, the invisible ones too.
        QVERIFY(levels[2].size() < everyName.size());
    }

    void treeRefusesAnUnknownVisibility() {
        const CliRun run = RunCli({"tree", kAddress, "--visibility", "novice"});
        QCOMPARE(run.exitCode, 2);
        QVERIFY(run.errLines.join('\n').contains("--visibility"));
    }
};

QTEST_GUILESS_MAIN(TestViewlaneCliFeatureHelp)
#include "tst_viewlaneclifeaturehelp.moc"
