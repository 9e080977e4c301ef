// The integer editor of an unsigned (UInt32) node, its values taken as signed ints.
#include "genicamunsignedint32frame.h"

#include <cstdint>

// A value above 2147483647 becomes the negative int of the same bits, and back.
CGENiCAMUnsignedInt32Frame::CGENiCAMUnsignedInt32Frame(CKorvatinGenICamNodeT node, QWidget* parent)
    : CGENiCAMInt32Frame(node, parent) {}

int CGENiCAMUnsignedInt32Frame::GetNodeInc() {
    return int(m_node.GetUInt32Inc());
}

int CGENiCAMUnsignedInt32Frame::GetNodeMin() {
    return int(m_node.GetUInt32Min());
}

int CGENiCAMUnsignedInt32Frame::GetNodeMax() {
    return int(m_node.GetUInt32Max());
}

int CGENiCAMUnsignedInt32Frame::GetNodeValue() {
    return int(m_node.GetUInt32());
}

void CGENiCAMUnsignedInt32Frame::SetNodeValue(int value) {
    m_node.SetUInt32(uint32_t(value));
}
