// A modal dialog that runs one long job on a worker thread and shows its events.
#pragma once

#include <QDialog>
#include <QList>
#include <QString>

class CProgressThread;
class QLineEdit;
class QProgressBar;

// The worker reports through threadEvent (event codes 1 started, 2 progress with a decimal text,
// 3 message, 4 finished with the final text); the events reach EventHandle on the GUI thread by
// a queued connection. Each text travels as a heap QString that EventHandle owns and deletes; a
// null pointer means no text. While a job runs (from event 1 to event 4) the dialog cannot be
// closed.
class CDialogProgressThreadEvent : public QDialog {
    Q_OBJECT
public:
    explicit CDialogProgressThreadEvent(QWidget* parent);
    ~CDialogProgressThreadEvent() override;

    // The SDK's progress callback: forwards to SendThreadEvent of the dialog `context`. Runs on
    // whatever thread calls it (the worker).
    static void ProgressCallback(void* context, int event, int value, const char* text);

    // True from event 1 until event 4.
    bool IsBusy() const { return m_busy; }

    // Any thread: emits threadEvent with a heap copy of `text` (null stays null); `value` is not
    // used.
    virtual void SendThreadEvent(int event, int value, const char* text);
    // Any thread: emits threadEvent with `value` as a decimal text.
    void SendThreadEventNumber(int event, int value);

    // The job, on the worker thread.
    virtual void RunInThread() = 0;

signals:
    // Emitted on the worker thread; `text` is owned by the receiver.
    void threadEvent(int event, const QString* text);

public slots:
    // GUI thread. Refuses to close while a job runs.
    void reject() override;

protected slots:
    // GUI thread: starts the worker (made on first use, reused afterwards). A worker still
    // ending its previous run, which a dialog that does not join on event 4 can meet, is
    // waited for first.
    virtual void StartProgressThread();
    // GUI thread: joins the worker, without a time limit.
    virtual void WaitProgressThread();
    // GUI thread: one event of the worker. Takes ownership of `text`. The common handling:
    // event 1 disables the job's controls, zeroes the progress bar and marks the dialog busy;
    // event 2 moves the progress bar; event 4 enables the controls, clears busy and joins the
    // worker (unless SetJoinOnFinish(false)); every event but 2 shows its text in a message box.
    virtual void EventHandle(int event, const QString* text);

protected:
    // The state changes of an event (everything EventHandle does but the message box).
    void HandleEventState(int event, const QString* text);
    // Shows an event's text in the message box, for every event but progress.
    void ShowEventText(int event, const QString* text);

    // The controls a job disables while it runs (action buttons, Browse) and its progress bar;
    // each job dialog names its own once, in its constructor.
    void SetJobControls(const QList<QWidget*>& controls, QProgressBar* progressBar);
    QProgressBar* JobProgressBar() const { return m_progressBar; }
    // Off for a job whose worker reports event 4 from inside a call that has not returned yet:
    // the worker then ends on its own and event 4 does not wait for it.
    void SetJoinOnFinish(bool join) { m_joinOnFinish = join; }

    // GUI thread: the action button of a job on a file. Shows "File name not specified!" for an
    // empty `fileName`; otherwise keeps it for the worker (JobFileName) and starts the job.
    void StartWithFile(const QString& fileName);
    // The file the running job works on; set before its worker starts, read by the worker.
    const QString& JobFileName() const { return m_jobFileName; }

private:
    bool m_busy = false;
    bool m_joinOnFinish = true;
    QList<QWidget*> m_jobControls;
    QProgressBar* m_progressBar = nullptr;
    QString m_jobFileName;
    CProgressThread* m_worker = nullptr; // owned; made by the first StartProgressThread
};
