// The feature panel of the connected window at the size the program starts with: every editor
// shown whole inside the tree, no sideways scrolling, long read-only texts shown from their start,
// and a panel width the user set kept across a reconnect, its names shortened rather than scrolled.
#include "uitesthelpers.h"
#include "windowdriver.h"

#include <genicamframe.h>
#include <simulatorprocess.h>
#include <testnetwork.h>

#include <QDoubleValidator>
#include <QHeaderView>
#include <QIntValidator>
#include <QLineEdit>
#include <QScrollBar>
#include <QSplitter>
#include <QStyle>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidgetItemIterator>

#include <memory>

using namespace e2e;

namespace {

QString TextOfNumber(double value) {
    return QString::number(value, 'g', 6);
}

} // namespace

class TestFeaturePanelFit : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    std::unique_ptr<SimulatorProcess> m_sim;
    std::unique_ptr<MainWindow> m_window;

    QSplitter* Splitter() { return m_window->findChild<QSplitter*>("splitter"); }
    int PanelWidth() {
        QSplitter* splitter = Splitter();
        return splitter->sizes().at(splitter->indexOf(m_window->findChild<QWidget*>("frameRight")));
    }

    // Clicks the simulator's row and waits until the tree shows its editors.
    bool ClickCamera() {
        ClickRow(*m_window, 0);
        return m_window->IsConnected() && Tree(*m_window)->topLevelItemCount() == 1;
    }

