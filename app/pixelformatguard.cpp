// Keeps the connected camera on a pixel format the viewer can show.
#include "pixelformatguard.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatinexception.h>
#include <korvatin/korvatinframe.h>

#include <QMetaObject>

CPixelFormatGuard::CPixelFormatGuard(CKorvatinCamera& camera, FrameFit fit, QObject* parent)
    : QObject(parent), camera_(camera), fit_(std::move(fit)) {
    try {
        node_ = camera_.GetNodeByName("PixelFormat");
        uint32_t code = 0;
        std::string name;
        if (!Read(&code, &name))
            return;
        if (CKorvatinFrame::ConversionRefusal(code).empty())
            acceptedName_ = name;
        node_.RegisterCallBack(*this);
        watching_ = true;
    } catch (const CKorvatinException&) {
        // No PixelFormat feature: nothing to watch; the conversion reports what it cannot read.
    }
}

CPixelFormatGuard::~CPixelFormatGuard() {
    if (watching_)
        node_.DeregisterCallBack();
}

bool CPixelFormatGuard::Read(uint32_t* code, std::string* name) {
    try {
        *code = node_.GetUInt32();
        char text[64] = {};
        camera_.GetEnum("PixelFormat", text, sizeof(text));
        *name = text;
        return true;
    } catch (const CKorvatinException&) {
        return false;
    }
}

QString CPixelFormatGuard::CurrentRefusal() {
    uint32_t code = 0;
    std::string name;
    if (!watching_ || !Read(&code, &name))
        return QString();
    const std::string refusal = CKorvatinFrame::ConversionRefusal(code);
    return refusal.empty() ? QString() : QString::fromStdString(refusal) + ".";
}

void CPixelFormatGuard::NodeChanged() {
    // Read at once, so that of two quick changes the first one's format is known as accepted;
    // only the writing back waits for the write in progress to return.
    uint32_t code = 0;
    std::string name;
    if (!Read(&code, &name))
        return;
    const QString objection = Objection(code, name);
    if (objection.isEmpty()) {
        acceptedName_ = name;
        return;
    }
    QMetaObject::invokeMethod(
        this, [this, objection] { Refuse(objection); }, Qt::QueuedConnection);
}

QString CPixelFormatGuard::Objection(uint32_t code, const std::string& name) {
    const std::string refusal = CKorvatinFrame::ConversionRefusal(code);
    if (!refusal.empty())
        return QString::fromStdString(refusal);
    if (!fit_)
        return QString();
    uint32_t payload = 0;
    try {
        payload = camera_.GetUInt32("PayloadSize");
    } catch (const CKorvatinException&) {
        return QString(); // no PayloadSize to compare: the stream's own counts will tell
    }
    const QString reason = fit_(payload);
    return reason.isEmpty()
               ? QString()
               : QString("pixel format %1: %2").arg(QString::fromStdString(name), reason);
}

void CPixelFormatGuard::Refuse(const QString& refusal) {
    QString message = refusal;
    if (!acceptedName_.empty()) {
        try {
            camera_.SetEnumByString("PixelFormat", acceptedName_.c_str());
            message +=
                QString("; PixelFormat is back to %1.").arg(QString::fromStdString(acceptedName_));
        } catch (const CKorvatinException& e) {
            message += QString("; PixelFormat could not be set back to %1: %2")
                           .arg(QString::fromStdString(acceptedName_), e.what());
        }
    } else {
        message += ".";
    }
    emit Refused(message);
}
