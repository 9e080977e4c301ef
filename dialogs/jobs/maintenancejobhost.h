// What a maintenance job needs from whoever runs it: a channel for its events and a way to
// write one feature.
#pragma once

#include <QString>

struct TCameraNodeSetting;

// A job reports through the progress events of the SDK's progress callback: 1 started, 2 progress
// (the text is a decimal 0..100), 3 a message, 4 finished (the text is the final message, or
// none). Every job sends exactly one event 4, last.
class CMaintenanceJobHost {
public:
    enum Event { Started = 1, Progress = 2, Message = 3, Finished = 4 };

    virtual ~CMaintenanceJobHost() = default;

    // Called on the job's thread. `value` is not used; `text` may be null.
    virtual void SendThreadEvent(int event, int value, const char* text) = 0;
    // Called on the job's thread: progress as a decimal text.
    virtual void SendThreadEventNumber(int event, int value) = 0;
    // Called on the job's thread. Writes one feature; false with `error` set when the write
    // failed or did not complete.
    virtual bool CameraSet(const TCameraNodeSetting& setting, QString& error) = 0;

    // Sends `text` (any encoding Qt holds) as the event's text.
    void SendThreadEventText(int event, const QString& text) {
        SendThreadEvent(event, 0, text.toUtf8().constData());
    }
};
