// Files sent through File Access Control with Aravis: firmware to --store, description served.
#include "aravishost.h"
#include "gvcpclient.h"
#include "simulatorprocess.h"

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

class TestCamsimFileAccess : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void firmwareWrittenThroughFileAccessArrivesInStore_data();
    void firmwareWrittenThroughFileAccessArrivesInStore();
    void writtenFileReadsBack();
    void operationsOnAClosedFileFail();
    void descriptionWrittenToItsSlotIsServedAfterReset();

private:
    bool runOperation(CAravisHost& host, const char* operation, QString* error);
    void writeFile(CAravisHost& host, const char* slot, const QByteArray& content);

    QTemporaryDir store_;
};

void TestCamsimFileAccess::initTestCase() {
    QVERIFY(store_.isValid());
}

bool TestCamsimFileAccess::runOperation(CAravisHost& host, const char* operation, QString* error) {
    if (!host.setString("FileOperationSelector", operation, error) ||
        !host.execute("FileOperationExecute", error))
        return false;
    return host.string("FileOperationStatus", error) == "Success";
}

void TestCamsimFileAccess::writeFile(CAravisHost& host, const char* slot,
                                     const QByteArray& content) {
    QString error;
    QVERIFY2(host.setString("FileSelector", slot, &error), qPrintable(error));
    QVERIFY(host.setString("FileOpenMode", "Write"));
    QVERIFY2(runOperation(host, "Open", &error), qPrintable(error));
    ArvGcRegister* buffer = ARV_GC_REGISTER(host.node("FileAccessBuffer"));
    const int chunk = int(arv_gc_register_get_length(buffer, nullptr));
    QCOMPARE(chunk, 4096);
    for (int offset = 0; offset < content.size(); offset += chunk) {
        QByteArray piece = content.mid(offset, chunk);
        const int length = piece.size();
        piece.resize(chunk, '\0');
        CGError e;
        arv_gc_register_set(buffer, piece.constData(), guint64(chunk), e.out());
        QVERIFY2(!e.isSet(), qPrintable(e.message()));
        QVERIFY(host.setInteger("FileAccessOffset", offset));
        QVERIFY(host.setInteger("FileAccessLength", length));
        QVERIFY2(runOperation(host, "Write", &error), qPrintable(error));
        QCOMPARE(host.integer("FileOperationResult"), qint64(length));
    }
    QVERIFY2(runOperation(host, "Close", &error), qPrintable(error));
    QCOMPARE(host.integer("FileSize"), qint64(content.size()));
}

void TestCamsimFileAccess::firmwareWrittenThroughFileAccessArrivesInStore_data() {
    QTest::addColumn<QString>("slot");
    QTest::addColumn<QString>("storedName");
    QTest::addColumn<int>("size");
    QTest::newRow("normal slot") << "Firmware"
                                 << "400200-firmware.bin" << 100003;
    QTest::newRow("alternate slot") << "FirmwareAlternate"
                                    << "400200-firmware-alternate.bin" << 4096;
}

void TestCamsimFileAccess::firmwareWrittenThroughFileAccessArrivesInStore() {
    QFETCH(QString, slot);
    QFETCH(QString, storedName);
    QFETCH(int, size);
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim(
                 {"--address", "127.0.17.1", "--serial", "400200", "--store", store_.path()}),
             qPrintable(simulator.errorString()));
    CAravisHost host;
    QString error;
    QVERIFY2(host.open("127.0.17.1", &error), qPrintable(error));
    QByteArray image(size, '\0');
    QRandomGenerator random{quint32(size)};
    for (char& c : image)
        c = char(random.bounded(256));
    writeFile(host, slot.toLatin1().constData(), image);
    QFile stored(store_.filePath(storedName));
    QVERIFY2(stored.open(QIODevice::ReadOnly), qPrintable(stored.fileName()));
    QCOMPARE(stored.readAll(), image);
}

