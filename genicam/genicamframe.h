// Base of the feature editors: one widget bound to one GenICam node of the connected camera.
#pragma once

#include <korvatin/korvatingenicamnodet.h>

#include <QFrame>
#include <QString>

// An editor holds its own copy of the node handle and the node's display name, read once at
// construction. The tree builder, the polling timer and the node-change callback drive every
// editor through InitFromNode() and UpdateFromNode(); both may throw CKorvatinException and do
// not catch it themselves. A write the user triggers never throws out of an editor: the failure
// becomes GENiCAMNodeError through ReportNodeError().
//
// Editors are GUI objects: every call, and every node access they make, is on the GUI thread.
class CGENiCAMFrame : public QFrame {
    Q_OBJECT

public:
    // Reads the display name and disables the whole editor for a read-only node. Throws
    // CKorvatinException when the node cannot be read.
    explicit CGENiCAMFrame(CKorvatinGenICamNodeT node, QWidget* parent = nullptr);
    ~CGENiCAMFrame() override;

    // Configures the editor from what stays fixed while the tree stands (enumeration entries,
    // maximum string length, slider steps, a command's caption). Called once, after construction.
    virtual void InitFromNode() = 0;
    // Reads the node's current value (and, for numbers, its current range) into the editor.
    virtual void UpdateFromNode() = 0;

    const CKorvatinGenICamNodeT& Node() const { return m_node; }
    // The display name as read at construction: at most 511 bytes.
    QString DisplayNameText() const;

    // Emits GENiCAMNodeError with the display name, " : " and `what`.
    void ReportNodeError(const QString& what);

signals:
    void GENiCAMNodeError(QString message);

protected:
    static constexpr unsigned long kDisplayNameSize = 512;

    // Called first by every InitFromNode() and UpdateFromNode(): an editor reached from another
    // thread than the GUI thread is a defect. With KORVATIN_CHECK_GUI_THREAD set to a non-zero
    // number (the tests set it) it ends the process with a message naming the editor and
    // `operation`; otherwise it is reported once as a warning.
    void CheckGuiThread(const char* operation) const;

    CKorvatinGenICamNodeT m_node;
    char m_displayName[kDisplayNameSize] = {};
};
