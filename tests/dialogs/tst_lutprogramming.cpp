// LUT programming from a file: the file's rules, the checks before any write, the writes, and the
// dialog that runs it against simulated cameras.
#include "dialogtesthelpers.h"

#include <dialogprogramlut.h>
#include <lutprogramjob.h>

#include <korvatin/korvatinframe.h>

#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>

#include <vector>

using dialogtest::ConnectedCamsim;
using dialogtest::RecordingHost;
using dialogtest::WriteDirect;
using dialogtest::WriteFile;
using uitest::MessageBoxWatcher;

namespace {

// One entry per line, as `format` renders entry k.
QByteArray table(int count, const std::function<QByteArray(int)>& format) {
    QByteArray text;
    for (int k = 0; k < count; ++k)
        text += format(k) + "\n";
    return text;
}

QByteArray decimal(int value) {
    return QByteArray::number(value);
}

// The camera's table entry at `index`, read back through its selector.
uint32_t entryAt(CKorvatinCamera& camera, uint32_t index) {
    camera.SetUInt32("LUTIndex", index);
    return camera.GetUInt32("LUTValue");
}

// Grabs one Mono8 frame of `width` x `height` and returns its pixels, row after row.
std::vector<uint8_t> grabMono8(CKorvatinCamera& camera, uint32_t width, uint32_t height) {
    camera.SetEnumByString("PixelFormat", "Mono8");
    camera.SetUInt32("Width", width);
    camera.SetUInt32("Height", height);
    CKorvatinFrame buffers[2];
    for (CKorvatinFrame& frame : buffers) {
        frame.SetWidth(width);
        frame.SetHeight(height);
        frame.SetPixelType(0x01080001);
        if (camera.AllocateFrameBuffer(&frame, 1) != QRN_OK)
            return {};
    }
    std::vector<uint8_t> pixels;
    if (camera.StartStream(nullptr) == QRN_OK) {
        for (CKorvatinFrame& frame : buffers)
            camera.QueueFrame(&frame);
        CKorvatinFrame received;
        if (camera.GetFrame(&received, 5000) == QRN_OK) {
            for (uint32_t y = 0; y < height; ++y) {
                const uint8_t* row = received.Data() + size_t(y) * received.Stride();
                pixels.insert(pixels.end(), row, row + width);
            }
        }
        camera.StopStream();
    }
    for (CKorvatinFrame& frame : buffers)
        camera.ReleaseFrameBuffer(&frame);
    return pixels;
}

} // namespace

class TestLutProgramming : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void tableOf1024EntriesNeedsExactly1024Lines();
    void hexAndOctalLinesAreRead();
    void lineLongerThanNineCharactersIsSplit();
    void valueOffTheIncrementIsRefusedBeforeAnyWrite();
    void valueOutOfRangeIsRefusedBeforeAnyWrite();
    void writeFailureAtEntry10LeavesEntries0To9();
    void cameraKilledDuringTheWritesEndsWithItsEntry();
    void extraLineIsIgnored();
    void indexStepsByItsIncrement();
    void tableOf4096Entries();
    void lutEnableIsNeverWritten();
    void cameraWithoutLutEnableIsRefused();
    void missingFileIsRefused();
    void invertingTableFromTheDialogInvertsTheImage();
    void emptyFileNameStartsNothing();
    void dialogShowsItsTitleLabelsAndBrowse();

private:
    QTemporaryDir m_dir;
    ConnectedCamsim m_camsim;
};

void TestLutProgramming::initTestCase() {
    QVERIFY(m_dir.isValid());
    QVERIFY2(m_camsim.Start("127.0.0.51"), qPrintable(m_camsim.Error()));
}

void TestLutProgramming::init() {
    m_camsim.Camera().SetBool("LUTEnable", false);
}

void TestLutProgramming::tableOf1024EntriesNeedsExactly1024Lines() {
    const QString path = WriteFile(m_dir.path(), "short.csv", table(1000, decimal));
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!CLutProgramJob(&host, &m_camsim.Camera()).Run(path));
    QCOMPARE(host.Texts(4), QStringList{"No enough entries. Available: 1000 Needed: 1024."});
    QVERIFY(host.Writes().isEmpty());
    QCOMPARE(host.Events().first().first, 1);
}

