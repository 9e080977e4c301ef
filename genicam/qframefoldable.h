// A collapsible section of the side panel: a header with an arrow and a title over content that
// folds away.
#pragma once

#include <QFrame>

#include <memory>

namespace Ui {
class QFrameFoldable;
}

// The content is not handed over through an interface: the host form places ordinary child
// widgets inside the panel, and InitFoldable() takes as foldable content every child added after
// the panel's own header whose accessible name is not empty. The title is the panel's tool tip.
class QFrameFoldable : public QFrame {
    Q_OBJECT

public:
    explicit QFrameFoldable(QWidget* parent = nullptr);
    ~QFrameFoldable() override;

    // Called once by the host after its form has filled the panel: sets the title from the tool
    // tip and moves the content below the header, folded.
    void InitFoldable();

    bool IsUnfolded() const { return m_unfolded; }
    // Folds or unfolds the panel as a click on its arrow does.
    void SetUnfolded(bool unfolded);

private slots:
    void on_toolButton_clicked();

private:
    // The children the host added, in child order, that are foldable content.
    QList<QWidget*> FoldableChildren() const;

    std::unique_ptr<Ui::QFrameFoldable> ui;
    int m_ownChildCount = 0; // direct child widgets of the panel's own form (the header)
    bool m_unfolded = false;
};
