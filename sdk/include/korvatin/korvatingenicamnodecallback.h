// Base of the objects that want to hear when a feature node's value, range or access changed.
#pragma once

class CKorvatinGenICamNodeCallback {
public:
    CKorvatinGenICamNodeCallback() = default;
    virtual ~CKorvatinGenICamNodeCallback() = default;
    CKorvatinGenICamNodeCallback(const CKorvatinGenICamNodeCallback&) = default;
    CKorvatinGenICamNodeCallback& operator=(const CKorvatinGenICamNodeCallback&) = default;

    // Called after a write made through the SDK completed, on the thread that wrote, for the
    // written node and for every registered node that depends on it. The default does nothing.
    virtual void NodeChanged() {}
};
