// The integer editor of a signed (Int32) node.
#pragma once

#include "genicamint32frame.h"

class CGENiCAMSignedInt32Frame : public CGENiCAMInt32Frame {
    Q_OBJECT

public:
    explicit CGENiCAMSignedInt32Frame(CKorvatinGenICamNodeT node, QWidget* parent = nullptr);

    int GetNodeInc() override;
    int GetNodeMin() override;
    int GetNodeMax() override;
    int GetNodeValue() override;
    void SetNodeValue(int value) override;
};