void TestLutProgramming::hexAndOctalLinesAreRead() {
    QByteArray text = "0x3FF\n017\n";
    // Anything after the number is ignored: more columns, a carriage return.
    text += table(1022, [](int k) { return decimal(k + 2) + ",x\r"; });
    const QString path = WriteFile(m_dir.path(), "radix.csv", text);
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(CLutProgramJob(&host, &m_camsim.Camera()).Run(path));
    QCOMPARE(host.Texts(4), QStringList{"Program is completed successfully"});
    QCOMPARE(entryAt(m_camsim.Camera(), 0), 1023u);
    QCOMPARE(entryAt(m_camsim.Camera(), 1), 15u);
    QCOMPARE(entryAt(m_camsim.Camera(), 2), 2u);
    QCOMPARE(entryAt(m_camsim.Camera(), 1023), 1023u);
}

void TestLutProgramming::lineLongerThanNineCharactersIsSplit() {
    // Ten characters: "5,,,,,,,," is entry 0 and its tail "7" entry 1.
    const QString path =
        WriteFile(m_dir.path(), "split.csv", "5,,,,,,,,7\n" + table(1022, [](int) { return "9"; }));
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(CLutProgramJob(&host, &m_camsim.Camera()).Run(path));
    QCOMPARE(entryAt(m_camsim.Camera(), 0), 5u);
    QCOMPARE(entryAt(m_camsim.Camera(), 1), 7u);
    QCOMPARE(entryAt(m_camsim.Camera(), 2), 9u);

    // A tail that is no number ends the job as a missing entry.
    const QString bad =
        WriteFile(m_dir.path(), "tail.csv", "123456789xyz\n" + table(1023, decimal));
    RecordingHost second(&m_camsim.Camera());
    QVERIFY(!CLutProgramJob(&second, &m_camsim.Camera()).Run(bad));
    QCOMPARE(second.Texts(4),
             QStringList{"Value(123456789) of entry 0 is out of range (0 - 1023)."});
}

void TestLutProgramming::valueOffTheIncrementIsRefusedBeforeAnyWrite() {
    ConnectedCamsim camsim;
    QVERIFY2(camsim.Start("127.0.0.52", {"--lut-value", "0:1020:4"}), qPrintable(camsim.Error()));
    const QString path =
        WriteFile(m_dir.path(), "increment.csv",
                  table(1024, [](int k) { return decimal(k == 3 ? 5 : 4 * (k % 256)); }));
    RecordingHost host(&camsim.Camera());
    QVERIFY(!CLutProgramJob(&host, &camsim.Camera()).Run(path));
    QCOMPARE(host.Texts(4),
             QStringList{"Value(5) of entry 3 is invalid. Should be multiple of 4."});
    QVERIFY(host.Writes().isEmpty());
}

void TestLutProgramming::valueOutOfRangeIsRefusedBeforeAnyWrite() {
    const QString path = WriteFile(m_dir.path(), "range.csv",
                                   table(1024, [](int k) { return decimal(k == 7 ? 1024 : k); }));
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!CLutProgramJob(&host, &m_camsim.Camera()).Run(path));
    QCOMPARE(host.Texts(4), QStringList{"Value(1024) of entry 7 is out of range (0 - 1023)."});
    QVERIFY(host.Writes().isEmpty());
}

void TestLutProgramming::writeFailureAtEntry10LeavesEntries0To9() {
    CKorvatinCamera& camera = m_camsim.Camera();
    for (uint32_t k = 0; k < 12; ++k) {
        camera.SetUInt32("LUTIndex", k);
        camera.SetUInt32("LUTValue", 0);
    }
    const QString path = WriteFile(m_dir.path(), "failing.csv",
                                   table(1024, [](int k) { return decimal(1023 - k); }));
    RecordingHost host(&camera);
    int writes = 0;
    host.write = [&](const TCameraNodeSetting& s, QString& error) {
        // Entry 10's index write is the 21st.
        if (++writes == 21) {
            error = "refused by the test";
            return false;
        }
        return WriteDirect(camera, s, error);
    };
    QVERIFY(!CLutProgramJob(&host, &camera).Run(path));
    QCOMPARE(host.Texts(4), QStringList{"Fail to set LUT. Entry: 10. Error: refused by the test"});
    for (uint32_t k = 0; k < 10; ++k)
        QCOMPARE(entryAt(camera, k), 1023u - k);
    QCOMPARE(entryAt(camera, 10), 0u);
    // Progress after each of entries 0 to 9.
    QStringList progress;
    for (int k = 0; k < 10; ++k)
        progress << QString::number((k + 1) * 100 / 1024);
    QCOMPARE(host.Texts(2), progress);
}

