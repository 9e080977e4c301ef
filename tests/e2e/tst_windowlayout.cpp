// The panels of the connected window at the sizes a user gives it, from 1024 x 700 to the full
// 1920 x 1080 screen, after every fold and unfold of the side panel, a reconnect and a maximise
// and restore: the live image keeps at least a third of the window's width, the device table
// shows serial number and address whole, and the feature tree shows names and editors without
// sideways scrolling.
#include "uitesthelpers.h"
#include "windowdriver.h"

#include <qframefoldable.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QFile>
#include <QHeaderView>
#include <QScrollBar>
#include <QSplitter>
#include <QStyle>
#include <QTemporaryDir>
#include <QTest>
#include <QToolButton>
#include <QTreeWidgetItemIterator>

#include <memory>

using namespace e2e;

namespace {

const char* const kPanels[] = {"qFrameFoldable_devices",      "qFrameFoldable_device_config",
                               "qFrameFoldable_hostSettings", "qFrameFoldable_file",
                               "qFrameFoldable_recording",    "qFrameFoldable_help"};

} // namespace

class TestWindowLayout : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<SimulatorProcess> m_sim;
    std::unique_ptr<MainWindow> m_window;
    QSize m_size; // the size the test gave the window

    void Resize(const QSize& size) {
        // Folds made just before take their effect on the window's minimum size first, as they
        // do between a user's clicks: the layouts pass the change up one level at a time.
        QTest::qWaitFor([&] { return m_window->minimumHeight() <= size.height(); }, 10000);
        m_size = size;
        m_window->resize(size);
    }

    QFrameFoldable* Panel(const char* name) { return m_window->findChild<QFrameFoldable*>(name); }

    void SetUnfolded(const char* name, bool unfolded) {
        QFrameFoldable* panel = Panel(name);
        if (panel->IsUnfolded() != unfolded)
            panel->findChild<QToolButton*>("toolButton")->click();
    }

    // Lets the window settle after a change: the layouts and the panel sizes it leads to, and two
    // frames of the live image painted at the new size.
    void Settle() {
        auto* display = m_window->findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
        QCoreApplication::processEvents();
        const uint32_t painted = display->PaintedFrameCount();
        if (m_window->IsConnected())
            QTest::qWaitFor([&] { return display->PaintedFrameCount() >= painted + 2; }, 10000);
        QCoreApplication::processEvents();
    }

    // Checks the three rules at the window's present size and state, then saves a screenshot
    // named after the state. Describes the first rule broken in `error`.
    bool PanelsFit(const QString& state, QString& error) {
        Settle();
        const QString where =
            QString("%1 at %2 x %3: ").arg(state).arg(m_window->width()).arg(m_window->height());
        uitest::SaveScreenshot(
            m_window.get(),
            QString("layout-%1-%2x%3").arg(state).arg(m_window->width()).arg(m_window->height()));

        if (m_window->size() != m_size) {
            error = where + QString("the window does not keep the size %1 x %2 it was given")
                                .arg(m_size.width())
                                .arg(m_size.height());
            return false;
        }

        // The live image: its frame and the picture in it.
        QWidget* central = m_window->findChild<QWidget*>("frameCentral");
        auto* display = m_window->findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
        if (central->width() * 3 < m_window->width()) {
            error = where + QString("the image's frame is %1 pixels wide").arg(central->width());
            return false;
        }
        if (m_window->IsConnected() && std::max(display->width(), display->height()) * 3 <
                                           std::min(central->width(), central->height())) {
            error = where + QString("the image is %1 x %2 in a frame of %3 x %4")
                                .arg(display->width())
                                .arg(display->height())
                                .arg(central->width())
                                .arg(central->height());
            return false;
        }

        // The device table: serial number and address whole, inside its viewport.
        QTableWidget* table = Table(*m_window);
        if (Panel("qFrameFoldable_devices")->IsUnfolded()) {
            const int margin = 2 * (table->style()->pixelMetric(QStyle::PM_FocusFrameHMargin) + 1);
            for (int row = 0; row < table->rowCount(); ++row) {
                for (int column : {1, 2}) {
                    const QRect cell = table->visualRect(table->model()->index(row, column));
                    const QString text = table->item(row, column)->text();
                    if (cell.left() < 0 || cell.right() >= table->viewport()->width() ||
                        table->fontMetrics().horizontalAdvance(text) + margin > cell.width()) {
                        error = where + QString("the device table cuts \"%1\" (cell %2 wide at "
                                                "%3, viewport %4 wide)")
                                            .arg(text)
                                            .arg(cell.width())
                                            .arg(cell.left())
                                            .arg(table->viewport()->width());
                        return false;
                    }
                }
            }
        }

        // The feature tree: nothing to scroll sideways, every editor whole inside the viewport.
        QTreeWidget* tree = Tree(*m_window);
        if (tree->horizontalScrollBar()->maximum() > 0) {
            error = where + QString("the feature tree scrolls sideways by %1 pixels")
                                .arg(tree->horizontalScrollBar()->maximum());
            return false;
        }
        QWidget* viewport = tree->viewport();
        for (QTreeWidgetItemIterator it(tree); *it; ++it) {
            QWidget* editor = tree->itemWidget(*it, 1);
            if (!editor)
                continue;
            const int wanted =
                qBound(editor->minimumWidth(), editor->sizeHint().width(), editor->maximumWidth());
            const QRect inViewport(editor->mapTo(viewport, QPoint(0, 0)), editor->size());
            if (editor->width() < wanted || inViewport.left() < 0 ||
                inViewport.right() >= viewport->width()) {
                error = where + QString("the editor of \"%1\" lies at %2..%3 (wants %4) in a "
                                        "viewport %5 wide")
                                    .arg((*it)->text(0))
                                    .arg(inViewport.left())
                                    .arg(inViewport.right())
                                    .arg(wanted)
                                    .arg(viewport->width());
                return false;
            }
        }
        return true;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestNetwork::isIsolated());
        if (!uitest::HasScreen())
            QSKIP("no X server: the window cannot be shown");
        m_sim = std::make_unique<SimulatorProcess>();
        QVERIFY2(m_sim->startCamsim({"--address", "127.0.32.1"}), qPrintable(m_sim->errorString()));
        // The settings a user starts with: the dropped-frame count hidden. Shown, its fixed-width
        // labels make the status bar wider than 1024 pixels.
        QFile settings(m_dir.filePath("settings.ini"));
        QVERIFY(settings.open(QIODevice::WriteOnly));
        settings.write("[host]\ndiscoveryTimeout=300\n");
        settings.close();
        m_window = OpenWindow(settings.fileName(), 1, 1072, 732);
        m_size = QSize(1072, 732);
        QVERIFY(m_window);
        SetUnfolded("qFrameFoldable_devices", true);
        QVERIFY(ConnectFirstRow(*m_window));
    }

    void cleanupTestCase() {
        m_window.reset();
        m_sim.reset();
    }

    void panelsFitAtEverySizeAndFold_data() {
        QTest::addColumn<QSize>("size");
        QTest::newRow("1024x700") << QSize(1024, 700);
        QTest::newRow("1072x732") << QSize(1072, 732);
        QTest::newRow("1920x1080") << QSize(1920, 1080);
    }

    void panelsFitAtEverySizeAndFold() {
        QFETCH(QSize, size);
        Resize(size);
        QString error;
        QVERIFY2(PanelsFit("devices", error), qPrintable(error));
        for (const char* name : kPanels) {
            SetUnfolded(name, true);
            QVERIFY2(PanelsFit(QString(name).mid(15) + "-unfolded", error), qPrintable(error));
            SetUnfolded(name, false);
            SetUnfolded("qFrameFoldable_devices", true);
            QVERIFY2(PanelsFit(QString(name).mid(15) + "-folded-again", error), qPrintable(error));
        }
        // Unfolded one after the other, without folding any: those that no longer fit fold.
        for (const char* name : kPanels) {
            SetUnfolded(name, true);
            QVERIFY(Panel(name)->IsUnfolded());
            QVERIFY2(PanelsFit(QString(name).mid(15) + "-unfolded-after-others", error),
                     qPrintable(error));
        }
        for (const char* name : kPanels)
            SetUnfolded(name, false);
        SetUnfolded("qFrameFoldable_devices", true);
    }

    void panelsFitAfterAReconnectAndAMaximiseAndRestore() {
        QString error;
        for (const QSize size : {QSize(1072, 732), QSize(1920, 1080)}) {
            Resize(size);
            ClickRow(*m_window, 0);
            QTRY_VERIFY_WITH_TIMEOUT(!m_window->IsConnected(), 10000);
            QVERIFY(ConnectFirstRow(*m_window));
            QVERIFY2(PanelsFit("reconnected", error), qPrintable(error));
            // Maximised, then restored to the size it had.
            const QSize other = size.width() > 1500 ? QSize(1072, 732) : QSize(1920, 1080);
            Resize(other);
            QVERIFY2(PanelsFit("reconnected-resized", error), qPrintable(error));
            Resize(size);
            QVERIFY2(PanelsFit("reconnected-restored", error), qPrintable(error));
        }
    }
};

QTEST_MAIN(TestWindowLayout)
#include "tst_windowlayout.moc"
