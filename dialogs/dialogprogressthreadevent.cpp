// A modal dialog that runs one long job on a worker thread and shows its events.
#include "dialogprogressthreadevent.h"

#include "progressthread.h"
#include "showmessage.h"

#include <QDeadlineTimer>
#include <QProgressBar>

#include <memory>

CDialogProgressThreadEvent::CDialogProgressThreadEvent(QWidget* parent) : QDialog(parent) {
    // The worker emits, the GUI thread receives: an automatic connection queues the events.
    connect(this, &CDialogProgressThreadEvent::threadEvent, this,
            &CDialogProgressThreadEvent::EventHandle);
}

CDialogProgressThreadEvent::~CDialogProgressThreadEvent() {
    WaitProgressThread();
    delete m_worker;
}

void CDialogProgressThreadEvent::ProgressCallback(void* context, int event, int value,
                                                  const char* text) {
    static_cast<CDialogProgressThreadEvent*>(context)->SendThreadEvent(event, value, text);
}

void CDialogProgressThreadEvent::SendThreadEvent(int event, int /*value*/, const char* text) {
    emit threadEvent(event, text != nullptr ? new QString(text) : nullptr);
}

void CDialogProgressThreadEvent::SendThreadEventNumber(int event, int value) {
    emit threadEvent(event, new QString(QString::number(value)));
}

void CDialogProgressThreadEvent::StartProgressThread() {
    if (m_worker == nullptr)
        m_worker = new CProgressThread(this);
    WaitProgressThread();
    m_worker->start(QThread::InheritPriority);
}

void CDialogProgressThreadEvent::WaitProgressThread() {
    if (m_worker != nullptr)
        m_worker->wait(QDeadlineTimer(QDeadlineTimer::Forever));
}

void CDialogProgressThreadEvent::reject() {
    if (m_busy) {
        ShowMessage("Dialoge can't be closed during progress", this);
        return;
    }
    QDialog::reject();
}

void CDialogProgressThreadEvent::EventHandle(int event, const QString* text) {
    std::unique_ptr<const QString> owned(text);
    HandleEventState(event, text);
    ShowEventText(event, text);
}

void CDialogProgressThreadEvent::HandleEventState(int event, const QString* text) {
    switch (event) {
    case 1:
        for (QWidget* control : m_jobControls)
            control->setEnabled(false);
        if (m_progressBar != nullptr)
            m_progressBar->setValue(0);
        m_busy = true;
        break;
    case 2:
        if (m_progressBar != nullptr && text != nullptr)
            m_progressBar->setValue(text->toInt(nullptr, 10));
        break;
    case 4:
        for (QWidget* control : m_jobControls)
            control->setEnabled(true);
        m_busy = false;
        if (m_joinOnFinish)
            WaitProgressThread();
        break;
    default:
        break;
    }
}

void CDialogProgressThreadEvent::ShowEventText(int event, const QString* text) {
    if (event != 2 && text != nullptr)
        ShowMessage(*text, this);
}

void CDialogProgressThreadEvent::SetJobControls(const QList<QWidget*>& controls,
                                                QProgressBar* progressBar) {
    m_jobControls = controls;
    m_progressBar = progressBar;
}

void CDialogProgressThreadEvent::StartWithFile(const QString& fileName) {
    if (fileName.isEmpty()) {
        ShowMessage("File name not specified!", this);
        return;
    }
    m_jobFileName = fileName;
    StartProgressThread();
}
