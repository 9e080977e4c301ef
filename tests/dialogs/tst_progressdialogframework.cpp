// The progress-dialog framework: worker events, the busy guard, the feature-write handshake and
// the feature values it carries.
#include "dialogtesthelpers.h"

#include <dialogprogressthreadeventcameraaccess.h>

#include <QApplication>
#include <QProgressBar>
#include <QPushButton>
#include <QSemaphore>
#include <QThread>
#include <QVBoxLayout>

#include <korvatin/korvatingenicamnodecallback.h>

#include <atomic>
#include <cstring>

using dialogtest::ConnectedCamsim;
using uitest::MessageBoxWatcher;

namespace {

// A job dialog whose job is whatever the test gives it, with one action button and a bar.
class TestJobDialog : public CDialogProgressThreadEventCameraAccess {
public:
    explicit TestJobDialog(CKorvatinCamera* camera)
        : CDialogProgressThreadEventCameraAccess(camera, nullptr) {
        auto* layout = new QVBoxLayout(this);
        button = new QPushButton("Start", this);
        bar = new QProgressBar(this);
        layout->addWidget(button);
        layout->addWidget(bar);
        SetJobControls({button}, bar);
    }
    ~TestJobDialog() override { StopJob(); }

    void RunInThread() override {
        workerThread = QThread::currentThread();
        ++runs;
        job(*this);
    }
    void Start() { StartProgressThread(); }
    // Delivers an event as the worker would, without a worker.
    void Deliver(int event, const char* text) { SendThreadEvent(event, 0, text); }

    std::function<void(TestJobDialog&)> job;
    std::atomic<QThread*> workerThread{nullptr};
    std::atomic<int> runs{0};
    QPushButton* button;
    QProgressBar* bar;
};

// A setting whose value bytes start with those of `value`, the rest zero.
template <typename T> TCameraNodeSetting settingOf(const char* name, int type, T value) {
    char bytes[TCameraNodeSetting::kValueSize] = {};
    std::memcpy(bytes, &value, sizeof value);
    return TCameraNodeSetting(name, type, bytes);
}

} // namespace

class TestProgressDialogFramework : public QObject {
    Q_OBJECT

private slots:
    void escDuringJobShowsMessageAndJobGoesOn();
    void escAfterTheJobClosesTheDialog();
    void guiThreadThatDoesNotAnswerGivesTimeOut();
    void answerAfterTimeOutDoesNotAnswerTheNextRequest();
    void unsupportedTypeFailsAtGuiSide_data();
    void unsupportedTypeFailsAtGuiSide();
    void writeRunsOnGuiThreadAndChangesTheCamera();
    void cameraErrorComesBackAsText();
    void finishedWithoutTextReenablesSilently();
    void messageWithTextShowsBoxAndChangesNothing();
    void progressEventMovesTheBar();
    void jobRunsTwiceFromOneDialog();
    void booleanValueTextIsZeroOrOne();
    void unknownTypeRendersUnsupported();
    void valueTextsOfTheOtherTypes();
    void typeWordsMatchTheirCodes();
};

void TestProgressDialogFramework::escDuringJobShowsMessageAndJobGoesOn() {
    CKorvatinCamera camera;
    TestJobDialog dialog(&camera);
    QSemaphore release;
    dialog.job = [&](TestJobDialog& d) {
        d.SendThreadEvent(1, 0, nullptr);
        release.acquire();
        d.SendThreadEvent(4, 0, "done");
    };
    dialog.show();
    MessageBoxWatcher boxes;
    dialog.Start();
    QTRY_VERIFY(dialog.IsBusy());
    QTest::keyClick(&dialog, Qt::Key_Escape);
    QCOMPARE(boxes.texts, QStringList{"Dialoge can't be closed during progress"});
    QVERIFY(dialog.isVisible());
    QVERIFY(!dialog.button->isEnabled());

    release.release();
    QTRY_COMPARE(boxes.texts.size(), 2);
    QCOMPARE(boxes.texts.last(), QString("done"));
    QVERIFY(!dialog.IsBusy());
    QVERIFY(dialog.button->isEnabled());
    uitest::SaveScreenshot(&dialog, "progressdialog_finished");
}

void TestProgressDialogFramework::escAfterTheJobClosesTheDialog() {
    CKorvatinCamera camera;
    TestJobDialog dialog(&camera);
    dialog.job = [](TestJobDialog& d) {
        d.SendThreadEvent(1, 0, nullptr);
        d.SendThreadEvent(4, 0, nullptr);
    };
    dialog.show();
    dialog.Start();
    QTRY_VERIFY(dialog.runs == 1 && !dialog.IsBusy() && dialog.button->isEnabled());
    MessageBoxWatcher boxes;
    QTest::keyClick(&dialog, Qt::Key_Escape);
    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
    QVERIFY(boxes.texts.isEmpty());
}

