// Helpers shared by the widget tests: screenshots into the build tree and settings files.
#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFileDialog>
#include <QFileInfo>
#include <QGuiApplication>
#include <QLineEdit>
#include <QMessageBox>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QStyle>
#include <QStyleOptionFrame>
#include <QTest>
#include <QTimer>
#include <QWidget>

#include <functional>

namespace uitest {

// Waits until `done` holds or `timeoutMs` has passed, like QTest::qWaitFor, but sleeps only in
// the event loop: an event posted meanwhile (a job's request to the GUI thread, its end) is
// handled at once. QTest::qWaitFor naps 10 ms between rounds of events, which makes a job that
// waits for the GUI thread once per write take 10 ms a write.
template <typename Done> bool WaitFor(Done done, int timeoutMs) {
    QDeadlineTimer deadline(timeoutMs);
    // Wakes the loop now and then for what no event announces (a thread that ended).
    QTimer wake;
    wake.start(10);
    QEventLoop loop;
    while (!done()) {
        if (deadline.hasExpired())
            return done();
        loop.processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return true;
}

// Saves a picture of `widget` as <build>/tests/screenshots/<name>.png so a person can look at the
// state a test checked; returns the path.
inline QString SaveScreenshot(QWidget* widget, const QString& name) {
    const QString dir = QCoreApplication::applicationDirPath() + "/screenshots";
    QDir().mkpath(dir);
    const QString path = dir + "/" + name + ".png";
    widget->grab().save(path);
    return path;
}

// True when `text` fits `edit` whole, with the text cursor after it: the room QLineEdit's own
// painting leaves for text between its frame, text margins and fixed side margins.
inline bool ShowsWhole(const QLineEdit& edit, const QString& text) {
    QStyleOptionFrame option;
    option.initFrom(&edit);
    option.rect = edit.rect();
    option.lineWidth = edit.hasFrame()
                           ? edit.style()->pixelMetric(QStyle::PM_DefaultFrameWidth, &option, &edit)
                           : 0;
    const QRect contents =
        edit.style()->subElementRect(QStyle::SE_LineEditContents, &option, &edit);
    const QMargins margins = edit.textMargins();
    constexpr int kSideMargin = 2; // QLineEdit's fixed horizontal margin on either side
    const int room = contents.width() - margins.left() - margins.right() - 2 * kSideMargin;
    return edit.fontMetrics().horizontalAdvance(text) + 1 <= room;
}

// True on a platform that shows real windows (the X server the tests run under).
inline bool HasScreen() {
    return QGuiApplication::platformName() == "xcb";
}

// The 25 widgets and actions the main window's CameraConnect(bool) switches, by object name, in
// the order it connects them.
inline const QStringList& CameraSwitchedNames() {
    static const QStringList names = {"pushButton_ip_configuration",
                                      "actionIp_Configuration",
                                      "pushButton_program_LUT",
                                      "actionProgram_LUT",
                                      "pushButton_firmware_upgrade",
                                      "actionFirmware_Upgrade",
                                      "pushButton_programXML",
                                      "actionProgram_XML",
                                      "pushButton_genIcamXmlLoad",
                                      "actionLoad_XML_File",
                                      "pushButton_saveDeviceSettings",
                                      "actionSave_Device_Settings",
                                      "pushButton_loadDeviceSettings",
                                      "actionLoad_Device_Settings",
                                      "pushButton_file_save",
                                      "actionSave_Image",
                                      "comboBox_bayer",
                                      "pushButton_zoomin",
                                      "actionZoom_In",
                                      "pushButton_zoomout",
                                      "actionZoom_Out",
                                      "pushButton_zoomresetview",
                                      "actionZoom_ResetView",
                                      "pushButton_clear_dropframecount",
                                      "actionClear_Dropframe_Count"};
    return names;
}

// Answers every message box that opens with Ok and keeps the texts, in order. A box is marked
// once answered, so the next box is answered too even when it reuses the first one's memory.
class MessageBoxWatcher : public QObject {
public:
    MessageBoxWatcher() {
        connect(&m_timer, &QTimer::timeout, this, [this] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box || box->property(kAnswered).toBool())
                return;
            box->setProperty(kAnswered, true);
            texts.append(box->text());
            if (QAbstractButton* ok = box->button(QMessageBox::Ok))
                ok->click();
            else
                box->accept();
        });
        m_timer.start(10);
    }
    QStringList texts;

private:
    static constexpr const char* kAnswered = "messageBoxWatcherAnswered";
    QTimer m_timer;
};

// Runs `open`, which shows a modal dialog and returns once it is closed; as soon as a modal
// widget of type T is on top, hands it to `use`, which must close it. Returns false when no such
// dialog showed while `open` ran. The dialog is looked for from a timer rather than waited for,
// so that nothing blocks the event processing that leads up to the dialog's own loop.
template <typename T>
bool WithModal(QObject* context, const std::function<void()>& open,
               const std::function<void(T&)>& use) {
    bool used = false;
    QTimer poll;
    poll.setInterval(5);
    QObject::connect(&poll, &QTimer::timeout, context, [&] {
        if (auto* dialog = qobject_cast<T*>(QApplication::activeModalWidget())) {
            poll.stop();
            used = true;
            use(*dialog);
        }
    });
    poll.start();
    open();
    poll.stop();
    return used;
}

// Chooses `path` (with `filter`, when given) in an open file dialog and accepts it. The dialog
// leaves its name field alone while that field has the focus, and its file list fills in the
// background, so the focus is taken off the field and the name chosen until the dialog holds it.
// False when the dialog did not take the name or stayed open.
inline bool AcceptFile(QFileDialog& files, const QString& path, const QString& filter = QString()) {
    if (!filter.isEmpty())
        files.selectNameFilter(filter);
    const QString wanted = QFileInfo(path).absoluteFilePath();
    const bool held = QTest::qWaitFor(
        [&] {
            for (QWidget* field : files.findChildren<QWidget*>("fileNameEdit"))
                field->clearFocus();
            files.selectFile(path);
            const QStringList chosen = files.selectedFiles();
            return chosen.size() == 1 && QFileInfo(chosen.first()).absoluteFilePath() == wanted;
        },
        10000);
    if (!held) {
        files.reject();
        return false;
    }
    static_cast<QDialog&>(files).accept();
    return !files.isVisible();
}

// Clicks `browse`, notes the file dialog's caption and filters and cancels it.
inline QPair<QString, QStringList> BrowseAndCancel(QObject* context, QAbstractButton* browse) {
    QPair<QString, QStringList> seen;
    WithModal<QFileDialog>(
        context, [&] { browse->click(); },
        [&](QFileDialog& files) {
            seen = {files.windowTitle(), files.nameFilters()};
            files.reject();
        });
    return seen;
}

} // namespace uitest
