// The integer editor of a signed (Int32) node.
#include "genicamsignedint32frame.h"

CGENiCAMSignedInt32Frame::CGENiCAMSignedInt32Frame(CKorvatinGenICamNodeT node, QWidget* parent)
    : CGENiCAMInt32Frame(node, parent) {}

int CGENiCAMSignedInt32Frame::GetNodeInc() {
    return m_node.GetInt32Inc();
}

int CGENiCAMSignedInt32Frame::GetNodeMin() {
    return m_node.GetInt32Min();
}

int CGENiCAMSignedInt32Frame::GetNodeMax() {
    return m_node.GetInt32Max();
}

int CGENiCAMSignedInt32Frame::GetNodeValue() {
    return m_node.GetInt32();
}

void CGENiCAMSignedInt32Frame::SetNodeValue(int value) {
    m_node.SetInt32(value);
}
