// A progress dialog whose job writes camera features: the worker asks, the GUI thread writes.
#pragma once

#include "dialogprogressthreadevent.h"

#include <cameranodesetting.h>
#include <maintenancejobhost.h>

#include <QMutex>
#include <QString>
#include <QWaitCondition>

#include <cstdint>

class CKorvatinCamera;

// Feature writes happen only on the GUI thread. CameraSet (worker) emits sig_cameraSet, which
// reaches slot_cameraSet on the GUI thread by a queued connection, and waits until the slot has
// written the feature or kHandshakeWaits waits of kHandshakeWaitMs have timed out.
class CDialogProgressThreadEventCameraAccess : public CDialogProgressThreadEvent,
                                               public CMaintenanceJobHost {
    Q_OBJECT
public:
    static constexpr unsigned long kHandshakeWaitMs = 500;
    static constexpr int kHandshakeWaits = 10;

    // `camera` is borrowed and must outlive the dialog.
    CDialogProgressThreadEventCameraAccess(CKorvatinCamera* camera, QWidget* parent);
    ~CDialogProgressThreadEventCameraAccess() override;

    CKorvatinCamera* Camera() const { return m_camera; }

    // Worker thread. Has the GUI thread write `setting`; false with `error` set on failure,
    // "Time out" when the GUI thread did not answer in time.
    bool CameraSet(const TCameraNodeSetting& setting, QString& error) override;

    // The job's events (any thread), as the dialog sends them.
    void SendThreadEvent(int event, int value, const char* text) override;
    void SendThreadEventNumber(int event, int value) override;

signals:
    // Emitted on the worker thread.
    void sig_cameraSet(TCameraNodeSetting setting);
    void sig_cameraGet(TCameraNodeSetting setting);

public slots:
    // GUI thread: writes the setting by its type and answers the waiting worker.
    void slot_cameraSet(TCameraNodeSetting setting);
    // GUI thread: answers the waiting worker; no job reads through it.
    void slot_cameraGet(TCameraNodeSetting setting);

protected:
    // GUI thread, from the destructors of the job dialogs: every further CameraSet fails at once
    // and the worker is joined, so no job outlives the dialog it reads from.
    void StopJob();

private:
    // Publishes the answer to one request; an answer to a request the worker gave up on (late,
    // after "Time out") is counted and otherwise ignored.
    void Answer(const QString& error);

    CKorvatinCamera* m_camera; // borrowed
    // Protects m_error, m_request, m_done, m_requests, m_answers and m_abandoned. The worker
    // holds it while it emits and waits; the GUI slot takes it to publish an answer.
    QMutex m_mutex;
    QWaitCondition m_condition;
    QString m_error; // the answer to the pending request: null on success
    TCameraNodeSetting m_request;
    bool m_done = false;
    // Requests are answered in the order they were sent (one queue), so counting both tells
    // whether an answer is for the request still pending.
    uint64_t m_requests = 0;
    uint64_t m_answers = 0;
    bool m_abandoned = false;
};
