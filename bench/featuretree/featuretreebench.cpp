// Feature panel benchmark: the whole main window against korvatin-camsim, once with the
// simulator's own description and once with 1,000 more features. Measures, per round, the time
// from the click on the device row until the click has connected (tree built, stream started) and
// until the first frame is displayed, and the time to rebuild the tree; then counts the editors a
// slider write refreshes, against the editors the tree holds.
// Runs under an X server (xvfb.sh) inside a private network namespace (isolated.sh).
#include "windowdriver.h"

#include <bulkdescription.h>
#include <genicamframe.h>
#include <korvatincameraviewlane.h>
#include <qwidgetgrabbedframe.h>
#include <simulatorprocess.h>

#include <korvatin/korvatingenicamnodecallback.h>

#include <QApplication>
#include <QCheckBox>
#include <QElapsedTimer>
#include <QSlider>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <vector>

using namespace e2e;

namespace {

struct Figures {
    std::vector<double> connectMs, firstFrameMs, rebuildMs, rebuildCpuMs, idleRebuildMs,
        idleRebuildCpuMs;
};

// CPU time of the calling thread: what the GUI thread itself spends, without the waits for
// the camera's answers.
double ThreadCpuMs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0.0 : values[values.size() / 2];
}

void Print(const char* what, const std::vector<double>& values) {
    if (values.empty())
        return;
    std::printf("  %-36s median %8.1f ms  min %8.1f  max %8.1f  (%zu rounds)\n", what,
                Median(values), *std::min_element(values.begin(), values.end()),
                *std::max_element(values.begin(), values.end()), values.size());
}

// Counts the notifications of one node.
class CountingCallback : public CKorvatinGenICamNodeCallback {
public:
    CountingCallback(CKorvatinGenICamNodeT node, int* count) : m_node(node), m_count(count) {
        m_node.RegisterCallBack(*this);
    }
    ~CountingCallback() override { m_node.DeregisterCallBack(); }
    void NodeChanged() override {
        ++*m_count;
        ++calls;
    }
    CKorvatinGenICamNodeT m_node;
    int* m_count;
    int calls = 0;
};

// The editors of the tree that follow their node through a callback.
std::vector<CGENiCAMFrame*> FollowingEditors(MainWindow& window) {
    std::vector<CGENiCAMFrame*> editors;
    QTreeWidget* tree = Tree(window);
    std::function<void(QTreeWidgetItem*)> walk = [&](QTreeWidgetItem* item) {
        if (auto* editor = qobject_cast<CGENiCAMFrame*>(tree->itemWidget(item, 1))) {
            const QrnParamDataType type = editor->Node().DataType();
            if (type == QRN_PARAM_UINT32 || type == QRN_PARAM_INT32 || type == QRN_PARAM_FLOAT ||
                type == QRN_PARAM_STRING)
                editors.push_back(editor);
        }
        for (int i = 0; i < item->childCount(); ++i)
            walk(item->child(i));
    };
    for (int i = 0; i < tree->topLevelItemCount(); ++i)
        walk(tree->topLevelItem(i));
    return editors;
}

int CountRows(MainWindow& window) {
    int rows = 0;
    QTreeWidget* tree = Tree(window);
    std::function<void(QTreeWidgetItem*)> walk = [&](QTreeWidgetItem* item) {
        rows += tree->itemWidget(item, 1) ? 1 : 0;
        for (int i = 0; i < item->childCount(); ++i)
            walk(item->child(i));
    };
    for (int i = 0; i < tree->topLevelItemCount(); ++i)
        walk(tree->topLevelItem(i));
    return rows;
}

// Moves the slider of `feature` one step and reports which followed editors were notified.
void CountSliderRefreshes(MainWindow& window, const QString& feature, bool up) {
    std::vector<CGENiCAMFrame*> editors = FollowingEditors(window);
    int total = 0;
    std::vector<std::unique_ptr<CountingCallback>> counters;
    for (CGENiCAMFrame* editor : editors)
        counters.push_back(std::make_unique<CountingCallback>(editor->Node(), &total));
    auto* slider = EditorOf(window, feature)->findChild<QSlider*>("horizontalSlider");
    slider->triggerAction(up ? QAbstractSlider::SliderSingleStepAdd
                             : QAbstractSlider::SliderSingleStepSub);
    QStringList refreshed;
    for (const auto& counter : counters) {
        if (counter->calls == 0)
            continue;
        char name[128] = {};
        counter->m_node.Name(name, sizeof name, nullptr);
        refreshed << QString(name);
    }
    std::printf("  slider write on %s: %d editors refreshed of %zu that follow their node "
                "(%d rows in the tree): %s\n",
                qPrintable(feature), total, editors.size(), CountRows(window),
                qPrintable(refreshed.join(", ")));
}

