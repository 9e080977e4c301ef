// Checks of this host for what loses GigE Vision frames: the socket receive buffer limit, the
// MTU of the interface that reaches the camera, its reverse-path filter and firewall rules that
// drop UDP. Shared by `viewlane-cli doctor` and the viewer's status bar.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class CKorvatinCamera;

class CHostCheck {
public:
    // What the checks measure the host against.
    struct Stream {
        std::string source;          // "the device 127.0.0.1" or "a 5-megapixel camera at 60 fps"
        uint64_t payloadBytes = 0;   // one frame as sent
        double framesPerSecond = 0;  // 0: not known
        uint32_t packetBytes = 0;    // the stream packet size now (GevSCPSPacketSize); 0: no device
        uint32_t maxPacketBytes = 0; // the largest the device can send; 0: no device
        std::string deviceAddress;   // empty without a device
        std::string interfaceName;   // the system's name of the interface that reaches it
    };

    struct Finding {
        enum class State { Ok, Problem, NotChecked };
        State state = State::Ok;
        std::string check;    // "receive buffer limit (net.core.rmem_max)"
        std::string found;    // what the host has
        std::string shouldBe; // what the stream needs
        std::string fix;      // the command that fixes it; empty when all is well
        std::string brief;    // a problem in a few words: "net.core.rmem_max 212992, needs ..."
    };

    // A 5-megapixel camera at 60 fps with 8 bits per pixel, for a host checked without a device.
    static Stream TypicalStream();
    // The stream of the connected `camera`, read from its features (PayloadSize, the frame
    // rate, GevSCPSPacketSize) and its descriptor; what cannot be read stays 0.
    static Stream StreamOf(CKorvatinCamera& camera);

    // Runs every check. Reads the system's settings under the folder that
    // KORVATIN_HOST_PROC_SYS names, else under /proc/sys; asks nft or iptables for the firewall
    // rules (read only), saying so when neither is installed or may be asked.
    static std::vector<Finding> Run(const Stream& stream);

    // True when a finding is a problem.
    static bool AnyProblem(const std::vector<Finding>& findings);
    // The problems in a few words, in one line for a status bar; empty when there is none.
    static std::string Summary(const std::vector<Finding>& findings);
    // The problems one per line, each with what it should be and its fixing command.
    static std::string Details(const std::vector<Finding>& findings);

private:
    static Finding CheckReceiveBuffer(const Stream& stream);
    static Finding CheckMtu(const Stream& stream);
    static Finding CheckReversePathFilter(const Stream& stream);
    static Finding CheckFirewall(const Stream& stream);
};
