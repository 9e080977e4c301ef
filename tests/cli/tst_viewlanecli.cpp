// viewlane-cli as a user runs it: list, tree, get and set against Aravis' simulator.
#include "aravisreference.h"
#include "clirun.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QRegularExpression>
#include <QXmlStreamReader>
#include <QtTest>

#include <cmath>

namespace {

const char* const kAddress = "127.0.0.51";
const char* const kSerial = "CLI51";
// The first line of list's text form.
const char* const kListHeader = "MANUFACTURER\tSERIAL\tIP\tMODEL\tMAC\tINTERFACE\n";

using Run = CliRun;

// Every feature name reachable from Root through the categories of a description, in order.
QStringList featureNamesFromRoot(const QByteArray& xml) {
    QMap<QString, QStringList> categories;
    QXmlStreamReader reader(xml);
    QString category;
    while (!reader.atEnd()) {
        reader.readNext();
        if (reader.isStartElement() && reader.name() == QLatin1String("Category")) {
            category = reader.attributes().value("Name").toString();
            categories[category];
        } else if (reader.isEndElement() && reader.name() == QLatin1String("Category")) {
            category.clear();
        } else if (reader.isStartElement() && reader.name() == QLatin1String("pFeature") &&
                   !category.isEmpty()) {
            categories[category].append(reader.readElementText().trimmed());
        }
    }
    QStringList names;
    std::function<void(const QString&, QStringList&)> walk = [&](const QString& name,
                                                                 QStringList& path) {
        names.append(name);
        if (!categories.contains(name) || path.contains(name))
            return;
        path.append(name);
        for (const QString& feature : categories.value(name))
            walk(feature, path);
        path.removeLast();
    };
    QStringList path;
    walk("Root", path);
    return names;
}

QString expectedTypeWord(const AravisReference::Feature& feature) {
    if (feature.integer)
        return feature.signedInt ? "Int32" : "UInt32";
    static const QMap<QString, QString> words{
        {"Category", "Category"}, {"Enumeration", "Enumeration"}, {"Command", "Command"},
        {"Boolean", "Boolean"},   {"String", "String"},           {"StringReg", "String"},
        {"Float", "Float"},       {"FloatReg", "Float"},          {"Converter", "Float"},
        {"SwissKnife", "Float"},
    };
    // Registers, ports and the like have no value type of their own.
    return words.value(feature.element, "Other");
}

} // namespace

class TestViewlaneCli : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanupTestCase();

    void listWithNoDeviceExitsZeroAndPrintsNothing();
    void listPrintsTheDeviceWithSixTabSeparatedFields();
    void listHonoursInterfaceBroadcastAndTimeoutOptions();
    void treePrintsEveryFeatureOfTheDescription();
    void treeShowsTypesAccessModesAndValuesAsAravisReadsThem();
    void setThenGetRoundTrips_data();
    void setThenGetRoundTrips();
    void setIsSeenByAnotherClient();
    void deviceCanBeNamedBySerialIpOrMac();
    void unknownDeviceGivesOneLineAndNonzeroExit();
    void unknownFeatureGivesOneLineAndNonzeroExit();
    void outOfRangeValueGivesOneLineAndNonzeroExit_data();
    void outOfRangeValueGivesOneLineAndNonzeroExit();
    void wrongTypeValueGivesOneLineAndNonzeroExit_data();
    void wrongTypeValueGivesOneLineAndNonzeroExit();
    void readOnlyFeatureGivesOneLineAndNonzeroExit_data();
    void readOnlyFeatureGivesOneLineAndNonzeroExit();
    void badUsageGivesOneLineAndNonzeroExit_data();
    void badUsageGivesOneLineAndNonzeroExit();
    void fileNamesThatSayNoFormatAreRefusedWithTheReason();
    void versionPrintsTheProgramsAndTheSdksVersions();
    void helpPrintsUsageAndExitsZero();
    void treeWalksEveryNodeKindOfTheProjectsSimulator();

