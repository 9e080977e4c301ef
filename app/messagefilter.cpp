// Silences the two harmless Qt warnings the program is known to trigger.
#include "messagefilter.h"

#include <atomic>

namespace {

// Written before main and, in tests, by a new capture before the filter is installed; read by
// Handle() on any thread.
std::atomic<QtMessageHandler> capturedHandler{nullptr};

// Qt's default handler is captured before main runs, ahead of anything that may install another.
[[maybe_unused]] const bool capturedBeforeMain = [] {
    CMessageFilter::CaptureDefaultHandler();
    return true;
}();

} // namespace

void CMessageFilter::CaptureDefaultHandler() {
    capturedHandler.store(qInstallMessageHandler(nullptr));
}

void CMessageFilter::Install() {
    qInstallMessageHandler(&CMessageFilter::Handle);
}

QtMessageHandler CMessageFilter::CapturedHandler() {
    return capturedHandler.load();
}

bool CMessageFilter::IsSilenced(const QString& text) {
    return text.startsWith(QLatin1String("QStandardPaths"), Qt::CaseSensitive) ||
           text.startsWith(QLatin1String("Warning: Ignoring XDG_SESSION_TYPE=wayland on Gnome."),
                           Qt::CaseSensitive);
}

void CMessageFilter::Handle(QtMsgType type, const QMessageLogContext& context,
                            const QString& text) {
    if (IsSilenced(text))
        return;
    const QtMessageHandler handler = capturedHandler.load();
    if (handler)
        handler(type, context, text);
}
