// What the maintenance benchmarks share: the jobs run as viewlane-cli runs them, and their
// timing.
#pragma once

#include <cameranodesetting.h>
#include <maintenancejobhost.h>

#include <korvatin/korvatincamera.h>

#include <QElapsedTimer>
#include <QString>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

namespace benchjobs {

// Direct writes, events dropped: the job as viewlane-cli runs it, without its printing.
class DirectHost : public CMaintenanceJobHost {
public:
    explicit DirectHost(CKorvatinCamera& camera) : camera_(camera) {}
    void SendThreadEvent(int, int, const char*) override {}
    void SendThreadEventNumber(int, int) override {}
    bool CameraSet(const TCameraNodeSetting& setting, QString& error) override {
        try {
            WriteCameraNodeSetting(camera_, setting);
            return true;
        } catch (const std::exception& e) {
            error = e.what();
            return false;
        }
    }

private:
    CKorvatinCamera& camera_;
};

inline double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// The time `run` takes; exits the benchmark named `bench` when it fails.
inline double TimeMs(const char* bench, const std::function<bool()>& run) {
    QElapsedTimer timer;
    timer.start();
    if (!run()) {
        std::fprintf(stderr, "%s: a job failed\n", bench);
        std::exit(1);
    }
    return timer.nsecsElapsed() / 1e6;
}

} // namespace benchjobs
