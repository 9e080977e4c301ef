// Firmware upgrade and description programming through the camera's file access, against
// korvatin-camsim (and Aravis' simulator for a camera without file access): the bytes that
// arrive, what a reset makes of them, the events, and every failure.
// Aravis (GLib) first: Qt defines "signals" as a macro, which GLib headers use as a name.
#include <arv.h>

#include "loopbackdevice.h"
#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatinexception.h>

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace {

// Every event of one transfer, in order, as the SDK reported it.
struct Events {
    QList<QPair<int, QString>> list;
    // Runs on the transfer's thread for each event, before it is recorded.
    std::function<void(int event, int value)> onEvent;

    static void Callback(void* context, int event, int value, const char* text) {
        auto* self = static_cast<Events*>(context);
        if (self->onEvent)
            self->onEvent(event, value);
        self->list.append({event, text ? QString::fromUtf8(text) : QString()});
    }
    int Count(int event) const {
        int count = 0;
        for (const auto& e : list)
            count += e.first == event ? 1 : 0;
        return count;
    }
    QString Final() const { return list.isEmpty() ? QString() : list.last().second; }
};

// `size` bytes that differ from every shifted copy of themselves.
QByteArray Pattern(int size, int seed) {
    QByteArray bytes(size, '\0');
    uint32_t state = 2463534242u + uint32_t(seed);
    for (int i = 0; i < size; ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        bytes[i] = char(state & 0xFF);
    }
    return bytes;
}

// A firmware image carrying `version` in the simulator's header.
QByteArray FirmwareImage(const QByteArray& version, int size) {
    QByteArray header("KVFW");
    header += version;
    header.append(36 - header.size(), '\0');
    return header + Pattern(size - 36, version.size());
}

QByteArray ReadAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool WriteAll(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// The simulator's own description with one more feature, "ProgrammedOnly", under Root.
QByteArray DescriptionWithExtraFeature() {
    QFile own(qEnvironmentVariable("KORVATIN_SOURCE_DIR") + "/camsim/korvatin-camsim.xml");
    if (!own.open(QIODevice::ReadOnly))
        return QByteArray();
    QByteArray xml = own.readAll();
    const int root = xml.indexOf("<Category Name=\"Root\"");
    const int firstFeature = xml.indexOf("<pFeature>", root);
    if (root < 0 || firstFeature < 0)
        return QByteArray();
    xml.insert(firstFeature, "<pFeature>ProgrammedOnly</pFeature>\n    ");
    const int end = xml.lastIndexOf("</RegisterDescription>");
    xml.insert(end, "  <Integer Name=\"ProgrammedOnly\">\n    <Value>7</Value>\n  </Integer>\n");
    return xml;
}

} // namespace

class TestSdkFirmware : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;

    // A camsim on `address` storing its files in the test's directory, and a camera connected.
    bool Start(SimulatorProcess& sim, CKorvatinCamera& camera, const QString& address,
               const QString& serial, const QStringList& extra = QStringList()) {
        if (!sim.startCamsim(
                QStringList{"--address", address, "--serial", serial, "--store", m_dir.path()} +
                extra)) {
            qWarning("%s", qPrintable(sim.errorString()));
            return false;
        }
        return Connect(camera, address);
    }
    static bool Connect(CKorvatinCamera& camera, const QString& address) {
        try {
            camera.Connect(LoopbackDevice(address.toLatin1().constData()), nullptr);
            return true;
        } catch (const std::exception& e) {
            qWarning("%s", e.what());
            return false;
        }
    }
    // Resets the camera, waits until it answers again and connects anew.
    static bool ResetAndReconnect(SimulatorProcess& sim, CKorvatinCamera& camera,
                                  const QString& address) {
        const int backBefore = sim.output().count("back on");
        camera.ExecuteCommand("DeviceReset");
        camera.Disconnect();
        if (!QTest::qWaitFor([&] { return sim.output().count("back on") > backBefore; }, 15000))
            return false;
        return Connect(camera, address);
    }
    QString Stored(const QString& serial, const char* slot) const {
        return m_dir.filePath(serial + slot);
    }
    QString File(const QString& name, const QByteArray& bytes) {
        const QString path = m_dir.filePath(name);
        return WriteAll(path, bytes) ? path : QString();
    }
    static QString Version(CKorvatinCamera& camera) {
        char text[64] = {};
        camera.GetString("DeviceFirmwareVersion", text, sizeof text);
        return QString::fromLatin1(text);
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY2(TestNetwork::isIsolated(), "these tests need their own network namespace");
        qunsetenv("QRN_DEBUG_EEPROM_UPDATE");
    }

    void imageArrivesByteForByteInBothSlots() {
        SimulatorProcess sim;
        CKorvatinCamera camera;
        QVERIFY(Start(sim, camera, "127.0.15.1", "800001"));
        const QByteArray normal = Pattern(100000, 1);
        const QByteArray alternate = Pattern(77777, 2);
        Events events;
        QCOMPARE(camera.FirmwareUpgrade(qPrintable(File("normal.bin", normal)), false,
                                        &Events::Callback, &events),
                 0);
        QCOMPARE(ReadAll(Stored("800001", "-firmware.bin")), normal);
        QVERIFY(!QFile::exists(Stored("800001", "-firmware-alternate.bin")));
        Events second;
        QCOMPARE(camera.FirmwareUpgrade(qPrintable(File("alternate.bin", alternate)), true,
                                        &Events::Callback, &second),
                 0);
        QCOMPARE(ReadAll(Stored("800001", "-firmware-alternate.bin")), alternate);
        QCOMPARE(ReadAll(Stored("800001", "-firmware.bin")), normal);
        QCOMPARE(second.Final(), QString("Firmware upgrade finished: 77777 bytes written to "
                                         "\"FirmwareAlternate\" and verified. The camera runs "
                                         "the new firmware after a reset."));
    }

    void eventsStartOnceProgressToAHundredAndEndOnce() {
        SimulatorProcess sim;
        CKorvatinCamera camera;
        QVERIFY(Start(sim, camera, "127.0.15.2", "800002"));
        Events events;
        QCOMPARE(camera.FirmwareUpgrade(qPrintable(File("events.bin", Pattern(50000, 3))), false,
                                        &Events::Callback, &events),
                 0);
        QCOMPARE(events.list.first().first, 1);
        QCOMPARE(events.Count(1), 1);
        QCOMPARE(events.Count(4), 1);
        QCOMPARE(events.list.last().first, 4);
        int previous = -1;
        for (const auto& e : events.list) {
            if (e.first != 2)
                continue;
            const int percent = e.second.toInt();
            QVERIFY2(percent > previous, qPrintable(e.second));
            previous = percent;
        }
        QCOMPARE(previous, 100);
        QCOMPARE(events.Count(3), 1);
        for (const auto& e : events.list)
            if (e.first == 3)
                QCOMPARE(e.second, QString("Verifying the 50000 bytes written to \"Firmware\"."));
    }

    void resetMakesTheCameraRunTheNewFirmware() {
        SimulatorProcess sim;
        CKorvatinCamera camera;
        QVERIFY(Start(sim, camera, "127.0.15.3", "800003"));
        QCOMPARE(Version(camera), QString("1.0.0"));
        Events events;
        QCOMPARE(camera.FirmwareUpgrade(qPrintable(File("v3.bin", FirmwareImage("3.1.4", 20000))),
                                        false, &Events::Callback, &events),
                 0);
        // Written, not yet running.
        QCOMPARE(Version(camera), QString("1.0.0"));
        // An image in the alternate slot is not the one the camera runs.
        Events alternate;
        QCOMPARE(camera.FirmwareUpgrade(qPrintable(File("v9.bin", FirmwareImage("9.9.9", 5000))),
                                        true, &Events::Callback, &alternate),
                 0);
        QVERIFY(ResetAndReconnect(sim, camera, "127.0.15.3"));
        QCOMPARE(Version(camera), QString("3.1.4"));
    }

    void programmedDescriptionIsServedAfterAReset_data() {
        QTest::addColumn<bool>("zipped");
        QTest::newRow("xml") << false;
        QTest::newRow("zip") << true;
    }

    void programmedDescriptionIsServedAfterAReset() {
        QFETCH(bool, zipped);
        const QByteArray xml = DescriptionWithExtraFeature();
        QVERIFY(!xml.isEmpty());
        const QString address = zipped ? "127.0.15.5" : "127.0.15.4";
        const QString serial = zipped ? "800005" : "800004";
        QString file = File("programmed-" + serial + ".xml", xml);
        if (zipped) {
            QProcess zip;
            zip.setWorkingDirectory(m_dir.path());
            zip.start("zip", {"-q", "programmed.zip", QFileInfo(file).fileName()});
            QVERIFY(zip.waitForFinished(30000));
            QCOMPARE(zip.exitCode(), 0);
            file = m_dir.filePath("programmed.zip");
        }
        SimulatorProcess sim;
        CKorvatinCamera camera;
        QVERIFY(Start(sim, camera, address, serial));
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera.GetInt32("ProgrammedOnly"));
        Events events;
        QCOMPARE(camera.ProgramXML(qPrintable(file), &Events::Callback, &events), 0);
        QVERIFY2(events.Final().startsWith("XML programming finished: "),
                 qPrintable(events.Final()));
        QCOMPARE(ReadAll(Stored(serial, zipped ? "-description.zip" : "-description.xml")),
                 ReadAll(file));
        QVERIFY(ResetAndReconnect(sim, camera, address));
        QCOMPARE(camera.GetInt32("ProgrammedOnly"), 7);
    }

    void failuresEndOnceWithTheirTextAndLeaveTheStoredFileAsItWas_data() {
        QTest::addColumn<QStringList>("camsimOptions");
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("text");
        QTest::newRow("no such file")
            << QStringList() << "missing.bin" << int(QRN_ERR_NOT_FOUND)
            << "Firmware upgrade failed: cannot open \"%1\": No such file or directory";
        QTest::newRow("empty file") << QStringList() << "empty.bin" << int(QRN_ERR_INVALID)
                                    << "Firmware upgrade failed: \"%1\" is empty";
        QTest::newRow("larger than the slot")
            << QStringList{"--slot-size", "12000"} << "large.bin" << int(QRN_ERR_RANGE)
            << "Firmware upgrade failed: \"%1\" (20000 bytes) is larger than the camera's file "
               "\"Firmware\" (12000 bytes)";
        QTest::newRow("write refused")
            << QStringList{"--fail-write-at", "9000"} << "refused.bin" << int(QRN_ERR_IO)
            << "Firmware upgrade failed: the camera refused the write of 4096 bytes at offset "
               "8192";
    }

    void failuresEndOnceWithTheirTextAndLeaveTheStoredFileAsItWas() {
        QFETCH(QStringList, camsimOptions);
        QFETCH(QString, file);
        QFETCH(int, code);
        QFETCH(QString, text);
        static int run = 0;
        const QString serial = QString::number(800010 + run);
        const QString address = "127.0.15." + QString::number(10 + run++);
        SimulatorProcess sim;
        CKorvatinCamera camera;
        QVERIFY(Start(sim, camera, address, serial, camsimOptions));
        // What the camera holds before: a small image that fits every slot.
        const QByteArray before = Pattern(3000, 7);
        Events first;
        QCOMPARE(camera.FirmwareUpgrade(qPrintable(File("before.bin", before)), false,
                                        &Events::Callback, &first),
                 0);
        QString path = m_dir.filePath(file);
        if (file == "empty.bin")
            QVERIFY(WriteAll(path, QByteArray()));
        else if (file != "missing.bin")
            QVERIFY(WriteAll(path, Pattern(20000, 8)));
        Events events;
        QCOMPARE(int(camera.FirmwareUpgrade(qPrintable(path), false, &Events::Callback, &events)),
                 code);
        QCOMPARE(events.Count(1), 1);
        QCOMPARE(events.Count(4), 1);
        QCOMPARE(events.list.last().first, 4);
        QCOMPARE(events.Final(), text.contains("%1") ? text.arg(path) : text);
        QCOMPARE(ReadAll(Stored(serial, "-firmware.bin")), before);
        // The camera is left usable: the same slot takes the next image.
        Events after;
        QCOMPARE(camera.FirmwareUpgrade(qPrintable(File("after.bin", Pattern(2000, 9))), false,
                                        &Events::Callback, &after),
                 0);
    }

    void notADescriptionNeverReachesTheCamera() {
        SimulatorProcess sim;
        CKorvatinCamera camera;
        QVERIFY(Start(sim, camera, "127.0.15.20", "800020"));
        const QString path = File("notxml.xml", "this is no GenICam description\n");
        Events events;
        QCOMPARE(int(camera.ProgramXML(qPrintable(path), &Events::Callback, &events)),
                 int(QRN_ERR_INVALID));
        QVERIFY2(events.Final().startsWith("XML programming failed: \"" + path +
                                           "\" is not a GenICam description this SDK can load: "),
                 qPrintable(events.Final()));
        QCOMPARE(events.Count(4), 1);
        QVERIFY(!QFile::exists(Stored("800020", "-description.xml")));
    }

    void cameraWithoutFileAccessIsToldApart() {
        SimulatorProcess sim;
        QVERIFY2(sim.startAravisFake("127.0.15.21"), qPrintable(sim.errorString()));
        CKorvatinCamera camera;
        QVERIFY(Connect(camera, "127.0.15.21"));
        Events events;
        QCOMPARE(int(camera.FirmwareUpgrade(qPrintable(File("any.bin", Pattern(100, 1))), false,
                                            &Events::Callback, &events)),
                 int(QRN_ERR_UNSUPPORTED));
        QCOMPARE(events.Final(),
                 QString("Firmware upgrade failed: the camera has no file access (it lacks "
                         "FileSelector)"));
        QCOMPARE(events.Count(4), 1);
    }

    void withoutAConnectionNothingIsSent() {
        CKorvatinCamera camera;
        Events events;
        QCOMPARE(int(camera.ProgramXML(qPrintable(File("alone.xml", DescriptionWithExtraFeature())),
                                       &Events::Callback, &events)),
                 int(QRN_ERR_NOT_CONNECTED));
        QCOMPARE(events.Final(), QString("XML programming failed: no camera is connected"));
        QCOMPARE(events.Count(4), 1);
    }

    void cameraLostMidTransferEndsTheJobAndKeepsTheStoredFile() {
        SimulatorProcess sim;
        CKorvatinCamera camera;
        QVERIFY(Start(sim, camera, "127.0.15.22", "800022"));
        const QByteArray before = Pattern(5000, 11);
        Events first;
        QCOMPARE(camera.FirmwareUpgrade(qPrintable(File("kept.bin", before)), false,
                                        &Events::Callback, &first),
                 0);
        // The transfer waits at 10 % until the camera is gone, so the loss falls mid-transfer.
        std::mutex mutex;
        std::condition_variable wake;
        bool reached = false;
        bool killed = false;
        Events events;
        events.onEvent = [&](int event, int value) {
            if (event != 2 || value < 10)
                return;
            std::unique_lock<std::mutex> lock(mutex);
            if (reached)
                return;
            reached = true;
            wake.notify_all();
            wake.wait(lock, [&] { return killed; });
        };
        const QString path = File("lost.bin", Pattern(400000, 12));
        QRN_ERROR result = 0;
        std::thread transfer([&] {
            result = camera.FirmwareUpgrade(qPrintable(path), false, &Events::Callback, &events);
        });
        {
            std::unique_lock<std::mutex> lock(mutex);
            wake.wait(lock, [&] { return reached; });
        }
        sim.kill();
        {
            std::lock_guard<std::mutex> lock(mutex);
            killed = true;
        }
        wake.notify_all();
        transfer.join();
        QCOMPARE(int(result), int(QRN_ERR_TIMEOUT));
        QVERIFY2(events.Final().startsWith("Firmware upgrade failed: the camera stopped "
                                           "answering at offset "),
                 qPrintable(events.Final()));
        QCOMPARE(events.Count(4), 1);
        QCOMPARE(ReadAll(Stored("800022", "-firmware.bin")), before);
    }

    void debugVariableZeroChecksAndWritesNothing() {
        SimulatorProcess sim;
        CKorvatinCamera camera;
        QVERIFY(Start(sim, camera, "127.0.15.23", "800023"));
        const QString path = File("dry.bin", Pattern(9000, 13));
        qputenv("QRN_DEBUG_EEPROM_UPDATE", "0");
        Events events;
        const QRN_ERROR result =
            camera.FirmwareUpgrade(qPrintable(path), false, &Events::Callback, &events);
        qunsetenv("QRN_DEBUG_EEPROM_UPDATE");
        QCOMPARE(int(result), 0);
        QCOMPARE(events.Final(), "Firmware upgrade finished: \"" + path +
                                     "\" (9000 bytes) checked; nothing was written to the "
                                     "camera (QRN_DEBUG_EEPROM_UPDATE=0).");
        QCOMPARE(events.Count(2), 0);
        QVERIFY(!QFile::exists(Stored("800023", "-firmware.bin")));
        // Set to 1, the variable changes nothing: the image is written.
        qputenv("QRN_DEBUG_EEPROM_UPDATE", "1");
        Events written;
        const QRN_ERROR second =
            camera.FirmwareUpgrade(qPrintable(path), false, &Events::Callback, &written);
        qunsetenv("QRN_DEBUG_EEPROM_UPDATE");
        QCOMPARE(int(second), 0);
        QCOMPARE(ReadAll(Stored("800023", "-firmware.bin")), ReadAll(path));
    }
};

QTEST_GUILESS_MAIN(TestSdkFirmware)
#include "tst_sdkfirmware.moc"
