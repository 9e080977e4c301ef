// The node-change callback that refreshes one feature editor when the SDK says its node changed.
#pragma once

#include <korvatin/korvatingenicamnodecallback.h>
#include <korvatin/korvatingenicamnodet.h>

class CGENiCAMFrame;

// Registers itself with its node on construction and deregisters on destruction. The editor is
// borrowed: the owner deletes the callback before (or right after, in the same GUI-thread
// operation) the editor goes, so no notification reaches a deleted editor.
class CKorvatinGenICamNodeCallbackExt : public CKorvatinGenICamNodeCallback {
public:
    CKorvatinGenICamNodeCallbackExt(CKorvatinGenICamNodeT node, CGENiCAMFrame* editor);
    ~CKorvatinGenICamNodeCallbackExt() override;
    CKorvatinGenICamNodeCallbackExt(const CKorvatinGenICamNodeCallbackExt&) = delete;
    CKorvatinGenICamNodeCallbackExt& operator=(const CKorvatinGenICamNodeCallbackExt&) = delete;

    // Runs on the thread that made the write, which is the GUI thread: every node access of the
    // feature panel is made there. Refreshes the editor; a CKorvatinException from the refresh
    // is dropped on purpose, so the editor keeps showing what it showed before.
    void NodeChanged() override;

    CGENiCAMFrame* Editor() const { return m_editor; }
    const CKorvatinGenICamNodeT& Node() const { return m_node; }

private:
    static constexpr unsigned long kDisplayNameSize = 128;

    CKorvatinGenICamNodeT m_node;
    char m_displayName[kDisplayNameSize] = {};
    CGENiCAMFrame* m_editor; // not owned
};