private:
    Run cli(const QStringList& arguments);
    void verifyOneErrorLine(const Run& run, const QString& expectedPart);
    bool ensureFake();
    // The Aravis view of the device, taken while the CLI does not hold it.
    bool takeReference(QByteArray* xml, QList<AravisReference::Feature>* features);

    SimulatorProcess fake_;
};

#define REQUIRE_FAKE() QVERIFY2(ensureFake(), qPrintable(fake_.errorString()))

void TestViewlaneCli::initTestCase() {
    if (!TestNetwork::isIsolated())
        QSKIP("viewlane-cli is tested in a private network namespace only (run through ctest as "
              "root), so that its discovery stays off networks the project does not own");
    QVERIFY2(QFile::exists(TestNetwork::binDir() + "/viewlane-cli"),
             qPrintable(TestNetwork::binDir() + "/viewlane-cli is not built"));
}

void TestViewlaneCli::cleanupTestCase() {
    fake_.stop();
}

bool TestViewlaneCli::ensureFake() {
    return fake_.isRunning() || fake_.startAravisFake(kAddress, kSerial);
}

bool TestViewlaneCli::takeReference(QByteArray* xml, QList<AravisReference::Feature>* features) {
    AravisReference reference;
    QString error;
    if (!reference.open(kAddress, &error)) {
        qWarning("%s", qPrintable(error));
        return false;
    }
    if (xml)
        *xml = reference.genicamXml();
    if (features)
        *features = reference.featuresFromRoot();
    return true;
}

Run TestViewlaneCli::cli(const QStringList& arguments) {
    return RunCli(arguments);
}

void TestViewlaneCli::verifyOneErrorLine(const Run& run, const QString& expectedPart) {
    QVERIFY2(run.exitCode != 0, qPrintable("exit code " + QString::number(run.exitCode)));
    QVERIFY2(run.errLines.size() == 1, qPrintable(run.errLines.join(" | ")));
    QVERIFY2(run.errLines[0].contains(expectedPart, Qt::CaseInsensitive),
             qPrintable(run.errLines[0]));
    QVERIFY2(run.out.isEmpty(), qPrintable(run.out));
}

void TestViewlaneCli::listWithNoDeviceExitsZeroAndPrintsNothing() {
    QVERIFY(!fake_.isRunning());
    Run run = cli({"list", "--timeout", "300"});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QString(kListHeader));
    QCOMPARE(run.errLines, QStringList());
    run = cli({"list", "--no-header", "--timeout", "300"});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.out, QString());
}

void TestViewlaneCli::listPrintsTheDeviceWithSixTabSeparatedFields() {
    REQUIRE_FAKE();
    QList<AravisReference::Feature> features;
    QVERIFY(takeReference(nullptr, &features));
    QString vendor;
    QString model;
    for (const auto& feature : features) {
        if (feature.name == "DeviceVendorName")
            vendor = feature.value;
        if (feature.name == "DeviceModelName")
            model = feature.value;
    }
    QVERIFY(!vendor.isEmpty());

    const Run run = cli({"list", "--timeout", "500"});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.errLines, QStringList());
    const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines[0] + '\n', QString(kListHeader));
    const QStringList fields = lines[1].split('\t');
    QCOMPARE(fields.size(), 6);
    QCOMPARE(fields[0], vendor);
    QCOMPARE(fields[1], QString(kSerial));
    QCOMPARE(fields[2], QString(kAddress));
    QCOMPARE(fields[3], model);
    static const QRegularExpression mac("^([0-9a-f]{2}-){5}[0-9a-f]{2}$");
    QVERIFY2(mac.match(fields[4]).hasMatch(), qPrintable(fields[4]));
    static const QRegularExpression ipv4("^\\d+\\.\\d+\\.\\d+\\.\\d+$");
    QVERIFY2(ipv4.match(fields[5]).hasMatch(), qPrintable(fields[5]));
    QVERIFY(fields[5].startsWith("127."));
}