void TestProgressDialogFramework::guiThreadThatDoesNotAnswerGivesTimeOut() {
    CKorvatinCamera camera;
    TestJobDialog dialog(&camera);
    QSemaphore answered;
    bool result = true;
    QString error;
    dialog.job = [&](TestJobDialog& d) {
        result = d.CameraSet(TCameraNodeSetting::UInt32("Width", 640), error);
        answered.release();
    };
    dialog.Start();
    // The GUI thread blocks here without running its event loop, so the request is never
    // carried out while the worker waits.
    answered.acquire();
    QVERIFY(!result);
    QCOMPARE(error, QString("Time out"));
}

void TestProgressDialogFramework::answerAfterTimeOutDoesNotAnswerTheNextRequest() {
    CKorvatinCamera camera;
    TestJobDialog dialog(&camera);
    QSemaphore firstDone;
    QSemaphore secondMayStart;
    QString firstError;
    QString secondError;
    std::atomic<bool> secondResult{true};
    std::atomic<bool> secondDone{false};
    dialog.job = [&](TestJobDialog& d) {
        d.CameraSet(TCameraNodeSetting::UInt32("Width", 640), firstError);
        firstDone.release();
        secondMayStart.acquire();
        // A type no write supports: its own answer is "Node type is not supported.", while the
        // late answer to the first request (no camera connected) says something else.
        secondResult = d.CameraSet(settingOf("Gain", 4, 0), secondError);
        secondDone = true;
    };
    dialog.Start();
    firstDone.acquire();
    QCOMPARE(firstError, QString("Time out"));
    // The first request is still queued; it runs now, after the worker gave up on it.
    QCoreApplication::processEvents();
    secondMayStart.release();
    QTRY_VERIFY(secondDone);
    QVERIFY(!secondResult);
    QCOMPARE(secondError, QString("Node type is not supported."));
}

void TestProgressDialogFramework::unsupportedTypeFailsAtGuiSide_data() {
    QTest::addColumn<int>("type");
    QTest::newRow("Command") << 3;
    QTest::newRow("Float") << 4;
    QTest::newRow("EnumEntry") << 7;
    QTest::newRow("Category") << 8;
    QTest::newRow("unrecognised") << -1;
}

void TestProgressDialogFramework::unsupportedTypeFailsAtGuiSide() {
    QFETCH(int, type);
    CKorvatinCamera camera;
    TestJobDialog dialog(&camera);
    std::atomic<bool> done{false};
    bool result = true;
    QString error;
    dialog.job = [&](TestJobDialog& d) {
        result = d.CameraSet(settingOf("Gain", type, 0), error);
        done = true;
    };
    dialog.Start();
    QTRY_VERIFY(done);
    QVERIFY(!result);
    QCOMPARE(error, QString("Node type is not supported."));
}

void TestProgressDialogFramework::writeRunsOnGuiThreadAndChangesTheCamera() {
    ConnectedCamsim camsim;
    QVERIFY2(camsim.Start("127.0.0.31"), qPrintable(camsim.Error()));
    TestJobDialog dialog(&camsim.Camera());
    std::atomic<bool> done{false};
    bool result = false;
    QString error = "untouched";
    dialog.job = [&](TestJobDialog& d) {
        result = d.CameraSet(TCameraNodeSetting::UInt32("Width", 640), error);
        done = true;
    };
    // The camera's write notifies on the writing thread; the callback records which one.
    QThread* writingThread = nullptr;
    struct Probe : CKorvatinGenICamNodeCallback {
        QThread** thread;
        void NodeChanged() override { *thread = QThread::currentThread(); }
    } probe;
    probe.thread = &writingThread;
    CKorvatinGenICamNodeT width = camsim.Camera().GetNodeByName("Width");
    width.RegisterCallBack(probe);
    dialog.Start();
    QTRY_VERIFY(done);
    width.DeregisterCallBack();
    QVERIFY2(result, qPrintable(error));
    QCOMPARE(camsim.Camera().GetUInt32("Width"), 640u);
    QCOMPARE(writingThread, QThread::currentThread());
    QVERIFY(dialog.workerThread != QThread::currentThread());
}

void TestProgressDialogFramework::cameraErrorComesBackAsText() {
    ConnectedCamsim camsim;
    QVERIFY2(camsim.Start("127.0.0.32"), qPrintable(camsim.Error()));
    TestJobDialog dialog(&camsim.Camera());
    std::atomic<bool> done{false};
    bool result = true;
    QString error;
    dialog.job = [&](TestJobDialog& d) {
        // Widths step by 4 on this camera.
        result = d.CameraSet(TCameraNodeSetting::UInt32("Width", 641), error);
        done = true;
    };
    dialog.Start();
    QTRY_VERIFY(done);
    QVERIFY(!result);
    QVERIFY(!error.isEmpty());
    QVERIFY(error != "Time out");
    QVERIFY(camsim.Camera().GetUInt32("Width") != 641u);
}

void TestProgressDialogFramework::finishedWithoutTextReenablesSilently() {
    CKorvatinCamera camera;
    TestJobDialog dialog(&camera);
    dialog.show();
    MessageBoxWatcher boxes;
    dialog.Deliver(1, nullptr);
    QTRY_VERIFY(dialog.IsBusy());
    QVERIFY(!dialog.button->isEnabled());
    dialog.Deliver(4, nullptr);
    QTRY_VERIFY(!dialog.IsBusy());
    QVERIFY(dialog.button->isEnabled());
    QCoreApplication::processEvents();
    QVERIFY(boxes.texts.isEmpty());
}

