// viewlane-cli as scripts use it, against korvatin-camsim: --json documents parsed and checked
// field by field against the text form, reading while another host controls the camera, the
// error of a command that would write; the version of every program.
#include "aravisreference.h"
#include "clirun.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const char* const kAddress = "127.0.22.1";

// The one JSON object a run printed; an empty one (and a failure message) otherwise.
QJsonObject parseJson(const CliRun& run) {
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(run.out.toUtf8(), &error);
    if (error.error != QJsonParseError::NoError || !document.isObject()) {
        qWarning("not one JSON object (%s): %s", qPrintable(error.errorString()),
                 qPrintable(run.out));
        return QJsonObject();
    }
    return document.object();
}

// The text form of tree, one entry per line: indent depth and the five fields.
struct TextNode {
    int depth = 0;
    QStringList fields;
};

// Flattens a JSON tree depth first, in the order the text form prints it.
void flatten(const QJsonObject& node, int depth, QList<TextNode>* into) {
    into->append(
        TextNode{depth,
                 {node["displayName"].toString(), node["name"].toString(), node["type"].toString(),
                  node["access"].toString(), node["value"].toString()}});
    for (const QJsonValue& feature : node["features"].toArray())
        flatten(feature.toObject(), depth + 1, into);
}

} // namespace

class TestViewlaneCliScripting : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();

    void listJsonHasTheFieldsOfEveryTextLine();
    void treeJsonIsTheTextTreeNodeByNode();
    void getJsonHasTheTextValue();
    void grabJsonHasTheFiguresOfTheTextForm();
    void ipConfigJsonHasTheTextConfiguration();
    void jsonOnACommandWithoutJsonFormIsAUsageError();

    void readingCommandsWorkWhileAnotherHostControlsTheCamera();
    void writingCommandsNameTheHostThatControlsTheCamera_data();
    void writingCommandsNameTheHostThatControlsTheCamera();

    void viewerAndSimulatorPrintTheirVersions();

private:
    SimulatorProcess m_camsim;
    QTemporaryDir m_dir;
};

void TestViewlaneCliScripting::initTestCase() {
    QVERIFY(m_dir.isValid());
    QVERIFY2(m_camsim.startCamsim({"--address", kAddress}), qPrintable(m_camsim.errorString()));
}

void TestViewlaneCliScripting::listJsonHasTheFieldsOfEveryTextLine() {
    const CliRun text = RunCli({"list", "--no-header", "--timeout", "300"});
    QCOMPARE(text.exitCode, 0);
    const CliRun json = RunCli({"list", "--json", "--timeout", "300"});
    QCOMPARE(json.exitCode, 0);
    QCOMPARE(json.errLines, QStringList());
    const QJsonArray devices = parseJson(json)["devices"].toArray();
    const QStringList lines = text.out.split('\n', Qt::SkipEmptyParts);
    QVERIFY(!lines.isEmpty());
    QCOMPARE(devices.size(), lines.size());
    for (int i = 0; i < lines.size(); ++i) {
        const QStringList fields = lines[i].split('\t');
        const QJsonObject device = devices[i].toObject();
        QCOMPARE(device.size(), 6);
        QCOMPARE(device["manufacturer"].toString(), fields[0]);
        QCOMPARE(device["serial"].toString(), fields[1]);
        QCOMPARE(device["ip"].toString(), fields[2]);
        QCOMPARE(device["model"].toString(), fields[3]);
        QCOMPARE(device["mac"].toString(), fields[4]);
        QCOMPARE(device["interface"].toString(), fields[5]);
    }
    QCOMPARE(devices[0].toObject()["ip"].toString(), QString(kAddress));
}

void TestViewlaneCliScripting::treeJsonIsTheTextTreeNodeByNode() {
    const CliRun text = RunCli({"tree", kAddress});
    QCOMPARE(text.exitCode, 0);
    const CliRun json = RunCli({"tree", kAddress, "--json"});
    QCOMPARE(json.exitCode, 0);
    QCOMPARE(json.errLines, QStringList());
    QList<TextNode> nodes;
    flatten(parseJson(json)["root"].toObject(), 0, &nodes);
    const QStringList lines = text.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(nodes.size(), lines.size());
    for (int i = 0; i < lines.size(); ++i) {
        const QString& line = lines[i];
        const int indent =
            int(line.size() - QString(line).remove(QRegularExpression("^ +")).size());
        QCOMPARE(nodes[i].depth, indent / 2);
        QStringList fields = line.mid(indent).split('\t');
        // Values that change by themselves (the sensor's temperature, the timestamp) are
        // compared by presence only.
        const QString name = fields.value(1);
        if (name.contains("Temperature") || name.contains("Timestamp")) {
            QVERIFY(!nodes[i].fields[4].isEmpty());
            fields[4] = nodes[i].fields[4];
        }
        QCOMPARE(nodes[i].fields, fields);
    }
    QCOMPARE(nodes[0].fields[1], QString("Root"));
}

