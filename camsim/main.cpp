// korvatin-camsim: runs the simulated cameras the command line asks for until SIGINT/SIGTERM.
#include "camera.h"
#include "options.h"

#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <pthread.h>
#include <vector>

extern const unsigned char kEmbeddedDescription[];
extern const std::size_t kEmbeddedDescriptionSize;

namespace {

bool loadDescription(const COptions& options, Description* description, std::string* error) {
    if (options.descriptionFile.empty()) {
        description->bytes.assign(kEmbeddedDescription,
                                  kEmbeddedDescription + kEmbeddedDescriptionSize);
        description->fileName = "korvatin-camsim.xml";
        return true;
    }
    std::ifstream in(options.descriptionFile, std::ios::binary);
    if (!in) {
        *error = "cannot read " + options.descriptionFile;
        return false;
    }
    description->bytes.assign(std::istreambuf_iterator<char>(in), {});
    if (description->bytes.empty()) {
        *error = options.descriptionFile + " is empty";
        return false;
    }
    const std::string& path = options.descriptionFile;
    const std::size_t slash = path.find_last_of('/');
    description->fileName = slash == std::string::npos ? path : path.substr(slash + 1);
    // The URL separates its fields with ';', so the name must not contain one.
    for (char& c : description->fileName) {
        if (c == ';')
            c = '_';
    }
    return true;
}

} // namespace

int main(int argc, char** argv) {
    COptions options;
    if (!options.parse(argc, argv)) {
        std::fprintf(stderr, "korvatin-camsim: %s\n\n%s", options.error().c_str(),
                     COptions::usage().c_str());
        return 2;
    }
    if (options.helpRequested()) {
        std::fputs(COptions::usage().c_str(), stdout);
        return 0;
    }
    if (options.versionRequested()) {
        // The simulator speaks the protocols itself; the SDK named is the one of its release.
        std::printf("korvatin-camsim %s (Korvatin Viewlane), released with Korvatin SDK %s\n",
                    KORVATIN_VIEWLANE_VERSION, KORVATIN_VIEWLANE_VERSION);
        return 0;
    }
    Description description;
    std::string error;
    if (!loadDescription(options, &description, &error)) {
        std::fprintf(stderr, "korvatin-camsim: %s\n", error.c_str());
        return 1;
    }

    // Every thread inherits this mask, so the signals reach only the sigwait() below.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    std::vector<std::unique_ptr<CCamera>> cameras;
    int status = 0;
    for (int i = 0; i < options.count; ++i) {
        auto camera = std::make_unique<CCamera>(options, i, description);
        error = camera->start();
        if (!error.empty()) {
            std::fprintf(stderr, "korvatin-camsim: camera on %s cannot start: %s\n",
                         ipv4ToString(options.addressOf(i)).c_str(), error.c_str());
            status = 1;
            break;
        }
        cameras.push_back(std::move(camera));
    }
    if (status == 0) {
        int received = 0;
        sigwait(&signals, &received);
    }
    // Shutdown order: each camera stops its stream thread, then its control thread.
    for (auto& camera : cameras)
        camera->stop();
    return status;
}