void TestViewlaneCli::listHonoursInterfaceBroadcastAndTimeoutOptions() {
    REQUIRE_FAKE();
    Run run = cli({"list", "--broadcast", "--timeout=400"});
    QCOMPARE(run.exitCode, 0);
    QVERIFY2(run.out.contains(QString("\t") + kSerial + "\t"), qPrintable(run.out));

    // An interface this host does not have is an error, not an empty list.
    run = cli({"list", "--interface", "10.255.255.1", "--timeout", "200"});
    verifyOneErrorLine(run, "10.255.255.1");
}

void TestViewlaneCli::treePrintsEveryFeatureOfTheDescription() {
    REQUIRE_FAKE();
    QByteArray xml;
    QVERIFY(takeReference(&xml, nullptr));
    const QStringList expected = featureNamesFromRoot(xml);
    QVERIFY(expected.size() > 10);

    const Run run = cli({"tree", kSerial, "--timeout", "500"});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.errLines, QStringList());
    QStringList names;
    for (const QString& line : run.out.split('\n', Qt::SkipEmptyParts)) {
        const QStringList fields = line.trimmed().split('\t');
        QVERIFY2(fields.size() >= 2, qPrintable(line));
        names << fields[1];
    }
    QCOMPARE(names, expected);
}

void TestViewlaneCli::treeShowsTypesAccessModesAndValuesAsAravisReadsThem() {
    REQUIRE_FAKE();
    QList<AravisReference::Feature> features;
    QVERIFY(takeReference(nullptr, &features));

    const Run run = cli({"tree", kAddress, "--timeout", "500"});
    QCOMPARE(run.exitCode, 0);
    const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), features.size());
    for (int i = 0; i < lines.size(); ++i) {
        const AravisReference::Feature& feature = features[i];
        const QString& line = lines[i];
        const QString indent(feature.depth * 2, ' ');
        QVERIFY2(line.startsWith(indent) && line[indent.size()] != ' ', qPrintable(line));
        const QStringList fields = line.mid(indent.size()).split('\t');
        QVERIFY2(fields.size() == 5, qPrintable(line));
        QVERIFY2(!fields[0].isEmpty(), qPrintable(line));
        QCOMPARE(fields[1], feature.name);
        QCOMPARE(fields[2], expectedTypeWord(feature));
        QCOMPARE(fields[3], feature.access);
        const QString& value = fields[4];
        if (fields[2] == "Category" || fields[2] == "Command") {
            QVERIFY2(value.isEmpty(), qPrintable(line));
        } else if (feature.access != "RO" && feature.access != "RW") {
            QCOMPARE(value, "not readable (access mode " + feature.access + ")");
        } else if (!feature.readable) {
            // The error's text stands in for the value.
            QVERIFY2(!value.isEmpty(), qPrintable(line));
        } else if (fields[2] == "Float") {
            const QString unit = feature.unit.isEmpty() ? QString() : " " + feature.unit;
            QVERIFY2(value.endsWith(unit), qPrintable(line));
            bool ok = false;
            const double number = value.left(value.size() - unit.size()).toDouble(&ok);
            QVERIFY2(ok, qPrintable(line));
            QVERIFY2(std::fabs(number - feature.floatValue) <=
                         1e-9 * std::max(1.0, std::fabs(feature.floatValue)),
                     qPrintable(line));
        } else {
            QCOMPARE(value, feature.value);
        }
    }
}

void TestViewlaneCli::setThenGetRoundTrips_data() {
    QTest::addColumn<QString>("feature");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("expected");
    QTest::newRow("UInt32 in decimal") << "Width"
                                       << "320"
                                       << "320";
    QTest::newRow("UInt32 in hex") << "Height"
                                   << "0x100"
                                   << "256";
    QTest::newRow("UInt32 register") << "TestRegister"
                                     << "0x1234abcd"
                                     << "305441741";
    QTest::newRow("integer outside the tree") << "GainRaw"
                                              << "7"
                                              << "7";
    QTest::newRow("enumeration") << "AcquisitionMode"
                                 << "SingleFrame"
                                 << "SingleFrame";
    QTest::newRow("float") << "ExposureTimeAbs"
                           << "2500"
                           << "2500";
}

