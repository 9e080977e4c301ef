// Base of the feature editors: one widget bound to one GenICam node of the connected camera.
#include "genicamframe.h"

#include <QCoreApplication>
#include <QThread>
#include <QtGlobal>

#include <atomic>

CGENiCAMFrame::CGENiCAMFrame(CKorvatinGenICamNodeT node, QWidget* parent)
    : QFrame(parent), m_node(node) {
    m_node.DisplayName(m_displayName, kDisplayNameSize, nullptr);
    m_displayName[kDisplayNameSize - 1] = '\0';
    // Only a read-only node greys the editor out, and only now: a later change of the node's
    // access mode does not enable or disable it.
    if (m_node.AccessMode() == CKorvatinGenICamNodeT::RO)
        setEnabled(false);
}

CGENiCAMFrame::~CGENiCAMFrame() = default;

QString CGENiCAMFrame::DisplayNameText() const {
    return QString::fromUtf8(m_displayName);
}

void CGENiCAMFrame::ReportNodeError(const QString& what) {
    emit GENiCAMNodeError(DisplayNameText() + " : " + what);
}

void CGENiCAMFrame::CheckGuiThread(const char* operation) const {
    const QCoreApplication* application = QCoreApplication::instance();
    if (application == nullptr || QThread::currentThread() == application->thread())
        return;
    static const bool fatal = qEnvironmentVariableIntValue("KORVATIN_CHECK_GUI_THREAD") != 0;
    if (fatal)
        qFatal("Feature editor \"%s\": %s called off the GUI thread", m_displayName, operation);
    static std::atomic<bool> warned{false};
    if (!warned.exchange(true))
        qWarning("Feature editor \"%s\": %s called off the GUI thread", m_displayName, operation);
}
