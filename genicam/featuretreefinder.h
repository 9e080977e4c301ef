// Finding features in the feature tree: the filter field and the visibility choice above it,
// and the tool tip that every row builds from its feature's own help when the pointer rests on it.
#pragma once

#include <korvatin/korvatinfeaturehelp.h>

#include <QObject>
#include <QString>

#include <functional>
#include <string>

class QComboBox;
class QLineEdit;
class QTreeWidget;
class QTreeWidgetItem;
class QWidget;

class CFeatureTreeFinder : public QObject {
    Q_OBJECT
public:
    // Item data of column 0 that the rows carry for the finder.
    static constexpr int FeatureNameRole = Qt::UserRole + 4; // the feature's name
    static constexpr int VisibilityRole = Qt::UserRole + 5;  // EKorvatinVisibility as int

    // Looks a feature up by name on the connected camera; an invalid handle when there is none.
    using NodeLookup = std::function<CKorvatinGenICamNodeT(const std::string& name)>;

    // Builds the filter row (object name "widget_featureFilter", with "lineEdit_featureFilter"
    // and "comboBox_featureVisibility") for the caller to place above `tree`.
    CFeatureTreeFinder(QTreeWidget* tree, NodeLookup lookup, QObject* parent = nullptr);

    QWidget* FilterRow() const { return m_row; }

    // Stores what filtering and the tool tip need of `node` on its row.
    static void TagItem(QTreeWidgetItem* item, const CKorvatinGenICamNodeT& node);

    // Shows the rows that pass the current text and visibility; called after the tree is rebuilt.
    void Apply();

    // The tool tip of `item`, built now from its feature's help; empty for an untagged row.
    QString HelpText(QTreeWidgetItem* item) const;

protected:
    // GUI thread: the tree viewport's tool-tip events, also those its editors pass up.
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    bool ApplyTo(QTreeWidgetItem* item, const QString& text, bool levelChosen,
                 EKorvatinVisibility level);

    QTreeWidget* m_tree;
    NodeLookup m_lookup;
    QWidget* m_row = nullptr;
    QLineEdit* m_text = nullptr;
    QComboBox* m_visibility = nullptr;
};
