// The foldable side-panel section: title from the tool tip, content picked by accessible name.
#include <qframefoldable.h>

#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <QToolButton>
#include <QVBoxLayout>

#include <memory>

class TestQFrameFoldable : public QObject {
    Q_OBJECT

    static QToolButton* Arrow(QFrameFoldable& panel) {
        return panel.findChild<QToolButton*>("toolButton");
    }
    static QLabel* Title(QFrameFoldable& panel) { return panel.findChild<QLabel*>("labelTitle"); }

private slots:
    void formIsSetUpAsDesigned() {
        QFrameFoldable panel(nullptr);
        QCOMPARE(panel.objectName(), QString("Frame"));
        QCOMPARE(panel.windowTitle(), QString("Frame"));
        QCOMPARE(panel.styleSheet(), QString("color: rgb(255,255, 255);\n"));
        QCOMPARE(panel.frameShape(), QFrame::NoFrame);
        QCOMPARE(panel.frameShadow(), QFrame::Sunken);
        auto* layout = qobject_cast<QVBoxLayout*>(panel.layout());
        QVERIFY(layout);
        QCOMPARE(layout->objectName(), QString("verticalLayout"));
        QCOMPARE(layout->spacing(), 0);
        QCOMPARE(layout->count(), 1);
        auto* header = panel.findChild<QFrame*>("frame");
        QCOMPARE(layout->itemAt(0)->widget(), header);
        QCOMPARE(header->minimumSize(), QSize(0, 20));
        QCOMPARE(header->styleSheet(), QString("QToolTip { color: #ffffff; background-color: "
                                               "#000000; border: 0px solid white; }"));
        QToolButton* arrow = Arrow(panel);
        QCOMPARE(arrow->arrowType(), Qt::RightArrow);
        QVERIFY(arrow->autoRaise());
        QVERIFY(arrow->autoFillBackground());
        QVERIFY(!arrow->isCheckable());
        QCOMPARE(arrow->popupMode(), QToolButton::InstantPopup);
        QCOMPARE(arrow->iconSize(), QSize(16, 16));
        QVERIFY(arrow->text().isEmpty());
        QCOMPARE(Title(panel)->text(), QString("TextLabel"));
        QVERIFY(!panel.IsUnfolded());
        // The header is the panel's only own child widget.
        QCOMPARE(panel.findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly).size(), 1);
    }

    void titleIsTheToolTip() {
        QFrameFoldable panel(nullptr);
        panel.setToolTip("Host Settings");
        panel.InitFoldable();
        QCOMPARE(Title(panel)->text(), QString("Host Settings"));
        QCOMPARE(Title(panel)->toolTip(), QString("Host Settings"));
        QCOMPARE(Arrow(panel)->toolTip(), QString("Host Settings"));
    }

    void emptyToolTipShowsEmptyTitle() {
        QFrameFoldable panel(nullptr);
        panel.InitFoldable();
        QCOMPARE(Title(panel)->text(), QString());
    }

    void contentIsHiddenAndLaidOutInChildOrder() {
        QFrameFoldable panel(nullptr);
        auto* first = new QPushButton("first", &panel);
        first->setAccessibleName("first");
        auto* second = new QPushButton("second", &panel);
        second->setAccessibleName("second");
        auto* third = new QPushButton("third", &panel);
        third->setAccessibleName("third");
        panel.show();
        panel.InitFoldable();
        QCOMPARE(panel.layout()->count(), 4);
        QCOMPARE(panel.layout()->itemAt(1)->widget(), first);
        QCOMPARE(panel.layout()->itemAt(2)->widget(), second);
        QCOMPARE(panel.layout()->itemAt(3)->widget(), third);
        QVERIFY(!first->isVisibleTo(&panel));
        QVERIFY(!third->isVisibleTo(&panel));
    }

    void clickUnfoldsAndTwoClicksFoldAgain() {
        QFrameFoldable panel(nullptr);
        auto* content = new QPushButton("content", &panel);
        content->setAccessibleName("content");
        panel.show();
        panel.InitFoldable();
        QTest::mouseClick(Arrow(panel), Qt::LeftButton);
        QVERIFY(panel.IsUnfolded());
        QVERIFY(content->isVisibleTo(&panel));
        QCOMPARE(Arrow(panel)->arrowType(), Qt::DownArrow);
        QTest::mouseClick(Arrow(panel), Qt::LeftButton);
        QVERIFY(!panel.IsUnfolded());
        QVERIFY(!content->isVisibleTo(&panel));
        QCOMPARE(Arrow(panel)->arrowType(), Qt::RightArrow);
    }

    void childWithoutAccessibleNameIsLeftAlone() {
        QFrameFoldable panel(nullptr);
        auto* plain = new QLabel("plain", &panel);
        plain->move(3, 25);
        auto* content = new QPushButton("content", &panel);
        content->setAccessibleName("content");
        panel.show();
        panel.InitFoldable();
        QCOMPARE(panel.layout()->count(), 2);
        QCOMPARE(panel.layout()->indexOf(plain), -1);
        QVERIFY(plain->isVisibleTo(&panel));
        QCOMPARE(plain->pos(), QPoint(3, 25));
        QTest::mouseClick(Arrow(panel), Qt::LeftButton);
        QVERIFY(plain->isVisibleTo(&panel));
        QTest::mouseClick(Arrow(panel), Qt::LeftButton);
        QVERIFY(plain->isVisibleTo(&panel));
        QVERIFY(!content->isVisibleTo(&panel));
    }

    void onlyTheClickSlotIsAMetaMethod() {
        const QMetaObject* meta = &QFrameFoldable::staticMetaObject;
        QCOMPARE(meta->methodCount() - meta->methodOffset(), 1);
        QCOMPARE(QByteArray(meta->method(meta->methodOffset()).methodSignature()),
                 QByteArray("on_toolButton_clicked()"));
    }
};

QTEST_MAIN(TestQFrameFoldable)
#include "tst_qframefoldable.moc"