void TestViewlaneCliScripting::getJsonHasTheTextValue() {
    QCOMPARE(RunCli({"set", kAddress, "Width", "640"}).exitCode, 0);
    const CliRun text = RunCli({"get", kAddress, "Width"});
    const CliRun json = RunCli({"get", kAddress, "Width", "--json"});
    QCOMPARE(json.exitCode, 0);
    const QJsonObject document = parseJson(json);
    QCOMPARE(document.size(), 2);
    QCOMPARE(document["feature"].toString(), QString("Width"));
    QCOMPARE(document["value"].toString() + "\n", text.out);
    QCOMPARE(document["value"].toString(), QString("640"));
}

void TestViewlaneCliScripting::grabJsonHasTheFiguresOfTheTextForm() {
    const CliRun text = RunCli({"grab", kAddress, "--frames", "20"});
    QVERIFY2(text.exitCode == 0, qPrintable(text.errLines.join(" | ")));
    const CliRun json = RunCli({"grab", kAddress, "--frames", "20", "--json"});
    QVERIFY2(json.exitCode == 0, qPrintable(json.errLines.join(" | ")));
    const QJsonObject document = parseJson(json);
    // The same names as the text form's lines, in the JSON form's spelling.
    const QStringList textNames = {"frames received",      "frames dropped", "frames per second",
                                   "megabytes per second", "packets resent", "frames incomplete",
                                   "packets missing"};
    const QStringList jsonNames = {"framesReceived",     "framesDropped", "framesPerSecond",
                                   "megabytesPerSecond", "packetsResent", "framesIncomplete",
                                   "packetsMissing"};
    const QStringList lines = text.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), textNames.size());
    QCOMPARE(document.size(), jsonNames.size());
    for (int i = 0; i < lines.size(); ++i) {
        QVERIFY2(lines[i].startsWith(textNames[i] + ": "), qPrintable(lines[i]));
        QVERIFY2(document[jsonNames[i]].isDouble(), qPrintable(jsonNames[i]));
    }
    QVERIFY(document["framesReceived"].toInteger() >= 20);
    QVERIFY(document["framesPerSecond"].toDouble() > 0);
    QVERIFY(document["megabytesPerSecond"].toDouble() > 0);
    QVERIFY(document["framesDropped"].toInteger() >= 0);
}

void TestViewlaneCliScripting::ipConfigJsonHasTheTextConfiguration() {
    const CliRun text = RunCli({"ip-config", kAddress});
    QCOMPARE(text.exitCode, 0);
    const CliRun json = RunCli({"ip-config", kAddress, "--json"});
    QCOMPARE(json.exitCode, 0);
    const QJsonObject document = parseJson(json);
    const QStringList keys = {"dhcp",
                              "persistentIp",
                              "persistentIpAddress",
                              "persistentSubnetMask",
                              "persistentDefaultGateway",
                              "currentIpAddress",
                              "currentSubnetMask",
                              "currentDefaultGateway"};
    const QStringList lines = text.out.split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), keys.size());
    QCOMPARE(document.size(), keys.size());
    for (int i = 0; i < keys.size(); ++i) {
        const QString textValue = lines[i].section('\t', 1);
        const QJsonValue value = document[keys[i]];
        if (value.isBool())
            QCOMPARE(value.toBool() ? QString("on") : QString("off"), textValue);
        else
            QCOMPARE(value.toString(), textValue);
    }
    QCOMPARE(document["currentIpAddress"].toString(), QString(kAddress));
}

void TestViewlaneCliScripting::jsonOnACommandWithoutJsonFormIsAUsageError() {
    const CliRun run = RunCli({"set", kAddress, "Width", "640", "--json"});
    QCOMPARE(run.exitCode, 2);
    QCOMPARE(run.out, QString());
    QCOMPARE(run.errLines,
             QStringList("viewlane-cli: set has no JSON form; --json is for list, tree, get, grab "
                         "and ip-config (see viewlane-cli --help)"));
}

