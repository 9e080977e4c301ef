// Silences the two harmless Qt warnings the program is known to trigger.
#pragma once

#include <QString>
#include <QtGlobal>

// Every Qt message goes through Handle() once Install() ran; messages whose text starts with one
// of the known harmless texts are dropped, all others go unchanged to the handler captured by
// CaptureDefaultHandler(). The capture runs once before main, so the captured handler is Qt's
// default one.
class CMessageFilter {
public:
    // Installs a null handler (which restores Qt's default) and keeps the handler that was in
    // effect until then as the one the filter passes messages on to.
    static void CaptureDefaultHandler();
    // Installs the filter as Qt's message handler.
    static void Install();
    // The handler the filter passes messages on to.
    static QtMessageHandler CapturedHandler();
    // True for a text that the filter drops (a case-sensitive match at its start).
    static bool IsSilenced(const QString& text);
    // The filter itself; runs on whatever thread emitted the message.
    static void Handle(QtMsgType type, const QMessageLogContext& context, const QString& text);
};