bool Measure(const QString& label, const QStringList& camsimArguments, const QString& settings,
             int rounds, const QString& sliderFeature) {
    SimulatorProcess sim;
    if (!sim.startCamsim(camsimArguments)) {
        std::fprintf(stderr, "camsim: %s\n", qPrintable(sim.errorString()));
        return false;
    }
    MainWindow window(nullptr, settings);
    window.resize(1600, 1000);
    if (!QTest::qWaitForWindowExposed(&window) ||
        !QTest::qWaitFor([&] { return Table(window)->rowCount() == 1; }, 20000)) {
        std::fprintf(stderr, "%s: the camera was not discovered\n", qPrintable(label));
        return false;
    }
    auto* display = window.findChild<CQwidgetGrabbedFrame*>("widgetGrabbedFrame");
    MessageBoxWatcher boxes;
    Figures figures;
    int rows = 0;
    for (int round = 0; round < rounds; ++round) {
        QElapsedTimer clock;
        clock.start();
        ClickRow(window, 0);
        const double connected = clock.nsecsElapsed() / 1e6;
        if (!window.IsConnected()) {
            std::fprintf(stderr, "%s: connect failed: %s\n", qPrintable(label),
                         qPrintable(boxes.texts.join("; ")));
            return false;
        }
        if (!QTest::qWaitFor([&] { return display->PaintedFrameCount() > 0; }, 20000)) {
            std::fprintf(stderr, "%s: no frame displayed\n", qPrintable(label));
            return false;
        }
        // qWaitFor polls every few milliseconds; the paint that counted the frame happened
        // before this point.
        const double firstFrame = clock.nsecsElapsed() / 1e6;
        rows = CountRows(window);
        QElapsedTimer rebuild;
        const double cpuBefore = ThreadCpuMs();
        rebuild.start();
        window.LoadGENiCAMTree();
        figures.rebuildMs.push_back(rebuild.nsecsElapsed() / 1e6);
        figures.rebuildCpuMs.push_back(ThreadCpuMs() - cpuBefore);
        figures.connectMs.push_back(connected);
        figures.firstFrameMs.push_back(firstFrame);
        if (round + 1 == rounds && !sliderFeature.isEmpty()) {
            QTest::qWait(200);
            CountSliderRefreshes(window, sliderFeature, false);
            CountSliderRefreshes(window, "Exposure", false);
            CountSliderRefreshes(window, "Gain", true);
        }
        // The build a click makes runs before the stream starts: the same without streaming.
        auto* displaySwitch = window.findChild<QCheckBox*>("checkBox_display");
        displaySwitch->setChecked(false); // gives the shown frame back to the session
        window.Session()->StopConversion();
        window.Session()->StopGrab();
        QTest::qWait(100);
        const double idleCpuBefore = ThreadCpuMs();
        rebuild.restart();
        window.LoadGENiCAMTree();
        figures.idleRebuildMs.push_back(rebuild.nsecsElapsed() / 1e6);
        figures.idleRebuildCpuMs.push_back(ThreadCpuMs() - idleCpuBefore);
        ClickRow(window, 0);
        displaySwitch->setChecked(true);
        QTest::qWait(300);
    }
    std::printf("%s: %d feature rows\n", qPrintable(label), rows);
    Print("click -> connected (tree built)", figures.connectMs);
    Print("click -> first frame displayed", figures.firstFrameMs);
    Print("tree rebuild (LoadGENiCAMTree)", figures.rebuildMs);
    Print("  of which GUI thread CPU time", figures.rebuildCpuMs);
    Print("tree rebuild, not streaming", figures.idleRebuildMs);
    Print("  of which GUI thread CPU time", figures.idleRebuildCpuMs);
    return true;
}

} // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    const int rounds = argc > 1 ? std::max(1, atoi(argv[1])) : 5;
    QTemporaryDir dir;
    const QString settings = WriteSettings(dir.filePath("settings.ini"));
    const QString bulk = dir.filePath("bulk.xml");
    QString error;
    bulkdescription::Counts counts;
    if (!bulkdescription::Write(bulkdescription::BuiltInPath(), bulk, 1000, &error, &counts)) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    std::printf("Feature panel, korvatin-camsim 1280 x 960 Mono8 over loopback, %d rounds\n",
                rounds);
    bool ok =
        Measure("simulator's description", {"--address", "127.0.21.10"}, settings, rounds, "Width");
    ok = Measure(QString("with 1000 features added (%1 integer, %2 boolean, %3 enumeration, "
                         "%4 float, %5 string)")
                     .arg(counts.integers)
                     .arg(counts.booleans)
                     .arg(counts.enumerations)
                     .arg(counts.floats)
                     .arg(counts.strings),
                 {"--address", "127.0.21.11", "--description", bulk}, settings, rounds, "Width") &&
         ok;
    return ok ? 0 : 1;
}