void TestViewlaneCliScripting::readingCommandsWorkWhileAnotherHostControlsTheCamera() {
    const CliRun treeBefore = RunCli({"tree", kAddress});
    QCOMPARE(treeBefore.exitCode, 0);
    AravisReference otherHost;
    QString error;
    QVERIFY2(otherHost.open(kAddress, &error), qPrintable(error));

    const CliRun get = RunCli({"get", kAddress, "Width"});
    QVERIFY2(get.exitCode == 0, qPrintable(get.errLines.join(" | ")));
    QCOMPARE(get.out, QString::number(otherHost.integerValue("Width")) + "\n");

    const CliRun tree = RunCli({"tree", kAddress});
    QVERIFY2(tree.exitCode == 0, qPrintable(tree.errLines.join(" | ")));
    QCOMPARE(tree.errLines, QStringList());
    QCOMPARE(tree.out.count('\n'), treeBefore.out.count('\n'));

    const CliRun describe = RunCli({"describe", kAddress, "Width"});
    QVERIFY2(describe.exitCode == 0, qPrintable(describe.errLines.join(" | ")));
    QVERIFY2(describe.out.startsWith("Name: Width\n"), qPrintable(describe.out));

    const CliRun ipConfig = RunCli({"ip-config", kAddress});
    QVERIFY2(ipConfig.exitCode == 0, qPrintable(ipConfig.errLines.join(" | ")));
    QVERIFY(ipConfig.out.contains(QString("Current IP address\t") + kAddress + "\n"));

    const QString file = m_dir.filePath("held.txt");
    const CliRun save = RunCli({"save-settings", kAddress, file});
    QVERIFY2(save.exitCode == 0, qPrintable(save.out + save.errLines.join(" | ")));
    QFile saved(file);
    QVERIFY(saved.open(QIODevice::ReadOnly));
    QVERIFY(saved.readAll().contains("\nWidth UInt32 "));
}

void TestViewlaneCliScripting::writingCommandsNameTheHostThatControlsTheCamera_data() {
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("set") << QStringList{"set", kAddress, "Width", "320"};
    QTest::newRow("ip-config writing") << QStringList{"ip-config", kAddress, "--dhcp", "off"};
    QTest::newRow("grab") << QStringList{"grab", kAddress, "--frames", "1"};
    QTest::newRow("load-settings") << QStringList{"load-settings", kAddress, "settings.txt"};
}

void TestViewlaneCliScripting::writingCommandsNameTheHostThatControlsTheCamera() {
    QFETCH(QStringList, arguments);
    if (arguments[0] == "load-settings") {
        QFile file(m_dir.filePath(arguments[2]));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("Width UInt32 320\n");
        arguments[2] = file.fileName();
    }
    const qint64 widthBefore = RunCli({"get", kAddress, "Width"}).out.trimmed().toLongLong();
    AravisReference otherHost;
    QString error;
    QVERIFY2(otherHost.open(kAddress, &error), qPrintable(error));
    const CliRun run = RunCli(arguments);
    QCOMPARE(run.exitCode, 1);
    QCOMPARE(run.out, QString());
    // The test's Aravis client reaches the simulator from the loopback's first address.
    QCOMPARE(
        run.errLines,
        QStringList(
            QString("viewlane-cli: %1 is controlled by another host (127.0.0.1)").arg(kAddress)));
    QCOMPARE(otherHost.integerValue("Width"), widthBefore);
}

void TestViewlaneCliScripting::viewerAndSimulatorPrintTheirVersions() {
    const QString cliVersion = RunCli({"--version"}).out;
    // "viewlane-cli 2.11.04 (Korvatin Viewlane), SDK Korvatin SDK 2.11.04 on Aravis 0.8.x"
    const QString sdk = cliVersion.section(", SDK ", 1);
    QVERIFY2(sdk.startsWith("Korvatin SDK 2.11.04 on Aravis 0."), qPrintable(cliVersion));

    QProcess viewer;
    viewer.start(TestNetwork::binDir() + "/viewlane", {"--version"});
    QVERIFY(viewer.waitForFinished(30000));
    QCOMPARE(viewer.exitCode(), 0);
    QCOMPARE(QString::fromLocal8Bit(viewer.readAllStandardOutput()),
             "viewlane 2.11.04 (Korvatin Viewlane), SDK " + sdk);
    QCOMPARE(viewer.readAllStandardError(), QByteArray());

    QProcess simulator;
    simulator.start(TestNetwork::binDir() + "/korvatin-camsim", {"--version"});
    QVERIFY(simulator.waitForFinished(30000));
    QCOMPARE(simulator.exitCode(), 0);
    QCOMPARE(QString::fromLocal8Bit(simulator.readAllStandardOutput()),
             QString("korvatin-camsim 2.11.04 (Korvatin Viewlane), released with Korvatin SDK "
                     "2.11.04\n"));
}

QTEST_GUILESS_MAIN(TestViewlaneCliScripting)
#include "tst_viewlanecliscripting.moc"
