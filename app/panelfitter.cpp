// How the main window's three panels share its width as it is resized, as side panels fold and
// unfold and as cameras come and go.
#include "panelfitter.h"

#include <qframefoldable.h>

#include <QEvent>
#include <QHeaderView>
#include <QLayout>
#include <QScrollBar>
#include <QSplitter>
#include <QTableWidget>
#include <QTimer>
#include <QToolButton>
#include <QTreeWidget>

#include <algorithm>

namespace {

// The device table columns that must show whole: manufacturer, serial number, address.
constexpr int kWholeDeviceColumns = 3;

} // namespace

CPanelFitter::CPanelFitter(QSplitter* splitter, QWidget* sidePanel, QWidget* displayFrame,
                           QWidget* featurePanel, QTreeWidget* tree, QWidget* devicesPanel,
                           QTableWidget* devices, QObject* parent)
    : QObject(parent), m_splitter(splitter), m_sidePanel(sidePanel), m_displayFrame(displayFrame),
      m_featurePanel(featurePanel), m_tree(tree), m_devicesPanel(devicesPanel), m_devices(devices),
      m_foldables(sidePanel->findChildren<QFrameFoldable*>()) {
    // The panel's arrow is connected to the panel first: here the panel has already changed.
    for (QFrameFoldable* foldable : m_foldables)
        if (auto* arrow = foldable->findChild<QToolButton*>("toolButton"))
            connect(arrow, &QToolButton::clicked, this, [this, foldable] {
                if (foldable->IsUnfolded())
                    MakeRoomFor(foldable);
            });
    // Only a drag of a handle emits splitterMoved(), never setSizes() or a resized window.
    connect(m_splitter, &QSplitter::splitterMoved, this, [this](int /*pos*/, int index) {
        if (index == m_splitter->indexOf(m_featurePanel))
            m_featurePanelByUser = true;
        else if (index == m_splitter->indexOf(m_displayFrame))
            m_sidePanelByUser = m_splitter->sizes().at(m_splitter->indexOf(m_sidePanel));
    });
    m_splitter->installEventFilter(this);
    m_sidePanel->installEventFilter(this);
    m_tree->viewport()->installEventFilter(this);
}

void CPanelFitter::SetTreeWidths(int nameWidth, int valueWidth) {
    m_nameWidth = nameWidth;
    m_valueWidth = valueWidth;
    Fit();
}

void CPanelFitter::MakeRoomFor(QFrameFoldable* unfolded) {
    // Measured before the layouts act on the unfold, which would make the window taller.
    const int available = m_splitter->height();
    for (QFrameFoldable* other : m_foldables) {
        if (m_sidePanel->minimumSizeHint().height() <= available)
            return;
        if (other != unfolded && other->IsUnfolded())
            other->SetUnfolded(false);
    }
}

void CPanelFitter::DevicesChanged() {
    for (int column = 0; column < m_devices->columnCount(); ++column)
        m_devices->resizeColumnToContents(column);
    FitSoon();
}

bool CPanelFitter::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_tree->viewport()) {
        if (event->type() == QEvent::Resize)
            FitTreeColumns();
    } else if (event->type() == QEvent::Resize || event->type() == QEvent::LayoutRequest) {
        // The splitter lays its children out after this filter: the fit follows it.
        FitSoon();
    }
    return QObject::eventFilter(watched, event);
}

void CPanelFitter::FitSoon() {
    if (m_fitPending)
        return;
    m_fitPending = true;
    QTimer::singleShot(0, this, [this] {
        m_fitPending = false;
        Fit();
    });
}

int CPanelFitter::SidePanelWidth(int total) const {
    int width = m_sidePanelByUser > 0 ? m_sidePanelByUser : total / 8;
    if (m_devicesPanel->isVisibleTo(m_sidePanel) && m_devices->isVisibleTo(m_sidePanel)) {
        // The table's first columns whole, with its row header, frame and the room the panel's
        // layouts leave around it.
        int table = 2 * m_devices->frameWidth();
        if (m_devices->verticalHeader()->isVisible())
            table += m_devices->verticalHeader()->width();
        for (int column = 0; column < std::min(kWholeDeviceColumns, m_devices->columnCount());
             ++column)
            table += m_devices->columnWidth(column);
        if (m_devices->verticalScrollBar()->isVisible())
            table += m_devices->verticalScrollBar()->width();
        const int around = std::max(0, m_sidePanel->width() - m_devices->width());
        width = std::max(width, table + around);
    }
    return std::max(width, m_sidePanel->minimumSizeHint().width());
}

int CPanelFitter::FeaturePanelWanted() const {
    // The vertical scroll bar is counted whether or not it shows, so that a tree growing past
    // the panel's height does not make the names narrower.
    int margins = 0;
    if (QLayout* layout = m_featurePanel->layout())
        margins = layout->contentsMargins().left() + layout->contentsMargins().right();
    if (auto* frame = qobject_cast<QFrame*>(m_featurePanel))
        margins += 2 * frame->frameWidth();
    return m_nameWidth + m_valueWidth + 2 * m_tree->frameWidth() +
           m_tree->verticalScrollBar()->sizeHint().width() + margins;
}

void CPanelFitter::Fit() {
    QList<int> sizes = m_splitter->sizes();
    const int side = m_splitter->indexOf(m_sidePanel);
    const int display = m_splitter->indexOf(m_displayFrame);
    const int feature = m_splitter->indexOf(m_featurePanel);
    if (m_fitting || sizes.size() != 3 || side < 0 || display < 0 || feature < 0)
        return;
    m_fitting = true;
    int total = 0;
    for (int size : sizes)
        total += size;
    if (total > 0) {
        const int displayMinimum = (m_splitter->window()->width() + 2) / 3;
        const int featureMinimum = std::max(0, m_featurePanel->minimumSizeHint().width());
        const int sideWidth =
            std::max(m_sidePanel->minimumSizeHint().width(),
                     std::min(SidePanelWidth(total), total - displayMinimum - featureMinimum));
        const bool fitted = m_tree->topLevelItemCount() > 0 && !m_featurePanelByUser;
        const int wanted = fitted ? FeaturePanelWanted() : sizes[feature];
        const int room = total - sideWidth - displayMinimum;
        const int featureWidth = std::clamp(wanted, featureMinimum, std::max(featureMinimum, room));
        QList<int> fittedSizes = sizes;
        fittedSizes[side] = sideWidth;
        fittedSizes[feature] = featureWidth;
        fittedSizes[display] = std::max(0, total - sideWidth - featureWidth);
        if (fittedSizes != sizes)
            m_splitter->setSizes(fittedSizes);
    }
    m_fitting = false;
    FitTreeColumns();
}

void CPanelFitter::FitTreeColumns() {
    if (m_valueWidth <= 0 || m_tree->topLevelItemCount() == 0)
        return;
    // The editors keep their width; the names take what is left, up to what they need, and are
    // shortened by the tree when that is less. Too narrow a panel for both keeps a short name
    // column and scrolls.
    constexpr int kShortestNames = 80;
    const int room = m_tree->viewport()->width() - m_valueWidth;
    const int name = std::max(std::min(m_nameWidth, room), std::min(m_nameWidth, kShortestNames));
    if (m_tree->columnWidth(0) != name)
        m_tree->setColumnWidth(0, name);
    if (m_tree->columnWidth(1) < m_valueWidth)
        m_tree->setColumnWidth(1, m_valueWidth);
}
