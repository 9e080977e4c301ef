// The worker thread of a maintenance dialog: runs the dialog's job and nothing else.
#pragma once

#include <QThread>

class CDialogProgressThreadEvent;

class CProgressThread : public QThread {
    Q_OBJECT
public:
    // `dialog` owns this thread and outlives it.
    explicit CProgressThread(CDialogProgressThreadEvent* dialog);

protected:
    // Runs on this thread: the dialog's RunInThread.
    void run() override;

private:
    CDialogProgressThreadEvent* m_dialog;
};
