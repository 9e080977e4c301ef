// Base of the objects that want to hear when a feature node's value, range or access changed.
#pragma once

#include <functional>

class CKorvatinGenICamNodeCallback {
public:
    CKorvatinGenICamNodeCallback() = default;
    virtual ~CKorvatinGenICamNodeCallback() = default;
    CKorvatinGenICamNodeCallback(const CKorvatinGenICamNodeCallback&) = default;
    CKorvatinGenICamNodeCallback& operator=(const CKorvatinGenICamNodeCallback&) = default;

    // Called after a write made through the SDK completed, for the written node and for every
    // registered node that depends on it. The default does nothing. It runs on the thread that
    // wrote, unless a home thread was set (SetHomeThread) and the write was made on another
    // thread: then it runs on the home thread, later.
    virtual void NodeChanged() {}

    // Makes the calling thread the home thread of every notification: a write made on another
    // thread no longer calls NodeChanged() there, but hands `post` one function that calls the
    // due NodeChanged() operations, and `post` must run it on the home thread (a GUI thread's
    // event loop, typically). Writes made one after the other before that function runs are
    // told once per callback, in the order they were due; a callback deregistered meanwhile is
    // not called. An empty `post` makes every thread's writes notify where they are made again.
    // Callbacks are registered and deregistered on the home thread.
    using Post = std::function<void(std::function<void()>)>;
    static void SetHomeThread(Post post);

    // While `defer` is true, writes made on the home thread itself are handed to `post` as well,
    // instead of calling NodeChanged() before the write returns: a run of writes is then told
    // once per callback, when the posted function runs. Without a home thread it has no effect.
    static void DeferHomeThreadWrites(bool defer);
};
