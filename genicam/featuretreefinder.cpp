// Finding features in the feature tree: the filter field and the visibility choice above it,
// and the tool tip that every row builds from its feature's own help when the pointer rests on it.
#include "featuretreefinder.h"

#include <korvatin/korvatinexception.h>

#include <QComboBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QHelpEvent>
#include <QLineEdit>
#include <QTreeWidget>
#include <QWidget>

CFeatureTreeFinder::CFeatureTreeFinder(QTreeWidget* tree, NodeLookup lookup, QObject* parent)
    : QObject(parent), m_tree(tree), m_lookup(std::move(lookup)) {
    m_row = new QWidget;
    m_row->setObjectName("widget_featureFilter");
    // The side panels sit on the window's black background, which every child inherits; the
    // filter's controls are as white as the tree below them.
    m_row->setStyleSheet("QLineEdit, QComboBox { background-color: rgb(255, 255, 255); "
                         "color: rgb(0, 0, 0); }");
    auto* layout = new QHBoxLayout(m_row);
    layout->setContentsMargins(0, 0, 0, 0);
    m_text = new QLineEdit(m_row);
    m_text->setObjectName("lineEdit_featureFilter");
    m_text->setPlaceholderText("Filter features");
    m_text->setToolTip("Shows the features whose name or display name contains this text");
    m_text->setClearButtonEnabled(true);
    m_visibility = new QComboBox(m_row);
    m_visibility->setObjectName("comboBox_featureVisibility");
    // Index 0 shows every feature, the invisible ones included, as the tree always did.
    m_visibility->addItems({"All", "Beginner", "Expert", "Guru"});
    m_visibility->setToolTip("Feature visibility");
    layout->addWidget(m_text, 1);
    layout->addWidget(m_visibility, 0);
    connect(m_text, &QLineEdit::textChanged, this, &CFeatureTreeFinder::Apply);
    connect(m_visibility, &QComboBox::currentIndexChanged, this, &CFeatureTreeFinder::Apply);
    m_tree->viewport()->installEventFilter(this);
}

void CFeatureTreeFinder::TagItem(QTreeWidgetItem* item, const CKorvatinGenICamNodeT& node) {
    std::vector<char> name(256, '\0');
    unsigned long length = 0;
    node.Name(name.data(), (unsigned long)name.size(), &length);
    if (length >= name.size()) {
        name.assign(length + 1, '\0');
        node.Name(name.data(), (unsigned long)name.size(), nullptr);
    }
    item->setData(0, FeatureNameRole, QString::fromUtf8(name.data()));
    item->setData(0, VisibilityRole, int(CKorvatinFeatureHelp::Visibility(node)));
}

void CFeatureTreeFinder::Apply() {
    const QString text = m_text->text().trimmed();
    const int choice = m_visibility->currentIndex();
    const bool levelChosen = choice > 0;
    const auto level = EKorvatinVisibility(std::max(choice - 1, 0));
    for (int i = 0; i < m_tree->topLevelItemCount(); ++i) {
        QTreeWidgetItem* root = m_tree->topLevelItem(i);
        ApplyTo(root, text, levelChosen, level);
        // The root stays, so that an empty result still shows which camera it is.
        root->setHidden(false);
    }
}

// A row is shown when its visibility passes and its name or display name holds the text, or when
// it is a category that leads to such a row. A category whose own name holds the text brings
// its whole (visible) content.
bool CFeatureTreeFinder::ApplyTo(QTreeWidgetItem* item, const QString& text, bool levelChosen,
                                 EKorvatinVisibility level) {
    const auto visibility = EKorvatinVisibility(item->data(0, VisibilityRole).toInt());
    if (levelChosen && !CKorvatinFeatureHelp::ShownAt(visibility, level)) {
        item->setHidden(true);
        return false;
    }
    const bool matches =
        text.isEmpty() || item->text(0).contains(text, Qt::CaseInsensitive) ||
        item->data(0, FeatureNameRole).toString().contains(text, Qt::CaseInsensitive);
    bool childShown = false;
    for (int i = 0; i < item->childCount(); ++i) {
        if (ApplyTo(item->child(i), matches ? QString() : text, levelChosen, level))
            childShown = true;
    }
    const bool shown = matches || childShown;
    item->setHidden(!shown);
    return shown;
}

QString CFeatureTreeFinder::HelpText(QTreeWidgetItem* item) const {
    if (!item)
        return QString();
    const QString name = item->data(0, FeatureNameRole).toString();
    if (name.isEmpty())
        return QString();
    CKorvatinGenICamNodeT node;
    try {
        node = m_lookup(name.toStdString());
    } catch (const CKorvatinException& e) {
        // A camera gone since the tree was built has no help to give; the row says why.
        return name + "\n" + QString::fromUtf8(e.what());
    }
    return QString::fromStdString(CKorvatinFeatureHelp::Text(CKorvatinFeatureHelp::Fields(node)));
}

bool CFeatureTreeFinder::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_tree->viewport() && event->type() == QEvent::ToolTip) {
        auto* help = static_cast<QHelpEvent*>(event);
        if (QTreeWidgetItem* item = m_tree->itemAt(help->pos())) {
            // Built at the moment it is asked for: ranges and addresses follow other features.
            const QString text = HelpText(item);
            item->setToolTip(0, text);
            item->setToolTip(1, text);
        }
    }
    // The view itself shows the row's tool tip.
    return QObject::eventFilter(watched, event);
}