private slots:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestNetwork::isIsolated());
        if (!uitest::HasScreen())
            QSKIP("no X server: the window cannot be shown at its start size");
        m_sim = std::make_unique<SimulatorProcess>();
        QVERIFY2(m_sim->startCamsim({"--address", "127.0.19.10"}),
                 qPrintable(m_sim->errorString()));
        // Built and shown exactly as the program starts it: no size is given here.
        m_window =
            std::make_unique<MainWindow>(nullptr, WriteSettings(m_dir.filePath("settings.ini")));
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get()));
        QTRY_COMPARE_WITH_TIMEOUT(Table(*m_window)->rowCount(), 1, 20000);
        QVERIFY(ClickCamera());
    }

    void cleanupTestCase() {
        m_window.reset();
        m_sim.reset();
    }

    void everyEditorLiesWholeInsideTheTreeAtTheStartSize() {
        QTreeWidget* tree = Tree(*m_window);
        QWidget* viewport = tree->viewport();
        QTRY_COMPARE(tree->horizontalScrollBar()->maximum(), 0);
        QTRY_VERIFY(!tree->horizontalScrollBar()->isVisible());

        int editors = 0, checkedInside = 0;
        for (QTreeWidgetItemIterator it(tree); *it; ++it) {
            auto* editor = qobject_cast<CGENiCAMFrame*>(tree->itemWidget(*it, 1));
            if (!editor)
                continue;
            ++editors;
            const QString name = (*it)->text(0);
            // Given at least the width it asks for within its limits: nothing squeezed.
            const int wanted =
                qBound(editor->minimumWidth(), editor->sizeHint().width(), editor->maximumWidth());
            QVERIFY2(editor->width() >= wanted, qPrintable(name));
            // Every editor, scrolled to or not, lies between the viewport's left and right edges.
            const QRect inViewport(editor->mapTo(viewport, QPoint(0, 0)), editor->size());
            QVERIFY2(inViewport.left() >= 0 && inViewport.right() < viewport->width(),
                     qPrintable(name));
            // Its controls lie inside it.
            for (QWidget* control : editor->findChildren<QWidget*>()) {
                if (!control->isVisibleTo(editor))
                    continue;
                const QRect controlRect(control->mapTo(editor, QPoint(0, 0)), control->size());
                QVERIFY2(editor->rect().contains(controlRect),
                         qPrintable(name + " / " + control->objectName()));
            }
            // One whose row is on screen is wholly inside the viewport.
            if (editor->isVisible() && inViewport.top() >= 0 &&
                inViewport.bottom() < viewport->height()) {
                QVERIFY2(viewport->rect().contains(inViewport), qPrintable(name));
                ++checkedInside;
            }
        }
        QVERIFY(editors > 60);
        QVERIFY2(checkedInside > 10, "the rows on screen were looked at");
        // The feature names are not cut either: each fits its cell with the item text margins.
        const int textMargin = tree->style()->pixelMetric(QStyle::PM_FocusFrameHMargin) + 1;
        for (QTreeWidgetItemIterator it(tree); *it; ++it) {
            const QString name = (*it)->text(0);
            QVERIFY2(tree->fontMetrics().horizontalAdvance(name) + 2 * textMargin <=
                         tree->visualItemRect(*it).width(),
                     qPrintable(name));
        }

        // The picture shows the live image beside the panel.
        QTRY_VERIFY_WITH_TIMEOUT(m_window->DisplayTicks() > 0, 20000);
        const QString path = uitest::SaveScreenshot(m_window.get(), "featurepanel-start-size");
        QVERIFY(QFile::exists(path));
    }

    void numberAndUnitFieldsShowTheirWholeText() {
        QTreeWidget* tree = Tree(*m_window);
        int numberFields = 0, units = 0;
        for (QTreeWidgetItemIterator it(tree); *it; ++it) {
            auto* editor = qobject_cast<CGENiCAMFrame*>(tree->itemWidget(*it, 1));
            if (!editor)
                continue;
            const QString name = (*it)->text(0);
            auto* field = editor->findChild<QLineEdit*>("lineEdit");
            if (!field || !field->validator())
                continue;
            ++numberFields;
            QVERIFY2(uitest::ShowsWhole(*field, field->text()),
                     qPrintable(name + ": " + field->text()));
            // The range's ends too, the maximum's digits above all.
            if (auto* integer = qobject_cast<const QIntValidator*>(field->validator())) {
                for (int end : {integer->bottom(), integer->top()})
                    QVERIFY2(uitest::ShowsWhole(*field, QString::number(end)),
                             qPrintable(name + ": " + QString::number(end)));
            } else if (auto* real = qobject_cast<const QDoubleValidator*>(field->validator())) {
                for (double end : {real->bottom(), real->top()})
                    QVERIFY2(uitest::ShowsWhole(*field, TextOfNumber(end)),
                             qPrintable(name + ": " + TextOfNumber(end)));
            }
            if (auto* unit = editor->findChild<QLineEdit*>("lineEditUnit")) {
                ++units;
                QVERIFY2(uitest::ShowsWhole(*unit, unit->text()),
                         qPrintable(name + ": " + unit->text()));
            }
        }
        QVERIFY(numberFields > 20);
        QVERIFY(units >= 2);
        // The temperature and its unit, cut before.
        QWidget* temperature = EditorOf(*m_window, "Device Temperature");
        QVERIFY(temperature);
        QCOMPARE(temperature->findChild<QLineEdit*>("lineEditUnit")->text(), QString("C"));
    }

    void longReadOnlyTextShowsItsStartWithTheWholeTextAsToolTip() {
        QWidget* editor = EditorOf(*m_window, "Manufacturer Info");
        QVERIFY(editor);
        QVERIFY(!editor->isEnabled());
        auto* field = editor->findChild<QLineEdit*>("lineEdit");
        const QString whole = "Simulated camera of Korvatin Viewlane";
        QCOMPARE(field->text(), whole);
        QVERIFY2(!uitest::ShowsWhole(*field, whole), "the text is longer than its field");
        QCOMPARE(field->cursorPosition(), 0);
        QCOMPARE(field->toolTip(), whole);
        // Drawn from its first character: the left edge shows the start, the right edge a
        // character before the end.
        const int middle = field->height() / 2;
        QTRY_COMPARE(field->cursorPositionAt(QPoint(6, middle)), 0);
        QVERIFY(field->cursorPositionAt(QPoint(field->width() - 6, middle)) < whole.size());
    }

    void panelWidthTheUserSetIsKeptAcrossAReconnect() {
        QSplitter* splitter = Splitter();
        const int fitted = PanelWidth();
        QVERIFY(!m_window->PanelWidthSetByUser());
        // The user drags the handle between display and panel 120 pixels to the right.
        QWidget* handle = splitter->handle(2);
        const QPoint grip = handle->rect().center();
        QTest::mousePress(handle, Qt::LeftButton, Qt::NoModifier, grip);
        QTest::mouseMove(handle, grip + QPoint(60, 0));
        QTest::mouseMove(handle, grip + QPoint(120, 0));
        QTest::mouseRelease(handle, Qt::LeftButton, Qt::NoModifier, grip + QPoint(120, 0));
        QTRY_VERIFY(m_window->PanelWidthSetByUser());
        const int chosen = PanelWidth();
        QVERIFY2(chosen < fitted - 60, qPrintable(QString("%1 -> %2").arg(fitted).arg(chosen)));

        ClickRow(*m_window, 0); // disconnects
        QVERIFY(!m_window->IsConnected());
        QCOMPARE(Tree(*m_window)->topLevelItemCount(), 0);
        QVERIFY(ClickCamera());
        QCOMPARE(PanelWidth(), chosen);
        // The narrower panel keeps the editors' column whole and shortens the names' column
        // instead of scrolling sideways.
        QTreeWidget* tree = Tree(*m_window);
        QTRY_COMPARE(tree->horizontalScrollBar()->maximum(), 0);
        QVERIFY(tree->columnWidth(0) < tree->header()->sectionSizeHint(0) ||
                tree->columnWidth(0) + tree->columnWidth(1) <= tree->viewport()->width());
        QWidget* temperature = EditorOf(*m_window, "Device Temperature");
        QVERIFY(temperature);
        const QRect inViewport(temperature->mapTo(tree->viewport(), QPoint(0, 0)),
                               temperature->size());
        QVERIFY(inViewport.right() < tree->viewport()->width());
        QTRY_VERIFY_WITH_TIMEOUT(m_window->DisplayTicks() > 0, 20000);
        uitest::SaveScreenshot(m_window.get(), "featurepanel-user-width");
    }
};

QTEST_MAIN(TestFeaturePanelFit)
#include "tst_featurepanelfit.moc"