void TestLutProgramming::cameraKilledDuringTheWritesEndsWithItsEntry() {
    ConnectedCamsim camsim;
    QVERIFY2(camsim.Start("127.0.0.56"), qPrintable(camsim.Error()));
    const QString path = WriteFile(m_dir.path(), "killed.csv", table(1024, decimal));
    RecordingHost host(&camsim.Camera());
    int writes = 0;
    host.write = [&](const TCameraNodeSetting& s, QString& error) {
        // The camera loses power before entry 5's index write.
        if (++writes == 11)
            camsim.Process().kill();
        return WriteDirect(camsim.Camera(), s, error);
    };
    QVERIFY(!CLutProgramJob(&host, &camsim.Camera()).Run(path));
    const QStringList finished = host.Texts(4);
    QCOMPARE(finished.size(), 1);
    QVERIFY2(finished.first().startsWith("Fail to set LUT. Entry: 5. Error: "),
             qPrintable(finished.first()));
    QVERIFY(finished.first().size() > QString("Fail to set LUT. Entry: 5. Error: ").size());
    QCOMPARE(host.Writes().size(), 11);
}

void TestLutProgramming::extraLineIsIgnored() {
    const QString path =
        WriteFile(m_dir.path(), "extra.csv",
                  table(1025, [](int k) { return decimal(k == 1024 ? 99999 : k); }));
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(CLutProgramJob(&host, &m_camsim.Camera()).Run(path));
    QCOMPARE(host.Writes().size(), 2048);
    QCOMPARE(host.Texts(2).last(), QString("100"));
}

void TestLutProgramming::indexStepsByItsIncrement() {
    ConnectedCamsim camsim;
    QVERIFY2(camsim.Start("127.0.0.53", {"--lut-index", "4:1020:4"}), qPrintable(camsim.Error()));
    // (1020 - 4) / 4 + 1 = 255 entries, at indexes 4, 8, ... 1020.
    const QString path = WriteFile(m_dir.path(), "stepped.csv", table(255, decimal));
    RecordingHost host(&camsim.Camera());
    QVERIFY(CLutProgramJob(&host, &camsim.Camera()).Run(path));
    const QStringList writes = host.WrittenNames();
    QCOMPARE(writes.size(), 510);
    QCOMPARE(writes.mid(0, 4),
             (QStringList{"LUTIndex=4", "LUTValue=0", "LUTIndex=8", "LUTValue=1"}));
    QCOMPARE(writes.last(2).first(), QString("LUTIndex=1020"));
    QCOMPARE(entryAt(camsim.Camera(), 1020), 254u);
}

void TestLutProgramming::tableOf4096Entries() {
    ConnectedCamsim camsim;
    QVERIFY2(camsim.Start("127.0.0.54", {"--lut-index", "0:4095:1", "--lut-value", "0:4095:1"}),
             qPrintable(camsim.Error()));
    const QString path =
        WriteFile(m_dir.path(), "large.csv", table(4096, [](int k) { return decimal(4095 - k); }));
    RecordingHost host(&camsim.Camera());
    QVERIFY(CLutProgramJob(&host, &camsim.Camera()).Run(path));
    QCOMPARE(host.Writes().size(), 8192);
    QCOMPARE(entryAt(camsim.Camera(), 0), 4095u);
    QCOMPARE(entryAt(camsim.Camera(), 4095), 0u);
}

void TestLutProgramming::lutEnableIsNeverWritten() {
    const QString path = WriteFile(m_dir.path(), "identity.csv", table(1024, decimal));
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(CLutProgramJob(&host, &m_camsim.Camera()).Run(path));
    for (const TCameraNodeSetting& write : host.Writes())
        QVERIFY(qstrcmp(write.name, "LUTIndex") == 0 || qstrcmp(write.name, "LUTValue") == 0);
    QCOMPARE(m_camsim.Camera().GetBool("LUTEnable"), false);
}