void TestViewlaneCli::setThenGetRoundTrips() {
    QFETCH(QString, feature);
    QFETCH(QString, value);
    QFETCH(QString, expected);
    REQUIRE_FAKE();
    Run run = cli({"set", kSerial, feature, value, "--timeout", "400"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QCOMPARE(run.out, QString());
    QCOMPARE(run.errLines, QStringList());
    run = cli({"get", kSerial, feature, "--timeout", "400"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    QCOMPARE(run.errLines, QStringList());
    QCOMPARE(run.out, expected + "\n");
}

void TestViewlaneCli::setIsSeenByAnotherClient() {
    REQUIRE_FAKE();
    const Run run = cli({"set", kSerial, "Width", "448", "--timeout", "400"});
    QVERIFY2(run.exitCode == 0, qPrintable(run.errLines.join(" | ")));
    AravisReference reference;
    QString error;
    QVERIFY2(reference.open(kAddress, &error), qPrintable(error));
    QCOMPARE(reference.integerValue("Width"), qint64(448));
}

void TestViewlaneCli::deviceCanBeNamedBySerialIpOrMac() {
    REQUIRE_FAKE();
    const Run list = cli({"list", "--no-header", "--timeout", "400"});
    const QStringList fields = list.out.trimmed().split('\t');
    QCOMPARE(fields.size(), 6);
    const QString mac = fields[4];
    QString macColons = mac.toUpper();
    macColons.replace('-', ':');
    for (const QString& device : {QString(kSerial), QString(kAddress), mac, macColons}) {
        const Run run = cli({"get", device, "SensorWidth", "--timeout", "400"});
        QVERIFY2(run.exitCode == 0, qPrintable(device + ": " + run.errLines.join(" | ")));
        QVERIFY2(run.out.trimmed().toInt() > 0, qPrintable(run.out));
    }
}

void TestViewlaneCli::unknownDeviceGivesOneLineAndNonzeroExit() {
    REQUIRE_FAKE();
    verifyOneErrorLine(cli({"get", "NOSUCHSERIAL", "Width", "--timeout", "300"}), "unknown device");
    verifyOneErrorLine(cli({"tree", "127.0.0.99", "--timeout", "300"}), "unknown device");
    verifyOneErrorLine(cli({"set", "00-11-22-33-44-55", "Width", "64", "--timeout", "300"}),
                       "unknown device");
}

void TestViewlaneCli::unknownFeatureGivesOneLineAndNonzeroExit() {
    REQUIRE_FAKE();
    verifyOneErrorLine(cli({"get", kSerial, "NoSuchFeature", "--timeout", "400"}),
                       "unknown feature");
    verifyOneErrorLine(cli({"set", kSerial, "NoSuchFeature", "1", "--timeout", "400"}),
                       "unknown feature");
}

void TestViewlaneCli::outOfRangeValueGivesOneLineAndNonzeroExit_data() {
    QTest::addColumn<QString>("feature");
    QTest::addColumn<QString>("value");
    QTest::newRow("above the maximum") << "Width"
                                       << "999999";
    QTest::newRow("below the minimum") << "Width"
                                       << "0";
    QTest::newRow("beyond 32 bits") << "OffsetX"
                                    << "0x1ffffffff";
    QTest::newRow("float below the minimum") << "ExposureTimeAbs"
                                             << "1";
}

void TestViewlaneCli::outOfRangeValueGivesOneLineAndNonzeroExit() {
    QFETCH(QString, feature);
    QFETCH(QString, value);
    REQUIRE_FAKE();
    const QString before = cli({"get", kSerial, feature, "--timeout", "400"}).out;
    QVERIFY(!before.isEmpty());
    verifyOneErrorLine(cli({"set", kSerial, feature, value, "--timeout", "400"}), "range");
    // The feature kept its value.
    QCOMPARE(cli({"get", kSerial, feature, "--timeout", "400"}).out, before);
}

void TestViewlaneCli::wrongTypeValueGivesOneLineAndNonzeroExit_data() {
    QTest::addColumn<QString>("feature");
    QTest::addColumn<QString>("value");
    QTest::newRow("word for an integer") << "Width"
                                         << "abc";
    QTest::newRow("fraction for an integer") << "Width"
                                             << "12.5";
    QTest::newRow("negative for an unsigned integer") << "Width"
                                                      << "-5";
    QTest::newRow("no entry of the enumeration") << "AcquisitionMode"
                                                 << "NoSuchMode";
    QTest::newRow("word for a float") << "ExposureTimeAbs"
                                      << "fast";
    QTest::newRow("value for a command") << "AcquisitionStop"
                                         << "later";
    QTest::newRow("value for a category") << "ImageFormatControl"
                                          << "1";
}

void TestViewlaneCli::wrongTypeValueGivesOneLineAndNonzeroExit() {
    QFETCH(QString, feature);
    QFETCH(QString, value);
    REQUIRE_FAKE();
    const Run run = cli({"set", kSerial, feature, "--timeout", "400", "--", value});
    verifyOneErrorLine(run, feature);
}

void TestViewlaneCli::readOnlyFeatureGivesOneLineAndNonzeroExit_data() {
    QTest::addColumn<QString>("feature");
    QTest::addColumn<QString>("value");
    QTest::newRow("read-only string") << "DeviceVendorName"
                                      << "Someone";
    QTest::newRow("read-only integer") << "SensorWidth"
                                       << "100";
}

void TestViewlaneCli::readOnlyFeatureGivesOneLineAndNonzeroExit() {
    QFETCH(QString, feature);
    QFETCH(QString, value);
    REQUIRE_FAKE();
    const QString before = cli({"get", kSerial, feature, "--timeout", "400"}).out;
    verifyOneErrorLine(cli({"set", kSerial, feature, value, "--timeout", "400"}), "not writable");
    QCOMPARE(cli({"get", kSerial, feature, "--timeout", "400"}).out, before);
}

void TestViewlaneCli::badUsageGivesOneLineAndNonzeroExit_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("no command") << QStringList();
    QTest::newRow("unknown command") << QStringList{"frobnicate"};
    QTest::newRow("get without a feature") << QStringList{"get", kSerial};
    QTest::newRow("set without a value") << QStringList{"set", kSerial, "Width"};
    QTest::newRow("list with an argument") << QStringList{"list", "extra"};
    QTest::newRow("unknown option") << QStringList{"list", "--colour"};
    QTest::newRow("timeout not a number") << QStringList{"list", "--timeout", "soon"};
    QTest::newRow("timeout without value") << QStringList{"list", "--timeout"};
    QTest::newRow("record to a file that is not .avi")
        << QStringList{"record", kSerial, "out.mp4", "--frames", "5"};
    QTest::newRow("save-frame to an unknown extension")
        << QStringList{"save-frame", kSerial, "x.png"};
}

void TestViewlaneCli::badUsageGivesOneLineAndNonzeroExit() {
    QFETCH(QStringList, arguments);
    const Run run = cli(arguments);
    QVERIFY2(run.exitCode != 0, qPrintable(run.out));
    QVERIFY2(run.errLines.size() == 1, qPrintable(run.errLines.join(" | ")));
    QVERIFY(run.errLines[0].contains("--help"));
    QCOMPARE(run.out, QString());
}

void TestViewlaneCli::fileNamesThatSayNoFormatAreRefusedWithTheReason() {
    Run run = cli({"record", kSerial, "out.mp4", "--frames", "5"});
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.errLines, QStringList{"viewlane-cli: record writes AVI files only: \"out.mp4\" "
                                       "does not end in .avi (see viewlane-cli --help)"});
    run = cli({"save-frame", kSerial, "x.png"});
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.errLines,
             QStringList{"viewlane-cli: save-frame cannot tell the file format from \"x.png\": "
                         "name the file .raw, .tif or .bmp, or give --format (see viewlane-cli "
                         "--help)"});
}

void TestViewlaneCli::versionPrintsTheProgramsAndTheSdksVersions() {
    const Run run = cli({"--version"});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.errLines, QStringList());
    QVERIFY2(run.out.startsWith("viewlane-cli 2.11.04 (Korvatin Viewlane), SDK Korvatin SDK "
                                "2.11.04 on Aravis 0."),
             qPrintable(run.out));
    QVERIFY(run.out.endsWith('\n'));
    QCOMPARE(run.out.count('\n'), 1);
}

