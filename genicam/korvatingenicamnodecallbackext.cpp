// The node-change callback that refreshes one feature editor when the SDK says its node changed.
#include "korvatingenicamnodecallbackext.h"

#include "genicamframe.h"

#include <korvatin/korvatinexception.h>

CKorvatinGenICamNodeCallbackExt::CKorvatinGenICamNodeCallbackExt(CKorvatinGenICamNodeT node,
                                                                 CGENiCAMFrame* editor)
    : m_node(node), m_editor(editor) {
    m_node.DisplayName(m_displayName, kDisplayNameSize, nullptr);
    m_node.RegisterCallBack(*this);
}

CKorvatinGenICamNodeCallbackExt::~CKorvatinGenICamNodeCallbackExt() {
    try {
        m_node.DeregisterCallBack();
    } catch (...) {
        // A destructor must not throw; a handle that cannot deregister has nothing registered.
    }
}

void CKorvatinGenICamNodeCallbackExt::NodeChanged() {
    try {
        m_editor->UpdateFromNode();
    } catch (const CKorvatinException&) {
        // Deliberately silent: the editor keeps its previous value and nobody is told.
    }
}