void TestProgressDialogFramework::messageWithTextShowsBoxAndChangesNothing() {
    CKorvatinCamera camera;
    TestJobDialog dialog(&camera);
    dialog.show();
    MessageBoxWatcher boxes;
    dialog.Deliver(1, nullptr);
    dialog.Deliver(2, "37");
    QTRY_COMPARE(dialog.bar->value(), 37);
    dialog.Deliver(3, "Verifying");
    QTRY_COMPARE(boxes.texts, QStringList{"Verifying"});
    QVERIFY(dialog.IsBusy());
    QVERIFY(!dialog.button->isEnabled());
    QCOMPARE(dialog.bar->value(), 37);
    dialog.Deliver(4, nullptr);
    QTRY_VERIFY(!dialog.IsBusy());
}

void TestProgressDialogFramework::progressEventMovesTheBar() {
    CKorvatinCamera camera;
    TestJobDialog dialog(&camera);
    dialog.bar->setValue(80);
    dialog.Deliver(1, nullptr);
    QTRY_COMPARE(dialog.bar->value(), 0);
    dialog.SendThreadEventNumber(2, 42);
    QTRY_COMPARE(dialog.bar->value(), 42);
    dialog.Deliver(4, nullptr);
    QTRY_VERIFY(!dialog.IsBusy());
    QCOMPARE(dialog.bar->value(), 42);
}

void TestProgressDialogFramework::jobRunsTwiceFromOneDialog() {
    CKorvatinCamera camera;
    TestJobDialog dialog(&camera);
    dialog.show();
    MessageBoxWatcher boxes;
    dialog.job = [](TestJobDialog& d) {
        d.SendThreadEvent(1, 0, nullptr);
        d.SendThreadEventNumber(2, 100);
        d.SendThreadEvent(4, 0, QByteArray("run ").append(QByteArray::number(d.runs)).constData());
    };
    dialog.Start();
    QTRY_COMPARE(boxes.texts, QStringList{"run 1"});
    QTRY_VERIFY(!dialog.IsBusy());
    QThread* firstWorker = dialog.workerThread;
    dialog.Start();
    QTRY_COMPARE(boxes.texts, (QStringList{"run 1", "run 2"}));
    QTRY_VERIFY(!dialog.IsBusy());
    QCOMPARE(dialog.runs.load(), 2);
    // The same worker object ran both jobs.
    QCOMPARE(dialog.workerThread.load(), firstWorker);
}

void TestProgressDialogFramework::booleanValueTextIsZeroOrOne() {
    const uint8_t on = 1;
    const uint8_t off = 0;
    QCOMPARE(settingOf("LUTEnable", 2, on).valueText, QString("1"));
    QCOMPARE(settingOf("LUTEnable", 2, off).valueText, QString("0"));
}

void TestProgressDialogFramework::unknownTypeRendersUnsupported() {
    const int32_t value = 5;
    for (int type : {-1, 3, 4, 7, 8})
        QCOMPARE(settingOf("X", type, value).valueText, QString("no_value_unsupported_datatype"));
}

void TestProgressDialogFramework::valueTextsOfTheOtherTypes() {
    const uint32_t big = 4000000000u;
    const int32_t negative = -17;
    QCOMPARE(settingOf("Width", 0, big).valueText, QString("4000000000"));
    QCOMPARE(settingOf("BlackLevel", 1, negative).valueText, QString("-17"));
    char text[TCameraNodeSetting::kValueSize] = "Mono8";
    QCOMPARE(TCameraNodeSetting("PixelFormat", 6, text).valueText, QString("Mono8"));
    const TCameraNodeSetting copy = TCameraNodeSetting("PixelFormat", 6, text);
    TCameraNodeSetting assigned;
    assigned = copy;
    QCOMPARE(QByteArray(assigned.name), QByteArray("PixelFormat"));
    QCOMPARE(assigned.valueText, QString("Mono8"));
    QCOMPARE(TCameraNodeSetting(nullptr, 0, &big).name[0], '\0');
}

void TestProgressDialogFramework::typeWordsMatchTheirCodes() {
    const QStringList words = {"UInt32", "Int32",       "Boolean",   "Command", "Float",
                               "String", "Enumeration", "EnumEntry", "Category"};
    for (int type = 0; type < words.size(); ++type) {
        QCOMPARE(TCameraNodeSetting::TypeWord(type), words[type]);
        QCOMPARE(TCameraNodeSetting::TypeOfWord(words[type]), type);
    }
    QCOMPARE(TCameraNodeSetting::TypeWord(-1), QString("Unsupported_type"));
    QCOMPARE(TCameraNodeSetting::TypeOfWord(""), -1);
    QCOMPARE(TCameraNodeSetting::TypeOfWord("uint32"), -1);
}

QTEST_MAIN(TestProgressDialogFramework)
#include "tst_progressdialogframework.moc"
