// viewlane-cli doctor: this host's checks for what loses GigE Vision frames, as text.
#pragma once

#include <iosfwd>
#include <string>

class CCliCommands;

class CCliDoctor {
public:
    CCliDoctor(CCliCommands& commands, std::ostream& out);

    // Checks the host against the stream of `device` (read without taking control), or against
    // a 5-megapixel camera at 60 fps when `device` is empty, and prints each check: what was
    // found, what it should be and the command that fixes it. True when no check found a
    // problem.
    bool Run(const std::string& device);

private:
    CCliCommands& commands_;
    std::ostream& out_;
};
