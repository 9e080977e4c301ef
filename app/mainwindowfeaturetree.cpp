// The feature tree of the main window: one row per GenICam feature with its editor, the editors'
// node-change callbacks, the polling of non-cachable features and the editors' error messages.
#include "mainwindow.h"

#include "panelfitter.h"

#include "ui_mainwindow.h"

#include <featuretreefinder.h>
#include <genicambooleanframe.h>
#include <genicamcommandframe.h>
#include <genicamenumerationframe.h>
#include <genicamfloatframe.h>
#include <genicamframe.h>
#include <genicamsignedint32frame.h>
#include <genicamstringframe.h>
#include <genicamunsignedint32frame.h>
#include <korvatincameraviewlane.h>
#include <korvatingenicamnodecallbackext.h>
#include <metatypes.h>

#include <korvatin/korvatinexception.h>

#include <QHeaderView>
#include <QScrollBar>
#include <QSplitter>
#include <QTimer>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>

#include <algorithm>
#include <exception>
#include <list>
#include <vector>

namespace {

// Display-name buffers: the root's row and every other row.
constexpr unsigned long kRootNameSize = 32;
constexpr unsigned long kNodeNameSize = 64;

QString DisplayNameOf(const CKorvatinGenICamNodeT& node, unsigned long size) {
    std::vector<char> buffer(size, '\0');
    node.DisplayName(buffer.data(), size, nullptr);
    buffer[size - 1] = '\0';
    return QString::fromUtf8(buffer.data());
}

// The editor for a node of `type`, or null for a category and for types that get no row.
CGENiCAMFrame* CreateEditor(QrnParamDataType type, const CKorvatinGenICamNodeT& node,
                            QWidget* parent) {
    switch (type) {
    case QRN_PARAM_UINT32:
        return new CGENiCAMUnsignedInt32Frame(node, parent);
    case QRN_PARAM_INT32:
        return new CGENiCAMSignedInt32Frame(node, parent);
    case QRN_PARAM_BOOLEAN:
        return new CGENiCAMBooleanFrame(node, parent);
    case QRN_PARAM_COMMAND:
        return new CGENiCAMCommandFrame(node, parent);
    case QRN_PARAM_FLOAT:
        return new CGENiCAMFloatFrame(node, parent);
    case QRN_PARAM_STRING:
        return new CGENiCAMStringFrame(node, parent);
    case QRN_PARAM_ENUMERATION:
        return new CGENiCAMEnumerationFrame(node, parent);
    default:
        return nullptr;
    }
}

// Editors whose node changes are followed through a callback object.
bool FollowsNodeChanges(QrnParamDataType type) {
    return type == QRN_PARAM_UINT32 || type == QRN_PARAM_INT32 || type == QRN_PARAM_FLOAT ||
           type == QRN_PARAM_STRING;
}

} // namespace

void MainWindow::LoadGENiCAMTree() {
    std::exception_ptr error;
    try {
        BuildGENiCAMTree();
    } catch (const std::exception&) {
        error = std::current_exception();
    }
    ui->treeWidgetGenICam->expandAll();
    FitFeaturePanel();
    if (error)
        std::rethrow_exception(error);
}

void MainWindow::FitFeaturePanel() {
    QTreeWidget* tree = ui->treeWidgetGenICam;
    if (tree->topLevelItemCount() == 0)
        return;

    tree->resizeColumnToContents(0);
    // An editor in a cell is given the cell's width within its own limits: the column is as wide
    // as the widest editor wants to be.
    int valueWidth = tree->header()->sectionSizeHint(1);
    for (QTreeWidgetItemIterator it(tree); *it; ++it) {
        QWidget* editor = tree->itemWidget(*it, 1);
        if (!editor)
            continue;
        editor->ensurePolished();
        const int wanted =
            std::clamp(editor->sizeHint().width(), editor->minimumWidth(), editor->maximumWidth());
        valueWidth = std::max(valueWidth, wanted);
    }
    tree->setColumnWidth(1, valueWidth);
    m_panelFitter->SetTreeWidths(tree->columnWidth(0), valueWidth);
}

