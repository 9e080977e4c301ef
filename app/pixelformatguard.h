// Keeps the connected camera on a pixel format the viewer can show: a format the conversion
// refuses is reported by name, at connect and whenever PixelFormat changes.
#pragma once

#include <korvatin/korvatingenicamnodecallback.h>
#include <korvatin/korvatingenicamnodet.h>

#include <QObject>
#include <QString>

#include <cstdint>
#include <functional>
#include <string>

class CKorvatinCamera;

// Registered on the camera's PixelFormat node for as long as it lives (the window keeps one per
// connection and destroys it before the camera disconnects). A change to a format the
// conversion refuses, or whose frames (PayloadSize) the stream buffers cannot hold, is undone:
// the last format it accepted is written back, so the display never stays black or frozen on a
// format it cannot show; Refused() says which format and why. A camera without an integer
// PixelFormat is not watched.
class CPixelFormatGuard : public QObject, public CKorvatinGenICamNodeCallback {
    Q_OBJECT

public:
    // Why frames of `payloadBytes` do not fit the stream's buffers, or empty when they do.
    using FrameFit = std::function<QString(uint64_t payloadBytes)>;

    // `fit` may be empty: then only the conversion is checked.
    CPixelFormatGuard(CKorvatinCamera& camera, FrameFit fit, QObject* parent = nullptr);
    ~CPixelFormatGuard() override;
    CPixelFormatGuard(const CPixelFormatGuard&) = delete;
    CPixelFormatGuard& operator=(const CPixelFormatGuard&) = delete;

    // Why the current format cannot be shown, ending with a full stop; empty when it can (or
    // when there is no PixelFormat to read).
    QString CurrentRefusal();

    // Runs on the thread that wrote PixelFormat, which is the GUI thread (every feature write of
    // the window is made there); writing the accepted format back is queued, so that it never
    // happens from inside the write that called it.
    void NodeChanged() override;

signals:
    // The text to show after a change was refused and undone; emitted on the GUI thread.
    void Refused(QString message);

private:
    // Writes the last accepted format back and says why (GUI thread, queued by NodeChanged).
    void Refuse(const QString& refusal);
    // The format's code and its entry name, or false when it cannot be read.
    bool Read(uint32_t* code, std::string* name);

    // The reason a change to `name` is undone, or empty when it is kept.
    QString Objection(uint32_t code, const std::string& name);

    CKorvatinCamera& camera_;
    FrameFit fit_;
    CKorvatinGenICamNodeT node_;
    bool watching_ = false;
    std::string acceptedName_; // the last entry seen that the conversion reads
};
