// GenICam descriptions from files: plain XML, zipped (stored and deflated), and broken files.
// Aravis (GLib) first: Qt defines "signals" as a macro, which GLib headers use as a name.
#include <arv.h>

#include "simulatorprocess.h"
#include "testnetwork.h"

#include <korvatin/korvatincamera.h>

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

namespace {

constexpr const char* kAddress = "127.0.0.91";

QString sourceXml() {
    return TestNetwork::sourceDir() + "/tests/sdk/data/nodemapping.xml";
}

QByteArray local(const QString& path) {
    return path.toLocal8Bit();
}

// Writes `data` into the memory of the device at `address` through Aravis, as a configuration
// tool would, then gives control back.
bool writeDeviceMemory(const char* address,
                       std::initializer_list<std::pair<guint64, QByteArray>> blocks) {
    GInetAddress* interfaceAddress = g_inet_address_new_from_string(address);
    GInetAddress* deviceAddress = g_inet_address_new_from_string(address);
    GError* error = nullptr;
    ArvDevice* device = arv_gv_device_new(interfaceAddress, deviceAddress, &error);
    g_object_unref(interfaceAddress);
    g_object_unref(deviceAddress);
    bool written = device != nullptr && error == nullptr;
    for (const auto& [memoryAddress, data] : blocks) {
        QByteArray copy = data;
        written = written &&
                  arv_device_write_memory(device, memoryAddress, copy.size(), copy.data(), nullptr);
    }
    if (error != nullptr)
        g_error_free(error);
    if (device != nullptr)
        g_object_unref(device);
    return written;
}

QByteArray urlBlock(const QByteArray& url) {
    QByteArray block = url;
    block.resize(512, '\0');
    return block;
}

} // namespace

class TestSdkDescriptionFile : public QObject {
    Q_OBJECT

private:
    SimulatorProcess fake_;
    GigEVisionDeviceInfo device_{};
    QTemporaryDir dir_;

    // Zips `file` into `archive` with the zip tool; `stored` keeps the data uncompressed.
    void makeZip(const QString& file, const QString& archive, bool stored) {
        if (QStandardPaths::findExecutable("zip").isEmpty())
            QSKIP("the zip tool is not installed, so no archive can be made for this test");
        QProcess zip;
        zip.setWorkingDirectory(QFileInfo(file).absolutePath());
        QStringList arguments{"-q", "-j"};
        if (stored)
            arguments << "-0";
        arguments << archive << file;
        zip.start("zip", arguments);
        QVERIFY(zip.waitForFinished(10000));
        QCOMPARE(zip.exitCode(), 0);
    }

    QString writeFile(const QString& name, const QByteArray& content) {
        const QString path = dir_.filePath(name);
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly))
            return QString();
        file.write(content);
        return path;
    }

    static QByteArray readAll(const QString& path) {
        QFile file(path);
        file.open(QIODevice::ReadOnly);
        return file.readAll();
    }

    // Connects with `path` and returns the exception text, or an empty text when it worked.
    QString connectError(const QString& path) {
        CKorvatinCamera camera;
        try {
            camera.Connect(device_, local(path).constData());
        } catch (const CKorvatinException& e) {
            if (camera.IsConnected())
                return "connected although it failed";
            qInfo("%s", e.what());
            return QString::fromLocal8Bit(e.what());
        }
        return QString();
    }

