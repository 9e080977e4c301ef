// How the main window's three panels share its width as it is resized, as side panels fold and
// unfold and as cameras come and go.
#pragma once

#include <QList>
#include <QObject>

class QFrameFoldable;
class QSplitter;
class QTableWidget;
class QTreeWidget;
class QWidget;

// The splitter's children are the side panel, the display's frame and the feature panel. From
// the sizes the window starts with, the fitter keeps, whenever the window, the side panel's
// content or the tree changes:
// - the side panel as wide as its content needs, at least an eighth of the splitter, and wide
//   enough to show the device table's first three columns whole while that table is shown;
// - the display's frame at least a third of the window's width;
// - the feature panel as wide as its names and editors need while a tree is shown, within what
//   the other two leave; the value column keeps the editors' width and the name column takes
//   the rest, so the tree never scrolls sideways while there is room for the editors.
// A width the user gives a panel by dragging its splitter handle is kept instead of the fitted
// one, within the same limits. A foldable panel unfolded while the side panel has not the height
// to show it beside the others folds the others, so that the window never grows taller than it
// is.
class CPanelFitter : public QObject {
    Q_OBJECT

public:
    CPanelFitter(QSplitter* splitter, QWidget* sidePanel, QWidget* displayFrame,
                 QWidget* featurePanel, QTreeWidget* tree, QWidget* devicesPanel,
                 QTableWidget* devices, QObject* parent = nullptr);

    // The tree was filled: its names need `nameWidth` pixels and its editors `valueWidth`.
    void SetTreeWidths(int nameWidth, int valueWidth);
    // The device table was filled: its columns are fitted to their contents.
    void DevicesChanged();

    bool FeaturePanelWidthByUser() const { return m_featurePanelByUser; }

    // Shares the width now.
    void Fit();
    // Shares it once the events queued now are handled; repeated requests make one fit.
    void FitSoon();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    int SidePanelWidth(int total) const;
    int FeaturePanelWanted() const;
    void FitTreeColumns();
    void MakeRoomFor(QFrameFoldable* unfolded);

    QSplitter* m_splitter;
    QWidget* m_sidePanel;
    QWidget* m_displayFrame;
    QWidget* m_featurePanel;
    QTreeWidget* m_tree;
    QWidget* m_devicesPanel;
    QTableWidget* m_devices;
    QList<QFrameFoldable*> m_foldables;
    int m_nameWidth = 0;
    int m_valueWidth = 0;
    int m_sidePanelByUser = 0; // width the user dragged the side panel to, 0 when none
    bool m_featurePanelByUser = false;
    bool m_fitPending = false;
    bool m_fitting = false;
};
