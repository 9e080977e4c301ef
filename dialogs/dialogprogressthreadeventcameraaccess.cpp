// A progress dialog whose job writes camera features: the worker asks, the GUI thread writes.
#include "dialogprogressthreadeventcameraaccess.h"

#include <korvatin/korvatincamera.h>

#include <QDeadlineTimer>
#include <QMutexLocker>

CDialogProgressThreadEventCameraAccess::CDialogProgressThreadEventCameraAccess(
    CKorvatinCamera* camera, QWidget* parent)
    : CDialogProgressThreadEvent(parent), m_camera(camera) {
    RegisterCameraNodeSettingMetaType();
    connect(this, &CDialogProgressThreadEventCameraAccess::sig_cameraSet, this,
            &CDialogProgressThreadEventCameraAccess::slot_cameraSet);
    connect(this, &CDialogProgressThreadEventCameraAccess::sig_cameraGet, this,
            &CDialogProgressThreadEventCameraAccess::slot_cameraGet);
}

CDialogProgressThreadEventCameraAccess::~CDialogProgressThreadEventCameraAccess() {
    StopJob();
}

void CDialogProgressThreadEventCameraAccess::StopJob() {
    {
        QMutexLocker lock(&m_mutex);
        m_abandoned = true;
        m_condition.wakeAll();
    }
    WaitProgressThread();
}

void CDialogProgressThreadEventCameraAccess::SendThreadEvent(int event, int value,
                                                             const char* text) {
    CDialogProgressThreadEvent::SendThreadEvent(event, value, text);
}

void CDialogProgressThreadEventCameraAccess::SendThreadEventNumber(int event, int value) {
    CDialogProgressThreadEvent::SendThreadEventNumber(event, value);
}

bool CDialogProgressThreadEventCameraAccess::CameraSet(const TCameraNodeSetting& setting,
                                                       QString& error) {
    QMutexLocker lock(&m_mutex);
    if (m_abandoned) {
        error = "The dialog was closed.";
        return false;
    }
    m_done = false;
    m_request = setting;
    ++m_requests;
    emit sig_cameraSet(setting);
    int timedOut = 0;
    while (!m_done && !m_abandoned && timedOut < kHandshakeWaits) {
        if (!m_condition.wait(&m_mutex, QDeadlineTimer(kHandshakeWaitMs)))
            ++timedOut;
    }
    if (!m_done) {
        error = m_abandoned ? QString("The dialog was closed.") : QString("Time out");
        return false;
    }
    if (m_error.isNull())
        return true;
    error = m_error;
    return false;
}

void CDialogProgressThreadEventCameraAccess::slot_cameraSet(TCameraNodeSetting setting) {
    QString error;
    try {
        WriteCameraNodeSetting(*m_camera, setting);
    } catch (const std::exception& e) {
        error = QString::fromLocal8Bit(e.what());
        // A failure always carries a text, so that null keeps meaning success.
        if (error.isNull())
            error = "";
    }
    Answer(error);
}

void CDialogProgressThreadEventCameraAccess::slot_cameraGet(TCameraNodeSetting) {
    Answer(QString());
}

void CDialogProgressThreadEventCameraAccess::Answer(const QString& error) {
    QMutexLocker lock(&m_mutex);
    ++m_answers;
    if (m_answers == m_requests) {
        m_error = error;
        m_done = true;
    }
    m_condition.wakeAll();
}
