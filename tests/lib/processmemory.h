// This test process' memory: figures from /proc/self/status and a scoped address-space limit
// under which large allocations fail as on a machine without memory.
#pragma once

#include <QByteArray>
#include <QFile>

#include <sys/resource.h>

// A figure of this process' memory in KiB ("VmRSS", "VmSize"); -1 when it cannot be read.
inline qint64 ProcessKiB(const QByteArray& field) {
    QFile status("/proc/self/status");
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field + ':'))
            return line.mid(field.size() + 1).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

// Limits the address space to what is in use now plus `headroomBytes` for as long as it lives.
class AddressSpaceLimit {
public:
    explicit AddressSpaceLimit(qint64 headroomBytes) {
        getrlimit(RLIMIT_AS, &saved_);
        rlimit limited = saved_;
        limited.rlim_cur = rlim_t(ProcessKiB("VmSize") * 1024 + headroomBytes);
        applied_ = setrlimit(RLIMIT_AS, &limited) == 0;
    }
    ~AddressSpaceLimit() { setrlimit(RLIMIT_AS, &saved_); }
    AddressSpaceLimit(const AddressSpaceLimit&) = delete;
    AddressSpaceLimit& operator=(const AddressSpaceLimit&) = delete;
    bool applied() const { return applied_; }

private:
    rlimit saved_{};
    bool applied_ = false;
};