void TestLutProgramming::cameraWithoutLutEnableIsRefused() {
    SimulatorProcess aravis;
    QVERIFY2(aravis.startAravisFake("127.0.0.55"), qPrintable(aravis.errorString()));
    CKorvatinCamera camera;
    camera.Connect(LoopbackDevice("127.0.0.55"), nullptr);
    const QString path = WriteFile(m_dir.path(), "noenable.csv", table(1024, decimal));
    RecordingHost host(&camera);
    QVERIFY(!CLutProgramJob(&host, &camera).Run(path));
    QCOMPARE(host.Texts(4), QStringList{"LUT is not enabled in his camera."});
    QVERIFY(host.Writes().isEmpty());
}

void TestLutProgramming::missingFileIsRefused() {
    const QString path = m_dir.filePath("missing.csv");
    RecordingHost host(&m_camsim.Camera());
    QVERIFY(!CLutProgramJob(&host, &m_camsim.Camera()).Run(path));
    QCOMPARE(host.Texts(4), QStringList{"Failed to open file: " + path});
}

void TestLutProgramming::invertingTableFromTheDialogInvertsTheImage() {
    CKorvatinCamera& camera = m_camsim.Camera();
    const QString path =
        WriteFile(m_dir.path(), "invert.csv", table(1024, [](int k) { return decimal(1023 - k); }));
    CDialogProgramLUT dialog(&camera, nullptr);
    MessageBoxWatcher boxes;
    dialog.show();
    dialog.findChild<QLineEdit*>("lineEdit_fileName")->setText(path);
    dialog.findChild<QPushButton*>("pushButton_program")->click();
    QVERIFY(uitest::WaitFor([&] { return !boxes.texts.isEmpty() && !dialog.IsBusy(); }, 60000));
    QCOMPARE(boxes.texts, QStringList{"Program is completed successfully"});
    QCOMPARE(dialog.findChild<QProgressBar*>("progressBar")->value(), 100);
    uitest::SaveScreenshot(&dialog, "dialog_program_lut");

    camera.SetBool("TestPatternMoving", false);
    const std::vector<uint8_t> plain = grabMono8(camera, 64, 8);
    camera.SetBool("LUTEnable", true);
    const std::vector<uint8_t> inverted = grabMono8(camera, 64, 8);
    camera.SetBool("TestPatternMoving", true);
    QCOMPARE(plain.size(), size_t(64 * 8));
    QCOMPARE(inverted.size(), plain.size());
    for (size_t i = 0; i < plain.size(); ++i)
        QCOMPARE(int(inverted[i]), 255 - int(plain[i]));
}

void TestLutProgramming::emptyFileNameStartsNothing() {
    CDialogProgramLUT dialog(&m_camsim.Camera(), nullptr);
    MessageBoxWatcher boxes;
    dialog.show();
    dialog.findChild<QPushButton*>("pushButton_program")->click();
    QCOMPARE(boxes.texts, QStringList{"File name not specified!"});
    QVERIFY(!dialog.IsBusy());
}

void TestLutProgramming::dialogShowsItsTitleLabelsAndBrowse() {
    CDialogProgramLUT dialog(&m_camsim.Camera(), nullptr);
    QCOMPARE(dialog.objectName(), QString("CDialogProgramLUT"));
    QCOMPARE(dialog.windowTitle(), QString("Program LUT"));
    QCOMPARE(dialog.findChild<QLabel*>("label")->text(), QString("LUT file:"));
    QCOMPARE(dialog.findChild<QPushButton*>("pushButton_browse")->text(), QString("Browse"));
    QCOMPARE(dialog.findChild<QPushButton*>("pushButton_program")->text(), QString("Program"));
    QVERIFY(dialog.findChild<QProgressBar*>("progressBar"));
    dialog.show();
    const auto [caption, filters] =
        uitest::BrowseAndCancel(this, dialog.findChild<QPushButton*>("pushButton_browse"));
    QCOMPARE(caption, QString("Load LUT File"));
    QCOMPARE(filters, QStringList{"LUT File (*.csv)"});
}

QTEST_MAIN(TestLutProgramming)
#include "tst_lutprogramming.moc"
