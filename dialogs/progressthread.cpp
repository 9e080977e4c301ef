// The worker thread of a maintenance dialog: runs the dialog's job and nothing else.
#include "progressthread.h"

#include "dialogprogressthreadevent.h"

CProgressThread::CProgressThread(CDialogProgressThreadEvent* dialog) : m_dialog(dialog) {}

void CProgressThread::run() {
    m_dialog->RunInThread();
}
