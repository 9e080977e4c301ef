// The message filter drops the two known harmless Qt warnings and passes every other message on.
#include "messagefilter.h"

#include <QCoreApplication>
#include <QProcess>
#include <QtTest>

namespace {

struct Received {
    QtMsgType type;
    QString text;
    QString file;
    int line;
};

QList<Received> received;

void recordingHandler(QtMsgType type, const QMessageLogContext& context, const QString& text) {
    received.append({type, text, QString::fromLatin1(context.file), context.line});
}

const char* const kWayland = "Warning: Ignoring XDG_SESSION_TYPE=wayland on Gnome.";

} // namespace

class TestMessageFilter : public QObject {
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void warningStartingWithStandardPathsNeverReachesTheCapturedHandler();
    void warningContainingStandardPathsLaterIsPassedOn();
    void waylandWarningIsDropped();
    void waylandTextLaterInTheMessageIsPassedOn();
    void matchIsCaseSensitive();
    void otherMessagesPassUnchangedWithTypeAndContext();
    void captureInstallsQtsDefaultHandlerInItsPlace();
    void standardPathsWarningNeverReachesTheConsole();

private:
    QtMessageHandler testLogHandler_ = nullptr;
};

// The filter is installed over a handler of the test's own, which it captures as the handler to
// pass messages on to.
void TestMessageFilter::init() {
    received.clear();
    testLogHandler_ = qInstallMessageHandler(recordingHandler);
    CMessageFilter::CaptureDefaultHandler();
    QVERIFY(CMessageFilter::CapturedHandler() == &recordingHandler);
    CMessageFilter::Install();
}

void TestMessageFilter::cleanup() {
    qInstallMessageHandler(testLogHandler_);
}

void TestMessageFilter::warningStartingWithStandardPathsNeverReachesTheCapturedHandler() {
    qWarning("QStandardPaths: XDG_RUNTIME_DIR not set, defaulting to a directory of its own");
    qWarning("QStandardPaths");
    qDebug("QStandardPathsAnything");
    QVERIFY(received.isEmpty());
    QVERIFY(CMessageFilter::IsSilenced("QStandardPaths: wrong permissions"));
}

void TestMessageFilter::warningContainingStandardPathsLaterIsPassedOn() {
    qWarning("Note: QStandardPaths could not find the directory");
    qWarning(" QStandardPaths: leading space");
    QCOMPARE(received.size(), 2);
    QCOMPARE(received[0].type, QtWarningMsg);
    QCOMPARE(received[0].text, QString("Note: QStandardPaths could not find the directory"));
    QCOMPARE(received[1].text, QString(" QStandardPaths: leading space"));
}

void TestMessageFilter::waylandWarningIsDropped() {
    qWarning("%s", kWayland);
    qWarning("%s Use QT_QPA_PLATFORM=wayland to run on Wayland anyway.", kWayland);
    QVERIFY(received.isEmpty());
}

void TestMessageFilter::waylandTextLaterInTheMessageIsPassedOn() {
    qWarning("Qt says: %s", kWayland);
    // One character short of the full text is not the known warning.
    qWarning("Warning: Ignoring XDG_SESSION_TYPE=wayland on Gnome");
    QCOMPARE(received.size(), 2);
    QCOMPARE(received[0].text, QString("Qt says: ") + kWayland);
    QCOMPARE(received[1].text, QString("Warning: Ignoring XDG_SESSION_TYPE=wayland on Gnome"));
}

void TestMessageFilter::matchIsCaseSensitive() {
    qWarning("qstandardpaths: lower case");
    qWarning("QSTANDARDPATHS: upper case");
    qWarning("warning: ignoring XDG_SESSION_TYPE=wayland on Gnome.");
    QCOMPARE(received.size(), 3);
}

void TestMessageFilter::otherMessagesPassUnchangedWithTypeAndContext() {
    const int line = __LINE__ + 1;
    QMessageLogger(__FILE__, line, Q_FUNC_INFO).critical("critical text");
    qDebug("debug text");
    qInfo("info text");
    QCOMPARE(received.size(), 3);
    QCOMPARE(received[0].type, QtCriticalMsg);
    QCOMPARE(received[0].text, QString("critical text"));
    QCOMPARE(received[0].file, QString::fromLatin1(__FILE__));
    QCOMPARE(received[0].line, line);
    QCOMPARE(received[1].type, QtDebugMsg);
    QCOMPARE(received[1].text, QString("debug text"));
    QCOMPARE(received[2].type, QtInfoMsg);
    QCOMPARE(received[2].text, QString("info text"));
}

// Capturing installs a null handler, which puts Qt's default back until the filter is installed.
void TestMessageFilter::captureInstallsQtsDefaultHandlerInItsPlace() {
    qInstallMessageHandler(recordingHandler);
    CMessageFilter::CaptureDefaultHandler();
    QVERIFY(CMessageFilter::CapturedHandler() == &recordingHandler);
    const QtMessageHandler inEffect = qInstallMessageHandler(recordingHandler);
    QVERIFY(inEffect != &recordingHandler);
    QVERIFY(inEffect != &CMessageFilter::Handle);
}

// The application's own set-up: the handler captured before main is Qt's default, which prints
// to standard error.
void TestMessageFilter::standardPathsWarningNeverReachesTheConsole() {
    const QString probe = QCoreApplication::applicationDirPath() + "/messagefilter-probe";
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QT_MESSAGE_PATTERN", "%{message}");
    process.setProcessEnvironment(environment);
    process.start(probe, {"QStandardPaths: runtime directory is not owned by you",
                          "before QStandardPaths: mentioned later", kWayland, "plain warning"});
    QVERIFY2(process.waitForFinished(10000), qPrintable(process.errorString()));
    QCOMPARE(process.exitCode(), 0);
    const QStringList lines =
        QString::fromLocal8Bit(process.readAllStandardError()).split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines, QStringList({"before QStandardPaths: mentioned later", "plain warning"}));
}

QTEST_GUILESS_MAIN(TestMessageFilter)
#include "tst_messagefilter.moc"