bool MainWindow::PanelWidthSetByUser() const {
    return m_panelFitter->FeaturePanelWidthByUser();
}

void MainWindow::BuildGENiCAMTree() {
    CKorvatinGenICamNodeT root = m_session->GetGENiCAMRoot();
    if (root.DataType() != QRN_PARAM_CATEGORY)
        return;

    ClearGENiCAMNodeCallbacks();
    const QString rootName = DisplayNameOf(root, kRootNameSize);
    auto* rootItem = new QTreeWidgetItem(0);
    rootItem->setText(0, rootName);
    CFeatureTreeFinder::TagItem(rootItem, root);
    ClearReadonlyNodesPolling();
    ui->treeWidgetGenICam->clear();

    // The rows are built while the root is not yet in the tree widget and the editors are
    // placed once it is: each row inserted into a tree that already holds editors would update
    // every editor's model index, which makes a tree of a thousand features quadratic.
    m_pendingEditors.clear();
    std::list<CKorvatinGenICamNodeT> features;
    try {
        root.GetCategoryFeatures(&features);
    } catch (const CKorvatinException& e) {
        rootItem->setData(1, NodeErrorRole, QVariant::fromValue(e));
    }
    m_categoriesBeingBuilt.assign(1, root);
    for (const CKorvatinGenICamNodeT& feature : features)
        AddGENiCAMNode(rootItem, feature);
    m_categoriesBeingBuilt.clear();
    ui->treeWidgetGenICam->addTopLevelItem(rootItem);
    // Placed into a hidden viewport, the editors are laid out and polished once, when it is
    // shown again, rather than one by one.
    QWidget* viewport = ui->treeWidgetGenICam->viewport();
    const bool viewportVisible = viewport->isVisible();
    viewport->hide();
    for (const auto& [item, editor] : m_pendingEditors)
        ui->treeWidgetGenICam->setItemWidget(item, 1, editor);
    m_pendingEditors.clear();
    if (viewportVisible)
        viewport->show();

    StartPollingIfChecked();
    // A rebuilt tree is filtered as the user asked for the one before.
    if (m_featureFinder)
        m_featureFinder->Apply();

    const QVariant error = rootItem->data(1, NodeErrorRole);
    if (error.isValid() && !error.isNull())
        throw error.value<CKorvatinException>();
}

void MainWindow::DropPendingEditorsFrom(qsizetype first) {
    for (qsizetype i = first; i < m_pendingEditors.size(); ++i) {
        CGENiCAMFrame* editor = m_pendingEditors[i].second;
        m_readonlyPollingFrames.removeOne(editor);
        for (qsizetype c = m_nodeCallbacks.size() - 1; c >= 0; --c) {
            if (m_nodeCallbacks[c]->Editor() == editor)
                delete m_nodeCallbacks.takeAt(c);
        }
        delete editor;
    }
    m_pendingEditors.resize(first);
}

