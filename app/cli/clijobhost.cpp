// Runs a maintenance job from the command line: direct feature writes, a progress bar and the
// job's texts.
#include "clijobhost.h"

#include <cameranodesetting.h>

#include <korvatin/korvatincamera.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ostream>

namespace {

constexpr int kBarWidth = 40;

} // namespace

CCliJobHost::CCliJobHost(CKorvatinCamera& camera, std::ostream& out)
    : camera_(camera), out_(out), drawProgress_(isatty(STDERR_FILENO) == 1) {}

void CCliJobHost::ProgressCallback(void* context, int event, int value, const char* text) {
    static_cast<CCliJobHost*>(context)->SendThreadEvent(event, value, text);
}

void CCliJobHost::SendThreadEvent(int event, int /*value*/, const char* text) {
    switch (event) {
    case Started:
        DrawProgress(0);
        break;
    case Progress:
        if (text != nullptr)
            DrawProgress(std::atoi(text));
        break;
    default:
        EndProgressLine();
        if (text != nullptr)
            out_ << text << std::endl;
        break;
    }
}

void CCliJobHost::SendThreadEventNumber(int event, int value) {
    SendThreadEvent(event, value, std::to_string(value).c_str());
}

bool CCliJobHost::CameraSet(const TCameraNodeSetting& setting, QString& error) {
    try {
        WriteCameraNodeSetting(camera_, setting);
        return true;
    } catch (const std::exception& e) {
        error = QString::fromLocal8Bit(e.what());
        return false;
    }
}

void CCliJobHost::DrawProgress(int percent) {
    if (!drawProgress_ || percent == lastPercent_)
        return;
    lastPercent_ = percent;
    const int filled = std::max(0, std::min(percent, 100)) * kBarWidth / 100;
    std::fprintf(stderr, "\r[%s%s] %3d %%", std::string(size_t(filled), '#').c_str(),
                 std::string(size_t(kBarWidth - filled), ' ').c_str(), percent);
    std::fflush(stderr);
    progressShown_ = true;
}

void CCliJobHost::EndProgressLine() {
    if (!progressShown_)
        return;
    std::fputc('\n', stderr);
    progressShown_ = false;
    lastPercent_ = -1;
}
