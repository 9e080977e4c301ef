// What the connected window's feature editors show can be read: string editors draw no empty box
// beside their text field.
#include "uitesthelpers.h"
#include "windowdriver.h"

#include <qframefoldable.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QAbstractItemView>
#include <QComboBox>
#include <QHash>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cstdlib>
#include <memory>

using namespace e2e;

namespace {

// Pixels of `image` whose grey level is below `dark` and above `light`.
struct Levels {
    int dark = 0;
    int light = 0;
};

Levels CountLevels(const QImage& image, int dark, int light) {
    Levels levels;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) {
            const int grey = qGray(image.pixel(x, y));
            levels.dark += grey < dark ? 1 : 0;
            levels.light += grey > light ? 1 : 0;
        }
    return levels;
}

// The largest difference of grey level between a pixel of `rect` and the colour most of it has:
// the contrast a text drawn there has with its background.
int Contrast(const QImage& image, const QRect& rect) {
    QHash<QRgb, int> counts;
    const QRect inside = rect.intersected(image.rect());
    for (int y = inside.top(); y <= inside.bottom(); ++y)
        for (int x = inside.left(); x <= inside.right(); ++x)
            ++counts[image.pixel(x, y) & 0xFFFFFF];
    QRgb background = 0;
    int most = 0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        if (it.value() > most) {
            most = it.value();
            background = it.key();
        }
    int contrast = 0;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it)
        contrast = std::max(contrast, std::abs(qGray(it.key()) - qGray(background)));
    return contrast;
}

} // namespace

class TestWindowReadability : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<SimulatorProcess> m_sim;
    std::unique_ptr<MainWindow> m_window;

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestNetwork::isIsolated());
        if (!uitest::HasScreen())
            QSKIP("no X server: the window cannot be shown");
        m_sim = std::make_unique<SimulatorProcess>();
        QVERIFY2(m_sim->startCamsim({"--address", "127.0.33.1"}), qPrintable(m_sim->errorString()));
        m_window = OpenWindow(WriteSettings(m_dir.filePath("settings.ini")), 1, 1072, 732);
        QVERIFY(m_window);
        QVERIFY(ConnectFirstRow(*m_window));
    }

    void cleanupTestCase() {
        m_window.reset();
        m_sim.reset();
    }

    void sidePanelButtonsShowDarkTextWhenEnabled() {
        const QStringList names = {"pushButton_force_ip",  "pushButton_program_LUT",
                                   "pushButton_zoomin",    "pushButton_device_discovery",
                                   "pushButton_file_save", "pushButton_about"};
        for (const QString& name : names) {
            auto* button = m_window->findChild<QPushButton*>(name);
            QVERIFY2(button && button->isEnabled(), qPrintable(name));
            // The button's own style sheet stays as it is laid out.
            QVERIFY2(button->styleSheet().contains("QPushButton::disabled{"),
                     qPrintable(name + ": " + button->styleSheet()));
            // Its text is dark on the grey, with nothing near white.
            const Levels levels = CountLevels(button->grab().toImage(), 60, 235);
            QVERIFY2(levels.dark > 20,
                     qPrintable(QString("%1: %2 dark pixels of text").arg(name).arg(levels.dark)));
            QVERIFY2(
                levels.light < 5,
                qPrintable(QString("%1: %2 white pixels of text").arg(name).arg(levels.light)));
        }
        m_window->findChild<QFrameFoldable*>("qFrameFoldable_device_config")->SetUnfolded(true);
        uitest::SaveScreenshot(m_window->findChild<QWidget*>("frameLeft"), "readable-side-panel");
    }

    void enumerationListShowsTheChosenAndTheHighlightedEntry() {
        QWidget* editor = EditorOf(*m_window, "Pixel Format");
        QVERIFY(editor);
        auto* combo = editor->findChild<QComboBox*>("comboBox");
        QVERIFY(combo);
        combo->showPopup();
        QAbstractItemView* view = combo->view();
        QTRY_VERIFY(view->isVisible());
        // The open list highlights the chosen entry; the mouse then highlights the next one.
        for (int row : {combo->currentIndex(), combo->currentIndex() + 1}) {
            const QModelIndex index = view->model()->index(row, 0);
            view->setCurrentIndex(index);
            QCoreApplication::processEvents();
            const QImage image = view->viewport()->grab().toImage();
            image.save(QCoreApplication::applicationDirPath() +
                       QString("/screenshots/readable-enumeration-%1.png").arg(row));
            const int contrast = Contrast(image, view->visualRect(index));
            QVERIFY2(contrast > 120, qPrintable(QString("entry \"%1\": contrast %2")
                                                    .arg(index.data().toString())
                                                    .arg(contrast)));
        }
        combo->hidePopup();
    }

    void checkedActionsWithAnIconShowTheirState() {
        auto* menu = m_window->findChild<QMenu*>("menuHost_Settings");
        QVERIFY(menu);
        for (const char* name : {"actionReadonly_Nodes_Polling", "actionPan_Mode"}) {
            auto* action = m_window->findChild<QAction*>(name);
            QVERIFY2(action && action->isCheckable() && !action->icon().isNull(), name);
            // Menus and tool bars draw a checked action's icon in its On state.
            const QSize size(16, 16);
            QVERIFY2(action->icon().pixmap(size, QIcon::Normal, QIcon::On).toImage() !=
                         action->icon().pixmap(size, QIcon::Normal, QIcon::Off).toImage(),
                     name);
        }
        // As drawn in the open menu, checked and unchecked.
        auto* polling = m_window->findChild<QAction*>("actionReadonly_Nodes_Polling");
        menu->popup(m_window->mapToGlobal(QPoint(0, 0)));
        QVERIFY(QTest::qWaitForWindowExposed(menu));
        const QRect row = menu->actionGeometry(polling);
        polling->setChecked(false);
        const QImage unchecked = menu->grab(row).toImage();
        polling->setChecked(true);
        const QImage checked = menu->grab(row).toImage();
        menu->grab().save(QCoreApplication::applicationDirPath() +
                          "/screenshots/readable-checked-action.png");
        polling->setChecked(false);
        menu->hide();
        QVERIFY(checked != unchecked);
    }

    void stringEditorsShowNoEmptyBoxBesideTheirText() {
        int strings = 0;
        for (const QString& name : {QString("Vendor Name"), QString("Device User ID")}) {
            QWidget* editor = EditorOf(*m_window, name);
            QVERIFY2(editor, qPrintable(name));
            auto* field = editor->findChild<QLineEdit*>("lineEdit");
            QVERIFY(field);
            // The editor ends where its field ends.
            QVERIFY2(editor->width() <= field->geometry().right() + 2,
                     qPrintable(QString("%1: editor %2 wide, its field ends at %3")
                                    .arg(name)
                                    .arg(editor->width())
                                    .arg(field->geometry().right())));
            ++strings;
        }
        QCOMPARE(strings, 2);
    }
};

QTEST_MAIN(TestWindowReadability)
#include "tst_windowreadability.moc"
