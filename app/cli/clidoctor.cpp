// viewlane-cli doctor: this host's checks for what loses GigE Vision frames, as text.
#include "clidoctor.h"

#include "clicommands.h"

#include <hostcheck.h>

#include <korvatin/korvatincamera.h>

#include <ostream>

CCliDoctor::CCliDoctor(CCliCommands& commands, std::ostream& out)
    : commands_(commands), out_(out) {}

bool CCliDoctor::Run(const std::string& device) {
    CHostCheck::Stream stream = CHostCheck::TypicalStream();
    if (!device.empty()) {
        CKorvatinCamera camera;
        commands_.ConnectForReading(camera, device);
        stream = CHostCheck::StreamOf(camera);
    }
    const std::vector<CHostCheck::Finding> findings = CHostCheck::Run(stream);
    int problems = 0;
    for (const CHostCheck::Finding& finding : findings) {
        const char* state = "ok";
        if (finding.state == CHostCheck::Finding::State::Problem) {
            state = "PROBLEM";
            ++problems;
        } else if (finding.state == CHostCheck::Finding::State::NotChecked) {
            state = "not checked";
        }
        out_ << finding.check << ": " << state << '\n';
        out_ << "  found:     " << finding.found << '\n';
        if (!finding.shouldBe.empty())
            out_ << "  should be: " << finding.shouldBe << '\n';
        if (!finding.fix.empty())
            out_ << "  fix:       " << finding.fix << '\n';
    }
    if (problems == 0)
        out_ << "No problem found.\n";
    else
        out_ << problems << (problems == 1 ? " problem" : " problems")
             << " found: frames may be lost on this host.\n";
    return problems == 0;
}