void TestViewlaneCli::helpPrintsUsageAndExitsZero() {
    const Run run = cli({"--help"});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.errLines, QStringList());
    for (const char* word : {"list", "tree DEVICE", "get DEVICE FEATURE",
                             "set DEVICE FEATURE VALUE", "--interface", "--broadcast", "--timeout"})
        QVERIFY2(run.out.contains(word), word);
}

// The project's simulator has every kind of node: signed integers, floats with units, booleans,
// write-only and unavailable features, nested categories, long display names, values that do
// not fit in 32 bits. The tree shows all of them with the types and access modes Aravis sees.
void TestViewlaneCli::treeWalksEveryNodeKindOfTheProjectsSimulator() {
    const QString camsim = TestNetwork::binDir() + "/korvatin-camsim";
    if (!QFile::exists(camsim))
        QSKIP("korvatin-camsim is not built");
    SimulatorProcess simulator;
    QString error;
    QVERIFY2(TestNetwork::addLoopbackAddress("127.0.0.52", &error), qPrintable(error));
    QVERIFY2(simulator.startCamsim({"--address", "127.0.0.52", "--serial", "CS52"}),
             qPrintable(simulator.errorString()));
    QList<AravisReference::Feature> features;
    QByteArray xml;
    {
        AravisReference reference;
        QVERIFY2(reference.open("127.0.0.52", &error), qPrintable(error));
        xml = reference.genicamXml();
        features = reference.featuresFromRoot();
    }
    const QStringList expected = featureNamesFromRoot(xml);

    const Run run = cli({"tree", "CS52", "--timeout", "500"});
    QCOMPARE(run.exitCode, 0);
    QCOMPARE(run.errLines, QStringList());
    const QStringList lines = run.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), features.size());
    QStringList names;
    QSet<QString> types;
    QSet<QString> accessModes;
    for (int i = 0; i < lines.size(); ++i) {
        const AravisReference::Feature& feature = features[i];
        const QString indent(feature.depth * 2, ' ');
        QVERIFY2(lines[i].startsWith(indent) && lines[i][indent.size()] != ' ',
                 qPrintable(lines[i]));
        const QStringList fields = lines[i].mid(indent.size()).split('\t');
        QVERIFY2(fields.size() == 5, qPrintable(lines[i]));
        names << fields[1];
        QCOMPARE(fields[1], feature.name);
        QCOMPARE(fields[2], expectedTypeWord(feature));
        QCOMPARE(fields[3], feature.access);
        const bool hasValue =
            fields[2] != "Category" && fields[2] != "Command" && fields[2] != "Other";
        if (hasValue && (feature.access == "RO" || feature.access == "RW") && fields[2] != "String")
            QVERIFY2(!fields[4].isEmpty(), qPrintable(lines[i]));
        types << fields[2];
        accessModes << fields[3];
    }
    QCOMPARE(names, expected);
    // The 48-bit MAC is shown as its number, the same one Aravis reads.
    const int macLine = names.indexOf("GevMACAddress");
    QVERIFY(macLine >= 0);
    QCOMPARE(lines[macLine].trimmed().split('\t').value(4), features[macLine].value);
    for (const char* type :
         {"UInt32", "Int32", "Boolean", "Command", "Float", "String", "Enumeration", "Category"})
        QVERIFY2(types.contains(type), type);
    for (const char* access : {"RO", "RW", "WO"})
        QVERIFY2(accessModes.contains(access), access);
}

QTEST_GUILESS_MAIN(TestViewlaneCli)
#include "tst_viewlanecli.moc"