void TestCamsimFileAccess::writtenFileReadsBack() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.17.2"}),
             qPrintable(simulator.errorString()));
    CAravisHost host;
    QString error;
    QVERIFY2(host.open("127.0.17.2", &error), qPrintable(error));
    const QByteArray content = QByteArray("firmware image ").repeated(700);
    writeFile(host, "Firmware", content);
    QVERIFY(host.setString("FileOpenMode", "Read"));
    QVERIFY2(runOperation(host, "Open", &error), qPrintable(error));
    QByteArray readBack;
    ArvGcRegister* buffer = ARV_GC_REGISTER(host.node("FileAccessBuffer"));
    for (int offset = 0; offset < content.size(); offset += 4096) {
        QVERIFY(host.setInteger("FileAccessOffset", offset));
        QVERIFY(host.setInteger("FileAccessLength", 4096));
        QVERIFY2(runOperation(host, "Read", &error), qPrintable(error));
        const int count = int(host.integer("FileOperationResult"));
        QByteArray piece(4096, '\0');
        arv_gc_register_get(buffer, piece.data(), 4096, nullptr);
        readBack += piece.left(count);
    }
    QVERIFY2(runOperation(host, "Close", &error), qPrintable(error));
    QCOMPARE(readBack, content);
}

void TestCamsimFileAccess::operationsOnAClosedFileFail() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.17.3"}),
             qPrintable(simulator.errorString()));
    CAravisHost host;
    QString error;
    QVERIFY2(host.open("127.0.17.3", &error), qPrintable(error));
    QVERIFY(host.setString("FileSelector", "Firmware"));
    QVERIFY(host.setInteger("FileAccessLength", 16));
    QVERIFY(!runOperation(host, "Write", &error));
    QCOMPARE(host.string("FileOperationStatus"), QString("Failure"));
    QVERIFY(!runOperation(host, "Close", &error));
    QVERIFY(host.setString("FileOpenMode", "Read"));
    QVERIFY(runOperation(host, "Open", &error));
    QVERIFY(!runOperation(host, "Write", &error)); // opened for reading only
    QVERIFY(runOperation(host, "Close", &error));
}

void TestCamsimFileAccess::descriptionWrittenToItsSlotIsServedAfterReset() {
    SimulatorProcess simulator;
    QVERIFY2(simulator.startCamsim({"--address", "127.0.17.4", "--store", store_.path()}),
             qPrintable(simulator.errorString()));
    QByteArray description;
    {
        CAravisHost host;
        QString error;
        QVERIFY2(host.open("127.0.17.4", &error), qPrintable(error));
        size_t size = 0;
        const char* xml = arv_device_get_genicam_xml(host.device(), &size);
        description = QByteArray(xml, int(size));
        description.replace("Frames sent since the device started",
                            "Frames sent since the last reprogramming");
        writeFile(host, "DeviceDescription", description);
        QVERIFY(host.execute("DeviceReset"));
    }
    CGvcpClient client;
    QTRY_VERIFY_WITH_TIMEOUT(client.discover("127.0.17.4", 1, 200).size() == 1, 10000);
    CAravisHost host;
    QString error;
    QVERIFY2(host.open("127.0.17.4", &error), qPrintable(error));
    size_t size = 0;
    const char* xml = arv_device_get_genicam_xml(host.device(), &size);
    QCOMPARE(QByteArray(xml, int(size)), description);
    QCOMPARE(
        QString(arv_gc_feature_node_get_tooltip(ARV_GC_FEATURE_NODE(host.node("FrameCounter")))),
        QString("Frames sent since the last reprogramming; counts by itself"));
    QVERIFY(QFile::exists(
        store_.filePath(QString("%1-description.xml").arg(host.string("DeviceSerialNumber")))));
}

QTEST_GUILESS_MAIN(TestCamsimFileAccess)
#include "tst_camsimfileaccess.moc"
