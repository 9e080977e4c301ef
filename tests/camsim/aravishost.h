// A small libaravis host for the simulator tests: open by address, features, frames.
#pragma once

#include <arv.h>

#include <QByteArray>
#include <QString>

#include <memory>

// Owning references to GLib objects: one unref per handle, nowhere else.
struct GObjectUnref {
    void operator()(gpointer object) const {
        if (object)
            g_object_unref(object);
    }
};
template <typename T> using GObjectPtr = std::unique_ptr<T, GObjectUnref>;

// Collects a GError and frees it; message() is what the test prints.
class CGError {
public:
    CGError() = default;
    ~CGError() { g_clear_error(&error_); }
    CGError(const CGError&) = delete;
    CGError& operator=(const CGError&) = delete;
    GError** out() {
        g_clear_error(&error_);
        return &error_;
    }
    bool isSet() const { return error_ != nullptr; }
    QString message() const { return error_ ? QString::fromUtf8(error_->message) : QString(); }

private:
    GError* error_ = nullptr;
};

// Statistics of one grab, as Aravis counted them.
struct GrabResult {
    int succeeded = 0; // buffers popped with status success
    int failed = 0;    // buffers popped with another status, or none before the time-out
    int wrongSize = 0; // successful buffers whose image size was not PayloadSize
    guint64 resentPackets = 0;
    guint64 missingPackets = 0;
    guint64 completedBuffers = 0;
    guint64 failures = 0;
    QByteArray lastImage; // image bytes of the last successful buffer
    quint32 lastPixelFormat = 0;
    int lastWidth = 0;
    int lastHeight = 0;
};

class CAravisHost {
public:
    // Opens the camera at `address` from the loopback interface (no Aravis discovery).
    bool open(const QString& address, QString* error);
    void close();

    ArvDevice* device() const { return device_.get(); }
    ArvCamera* camera() const { return camera_.get(); }
    ArvGcNode* node(const char* name) const;

    qint64 integer(const char* name, QString* error = nullptr) const;
    bool setInteger(const char* name, qint64 value, QString* error = nullptr);
    bool setString(const char* name, const char* value, QString* error = nullptr);
    QString string(const char* name, QString* error = nullptr) const;
    bool setBoolean(const char* name, bool value, QString* error = nullptr);
    bool execute(const char* name, QString* error = nullptr);
    double floatValue(const char* name, QString* error = nullptr) const;
    bool setFloat(const char* name, double value, QString* error = nullptr);

    // Streams `frames` frames with `buffers` buffers queued, then stops the acquisition.
    GrabResult grab(int frames, int buffers = 8, int timeoutMs = 5000);

private:
    GObjectPtr<ArvDevice> device_;
    GObjectPtr<ArvCamera> camera_;
};
