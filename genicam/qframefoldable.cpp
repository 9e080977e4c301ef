// A collapsible section of the side panel: a header with an arrow and a title over content that
// folds away.
#include "qframefoldable.h"

#include "ui_qframefoldable.h"

QFrameFoldable::QFrameFoldable(QWidget* parent) : QFrame(parent), ui(new Ui::QFrameFoldable) {
    ui->setupUi(this);
    m_unfolded = false;
    m_ownChildCount = int(findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly).size());
}

QFrameFoldable::~QFrameFoldable() = default;

QList<QWidget*> QFrameFoldable::FoldableChildren() const {
    const QList<QWidget*> children = findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly);
    QList<QWidget*> content;
    for (int i = m_ownChildCount; i < children.size(); ++i) {
        if (!children[i]->accessibleName().isEmpty())
            content.append(children[i]);
    }
    return content;
}

void QFrameFoldable::InitFoldable() {
    const QString title = toolTip();
    ui->labelTitle->setText(title);
    ui->labelTitle->setToolTip(title);
    ui->toolButton->setToolTip(title);
    for (QWidget* child : FoldableChildren()) {
        child->hide();
        ui->verticalLayout->addWidget(child);
    }
}

void QFrameFoldable::on_toolButton_clicked() {
    const bool wasUnfolded = m_unfolded;
    m_unfolded = !m_unfolded;
    for (QWidget* child : FoldableChildren())
        child->setVisible(!wasUnfolded);
    ui->toolButton->setArrowType(m_unfolded ? Qt::DownArrow : Qt::RightArrow);
}

void QFrameFoldable::SetUnfolded(bool unfolded) {
    if (unfolded != m_unfolded)
        on_toolButton_clicked();
}