void MainWindow::AddGENiCAMNode(QTreeWidgetItem* parent, CKorvatinGenICamNodeT node) {
    QString name;
    QrnParamDataType type = QRN_PARAM_OTHER;
    try {
        // Both may read the device (a display name or a minimum behind a register): a failure
        // climbs the tree as an editor's does, and what was built before it stays.
        name = DisplayNameOf(node, kNodeNameSize);
        type = node.DataType();
    } catch (const CKorvatinException& e) {
        parent->setData(1, NodeErrorRole, QVariant::fromValue(e));
        return;
    }
    if (type == QRN_PARAM_ENUMENTRY || int(type) > int(QRN_PARAM_CATEGORY))
        return;
    // A category listed inside itself, directly or through others (a description can say so),
    // gets its row but is not entered again.
    const bool enclosing = type == QRN_PARAM_CATEGORY &&
                           std::find(m_categoriesBeingBuilt.begin(), m_categoriesBeingBuilt.end(),
                                     node) != m_categoriesBeingBuilt.end();

    const bool attachedAtOnce = type == QRN_PARAM_STRING || type == QRN_PARAM_CATEGORY;
    auto* item = attachedAtOnce ? new QTreeWidgetItem(parent) : new QTreeWidgetItem;

    // Creating an editor or its callback reads the node too (display name, access mode).
    CGENiCAMFrame* editor = nullptr;
    CKorvatinGenICamNodeCallbackExt* callback = nullptr;
    try {
        // Created in the tree's viewport, where it ends up: a widget moved there from outside
        // takes the window's style sheets over, which repolishes all its controls (and makes
        // every combo box build its popup) once more.
        editor = CreateEditor(type, node, ui->treeWidgetGenICam->viewport());
        if (editor && FollowsNodeChanges(type)) {
            callback = new CKorvatinGenICamNodeCallbackExt(node, editor);
            m_nodeCallbacks.append(callback);
        }
    } catch (const CKorvatinException& e) {
        parent->setData(1, NodeErrorRole, QVariant::fromValue(e));
        delete editor;
        delete item;
        return;
    }

    if (type == QRN_PARAM_CATEGORY && !enclosing) {
        const qsizetype firstPending = m_pendingEditors.size();
        std::list<CKorvatinGenICamNodeT> features;
        try {
            node.GetCategoryFeatures(&features);
        } catch (const CKorvatinException& e) {
            parent->setData(1, NodeErrorRole, QVariant::fromValue(e));
            delete item;
            return;
        }
        m_categoriesBeingBuilt.push_back(node);
        QVariant error;
        for (const CKorvatinGenICamNodeT& feature : features) {
            AddGENiCAMNode(item, feature);
            error = item->data(1, NodeErrorRole);
            if (error.isValid() && !error.isNull())
                break;
        }
        m_categoriesBeingBuilt.pop_back();
        if (error.isValid() && !error.isNull()) {
            parent->setData(1, NodeErrorRole, error);
            // The editors of the rows going with the category were not placed yet.
            DropPendingEditorsFrom(firstPending);
            delete item;
            return;
        }
    }

    if (editor) {
        connect(editor, &CGENiCAMFrame::GENiCAMNodeError, this,
                &MainWindow::GENiCAMNodeErrorOccured, Qt::QueuedConnection);
        try {
            editor->InitFromNode();
            editor->UpdateFromNode();
        } catch (const CKorvatinException& e) {
            parent->setData(1, NodeErrorRole, QVariant::fromValue(e));
            // The callback would otherwise keep pointing at the editor deleted here.
            if (callback) {
                m_nodeCallbacks.removeOne(callback);
                delete callback;
            }
            delete item;
            delete editor;
            return;
        }
    }

    item->setText(0, name);
    CFeatureTreeFinder::TagItem(item, node);
    if (!attachedAtOnce)
        parent->addChild(item);

    if (editor) {
        if (!node.IsCachable())
            m_readonlyPollingFrames.append(editor);
        m_pendingEditors.append({item, editor});
    }
}

void MainWindow::ClearGENiCAMNodeCallbacks() {
    qDeleteAll(m_nodeCallbacks);
    m_nodeCallbacks.clear();
}

void MainWindow::ClearReadonlyNodesPolling() {
    m_timerReadonlyNodesPolling->stop();
    m_readonlyPollingFrames.clear();
}

void MainWindow::TimerReadonlyNodesPollingTimeout() {
    const QList<CGENiCAMFrame*> editors = m_readonlyPollingFrames;
    for (CGENiCAMFrame* editor : editors) {
        try {
            editor->UpdateFromNode();
        } catch (const CKorvatinException&) {
            // Polling stays off until it is switched on again or the tree is rebuilt.
            m_timerReadonlyNodesPolling->stop();
            return;
        }
    }
}

void MainWindow::GENiCAMNodeErrorOccured(QString message) {
    ShowMessage(message, this);
    try {
        m_session->ClearGvcpReplyBuffer();
    } catch (const CKorvatinException&) {
        // Nothing stale to clear is as good as a cleared buffer.
    }
}
