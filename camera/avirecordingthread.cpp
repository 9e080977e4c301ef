// The conversion and recording thread: moves received frames to the display and into AVI files.
#include "avirecordingthread.h"

#include "korvatincameraviewlane.h"
#include "korvatinframeconverted.h"

#include <korvatin/korvatinexception.h>

#include <QMutexLocker>

#include <cstdlib>

namespace {

// Thrown from a destructor, which lets no exception out: the process ends with this text.
[[noreturn]] void raiseNotStopped() {
    throw CKorvatinException("AviRecordingThread has not Stopped.",
                             CKorvatinCameraViewlane::kSessionError);
}

constexpr uint32_t kConvertFlag = 1;

} // namespace

CAviRecordingThread::CAviRecordingThread(CKorvatinCameraViewlane* session) : m_session(session) {}

CAviRecordingThread::~CAviRecordingThread() {
    if (isRunning())
        raiseNotStopped();
}

void CAviRecordingThread::run() {
    CKorvatinCameraViewlane& session = *m_session;
    for (;;) {
        // Polls rather than waits on a condition: the grab thread never has to signal anyone.
        QThread::msleep(1);

        CKorvatinFrame* raw = nullptr;
        {
            QMutexLocker lock(&session.m_rawListMutex);
            if (!session.m_grabbedRawFrames.isEmpty())
                raw = session.m_grabbedRawFrames.takeFirst();
        }
        if (!raw) {
            if (!session.m_conversionRunning)
                return;
            continue;
        }

        CKorvatinFrameConverted* holder = nullptr;
        {
            QMutexLocker lock(&session.m_convertedListMutex);
            if (session.m_readyConvertedFrames.size() <
                    CKorvatinCameraViewlane::kMaxReadyConvertedFrames &&
                !session.m_freeConvertedFrames.isEmpty()) {
                holder = session.m_freeConvertedFrames.takeFirst();
            } else if (!session.m_readyConvertedFrames.isEmpty()) {
                // The oldest waiting frame will never be shown: its raw frame goes back to the
                // spares and its holder takes the new one.
                holder = session.m_readyConvertedFrames.takeFirst();
                session.ReturnRawFrame(holder->SourceRawFrame());
            } else {
                // Every holder is with the display: this frame cannot be passed on.
                session.ReturnRawFrame(raw);
            }
        }
        if (!holder) {
            if (!session.m_conversionRunning)
                return;
            continue;
        }
        holder->SetSourceRawFrame(raw);

        bool ended = false;
        {
            QMutexLocker lock(&session.m_recordMutex);
            const QString mismatch =
                session.m_recording ? session.RecordingMismatch(*raw, *holder) : QString();
            if (!mismatch.isEmpty()) {
                // The camera changed under the recording (its size, its format) or sends what
                // cannot be converted: the file keeps what it has and is closed whole.
                session.EndRecordingLocked(mismatch);
                ended = true;
            } else if (session.m_recording) {
                // Everything a conversion needs was checked just above: a frame that still
                // cannot be converted means the holders were sized wrongly, and ends the process
                // at once, deliberately without a message.
                if (holder->Convert(*raw,
                                    session.m_bayerConversionMode |
                                        CKorvatinCameraViewlane::kRecordingConvertCode,
                                    CKorvatinCameraViewlane::kRecordingBitDepth, kConvertFlag,
                                    session.ConversionContext()) != QRN_OK)
                    std::abort();
                session.m_aviFile.Append(*holder); // a frame the writer refuses is not retried
                // A limit of 0 or below records until stopped.
                if (session.m_maxFramesToRecord > 0 &&
                    ++session.m_framesRecorded >= session.m_maxFramesToRecord) {
                    // Let a waiting StartRecording/StopRecording in between, then end the
                    // recording unless it already ended.
                    lock.unlock();
                    lock.relock();
                    if (session.m_recording) {
                        session.m_aviFile.Close();
                        session.m_recording = false;
                        ended = true;
                    }
                }
            }
            // On this thread, under the lock like every announcement, so that it cannot
            // overtake the start of this recording or follow the start of the next one.
            // Receivers on the GUI thread get it queued.
            if (ended)
                emit session.RecordStarted(false);
        }

        {
            QMutexLocker lock(&session.m_convertedListMutex);
            session.m_readyConvertedFrames.append(holder);
            const int ready = int(session.m_readyConvertedFrames.size());
            if (ready > session.m_readyConvertedFramesPeak)
                session.m_readyConvertedFramesPeak = ready;
        }

        if (!session.m_conversionRunning)
            return;
    }
}