private slots:
    void initTestCase() {
        if (!TestNetwork::isIsolated())
            QSKIP("needs a private network namespace for Aravis' fake camera (run through ctest "
                  "as root)");
        QVERIFY(dir_.isValid());
        QVERIFY2(fake_.startAravisFake(kAddress, "SN0091"), qPrintable(fake_.errorString()));
        GigEVisionDeviceInfo found[2];
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        settings.interfaceAddress = kAddress;
        unsigned int count = 0;
        CKorvatinCamera::ListDevices(found, 2, &count, &settings);
        QCOMPARE(count, 1u);
        device_ = found[0];
    }

    void plainXmlFileIsLoaded() {
        CKorvatinCamera camera;
        camera.Connect(device_, local(sourceXml()).constData());
        QCOMPARE(camera.XmlIndexLoaded(), 0);
        QCOMPARE(camera.GetNodeByName("GainValue").DataType(), QRN_PARAM_FLOAT);
        // The fake's own features are not in this description.
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera.GetNodeByName("Width"));
    }

    void deflatedZipIsLoaded() {
        const QString archive = dir_.filePath("deflated.zip");
        makeZip(sourceXml(), archive, false);
        QVERIFY(readAll(archive).size() < readAll(sourceXml()).size());
        CKorvatinCamera camera;
        camera.Connect(device_, local(archive).constData());
        QCOMPARE(camera.GetNodeByName("SignedValue").DataType(), QRN_PARAM_INT32);
        QCOMPARE(camera.GetInt32("SignedValue"), -5);
    }

    void storedZipIsLoaded() {
        const QString archive = dir_.filePath("stored.zip");
        makeZip(sourceXml(), archive, true);
        CKorvatinCamera camera;
        camera.Connect(device_, local(archive).constData());
        QCOMPARE(camera.GetUInt32("UnsignedValue"), 10u);
    }

    void treeIsReplacedFromFile() {
        CKorvatinCamera camera;
        camera.Connect(device_, nullptr);
        QCOMPARE(camera.GetNodeByName("Width").DataType(), QRN_PARAM_UINT32);
        CKorvatinGenICamNodeT oldWidth = camera.GetNodeByName("Width");
        camera.CreateGeniCamTreeFromFile(local(sourceXml()).constData());
        QCOMPARE(camera.GetNodeByName("LabelText").DataType(), QRN_PARAM_STRING);
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera.GetNodeByName("Width"));
        // A handle on the replaced description fails cleanly.
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, oldWidth.GetUInt32());
        // A broken file leaves the current description in place.
        const QString broken = writeFile("replace-broken.xml", "<RegisterDescription><Cat");
        QVERIFY_THROWS_EXCEPTION(CKorvatinException,
                                 camera.CreateGeniCamTreeFromFile(local(broken).constData()));
        QCOMPARE(camera.GetNodeByName("LabelText").DataType(), QRN_PARAM_STRING);
    }

    void deviceDescriptionComesFromSecondUrlWhenFirstFails() {
        SimulatorProcess fake;
        QVERIFY2(fake.startAravisFake("127.0.0.92", "SN0092"), qPrintable(fake.errorString()));
        GigEVisionDeviceInfo found[2];
        ListDevicesSettings settings{};
        settings.timeoutMs = 300;
        settings.interfaceAddress = "127.0.0.92";
        unsigned int count = 0;
        CKorvatinCamera::ListDevices(found, 2, &count, &settings);
        QCOMPARE(count, 1u);

        // The fake's own URL moves to the second slot; the first names a file that is not there.
        CKorvatinCamera camera;
        camera.Connect(found[0], nullptr);
        QCOMPARE(camera.XmlIndexLoaded(), 0);
        camera.Disconnect();
        GInetAddress* address = g_inet_address_new_from_string("127.0.0.92");
        ArvDevice* reader = arv_gv_device_new(address, address, nullptr);
        g_object_unref(address);
        QVERIFY(reader != nullptr);
        QByteArray original(512, '\0');
        QVERIFY(arv_device_read_memory(reader, 0x200, 512, original.data(), nullptr));
        g_object_unref(reader);
        original.truncate(original.indexOf('\0'));
        QVERIFY2(original.startsWith("Local:"), original.constData());
        QVERIFY(writeDeviceMemory("127.0.0.92",
                                  {{0x200, urlBlock("File:/nonexistent/korvatin/missing.xml")},
                                   {0x400, urlBlock(original)}}));
        camera.Connect(found[0], nullptr);
        QCOMPARE(camera.XmlIndexLoaded(), 1);
        QCOMPARE(camera.GetNodeByName("Width").DataType(), QRN_PARAM_UINT32);
        camera.Disconnect();

        // A zipped description in device memory, named by the first URL.
        const QString archive = dir_.filePath("device.zip");
        makeZip(sourceXml(), archive, false);
        const QByteArray zipped = readAll(archive);
        QVERIFY(zipped.size() < 0x8000);
        const QByteArray url =
            QString("Local:nodemapping.zip;8000;%1").arg(zipped.size(), 0, 16).toLatin1();
        QVERIFY(writeDeviceMemory("127.0.0.92", {{0x8000, zipped}, {0x200, urlBlock(url)}}));
        camera.Connect(found[0], nullptr);
        QCOMPARE(camera.XmlIndexLoaded(), 0);
        QCOMPARE(camera.GetNodeByName("LabelText").DataType(), QRN_PARAM_STRING);
        QVERIFY_THROWS_EXCEPTION(CKorvatinException, camera.GetNodeByName("Width"));
    }

    void truncatedXmlGivesClearError() {
        const QByteArray xml = readAll(sourceXml());
        const QString path = writeFile("truncated.xml", xml.left(xml.size() / 2));
        const QString error = connectError(path);
        QVERIFY2(error.contains("truncated.xml") && error.contains("not a valid GenICam XML"),
                 qPrintable(error));
    }

    void zipWithGarbageGivesClearError() {
        QByteArray garbage("PK\x03\x04", 4);
        for (int i = 0; i < 4000; ++i)
            garbage.append(char((i * 7919 + 13) & 0xFF));
        const QString path = writeFile("garbage.zip", garbage);
        const QString error = connectError(path);
        QVERIFY2(error.contains("garbage.zip") && error.contains("damaged zip archive"),
                 qPrintable(error));
    }

    void zipWithCorruptDataGivesClearError() {
        const QString archive = dir_.filePath("corrupt.zip");
        makeZip(sourceXml(), archive, false);
        QByteArray bytes = readAll(archive);
        // Overwrite the middle of the compressed data; the directories stay intact.
        for (int i = bytes.size() / 3; i < bytes.size() / 3 + 200; ++i)
            bytes[i] = char(0xA5);
        const QString path = writeFile("corrupt-data.zip", bytes);
        const QString error = connectError(path);
        QVERIFY2(error.contains("corrupt-data.zip") && error.contains("damaged zip archive"),
                 qPrintable(error));
    }

    void truncatedZipGivesClearError() {
        const QString archive = dir_.filePath("whole.zip");
        makeZip(sourceXml(), archive, false);
        const QByteArray bytes = readAll(archive);
        const QString path = writeFile("cut.zip", bytes.left(bytes.size() - 30));
        const QString error = connectError(path);
        QVERIFY2(error.contains("cut.zip") && error.contains("damaged zip archive"),
                 qPrintable(error));
    }

    void emptyAndMissingFilesGiveClearErrors() {
        const QString empty = writeFile("empty.xml", QByteArray());
        QString error = connectError(empty);
        QVERIFY2(error.contains("empty.xml") && error.contains("empty"), qPrintable(error));
        error = connectError(dir_.filePath("nowhere.xml"));
        QVERIFY2(error.contains("nowhere.xml") && error.startsWith("Cannot open"),
                 qPrintable(error));
        const QString notGenicam = writeFile("other.xml", "<?xml version=\"1.0\"?><html></html>");
        error = connectError(notGenicam);
        QVERIFY2(error.contains("other.xml") && error.contains("not a valid GenICam XML"),
                 qPrintable(error));
    }
};

QTEST_GUILESS_MAIN(TestSdkDescriptionFile)
#include "tst_sdkdescriptionfile.moc"
