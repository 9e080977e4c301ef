// What the simulated camera's registers mean: power-on values, checked writes and what they do.
#pragma once

#include "fileaccess.h"
#include "registermemory.h"

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

class COptions;
class CStreamer;
struct CRange;
struct StreamSettings;

// The description a camera serves: the file's bytes and the name its URL gives.
struct Description {
    std::vector<uint8_t> bytes;
    std::string fileName;
};

// The registers of one camera and the state behind them: look-up table, controlling host,
// files, description, frame counter. The control thread (the camera and its GVCP server) and
// the stream thread share all of it under mutex().
class CRegisterModel {
public:
    // What register writes ask of the camera; it acts once the registers are released.
    struct Actions {
        bool startStream = false;
        bool stopStream = false;
        bool reset = false;
        bool trigger = false;
        bool fireTestPacket = false;
        bool doNotFragmentChanged = false;
    };
    // The host that holds the control channel privilege, and when it was last heard from.
    struct Controller {
        bool active = false;
        uint32_t address = 0;
        uint16_t port = 0;
        uint32_t privilege = 0;
        std::chrono::steady_clock::time_point lastSeen;
    };

    // Sets the power-on state. Borrows options, the camera's current address (which FORCEIP and
    // reset change) and its streamer (for the source port the registers report); the camera
    // keeps them alive as long as the model.
    CRegisterModel(const COptions& options, std::string serial, std::array<uint8_t, 6> mac,
                   const std::atomic<uint32_t>& address, const CStreamer* streamer,
                   Description description);
    CRegisterModel(const CRegisterModel&) = delete;
    CRegisterModel& operator=(const CRegisterModel&) = delete;

    // The mutex below, for the camera and the GVCP server: they hold it around a whole request
    // or action and call the functions marked "under mutex()" inside it.
    std::mutex& mutex() const { return mutex_; }

    // Stream thread; takes mutex_ itself.
    void readStreamSettings(StreamSettings& settings) const;
    // Stream thread, after each frame sent; takes mutex_ itself.
    void countFrame();
    // Control thread; takes mutex_ itself.
    void dropControl();

    // Under mutex().
    void initialiseRegisters(bool powerOn);
    void refreshDynamicRegisters();
    bool isController(const sockaddr_in& from) const;
    uint16_t writeRegister(uint32_t address, uint32_t value, const sockaddr_in& from,
                           Actions* actions);
    CRegisterMemory& registers() { return registers_; }
    Controller& controller() { return controller_; }
    CFileAccess& files() { return files_; }
    Description& description() { return description_; }

private:
    // Under mutex_.
    void installDescription();
    uint16_t writeDeviceRegister(uint32_t address, uint32_t value, Actions* actions);
    // The longest exposure (microseconds) a frame rate leaves: its frame period, or the camera's
    // limit when the rate is 0.
    static uint32_t exposureLimit(uint32_t frameRate);
    // Within the range and on its increment, counted from its minimum.
    static bool inRange(const CRange& range, uint32_t value);
    // The table entry a LUTIndex value selects.
    std::size_t lutEntry(uint32_t index) const;
    // Sets the exposure and keeps the knee points at or below it.
    void limitExposure(uint32_t exposure);
    void executeFileOperation();
    bool deviceRegistersActive() const;

    const COptions& options_;
    const std::string serial_;
    const std::array<uint8_t, 6> mac_;
    const std::atomic<uint32_t>& address_; // the camera's; written by the control thread only
    const CStreamer* streamer_;            // the camera's

    // Protects registers_, lut_, controller_, files_, description_, frameCounter_,
    // seedGeneration_ and timestampOrigin_ (control and stream threads). It lives here with what
    // it guards; the camera and the GVCP server lock it through mutex().
    mutable std::mutex mutex_;
    CRegisterMemory registers_;
    std::vector<uint16_t> lut_; // the table's entries, in index order
    Controller controller_;
    CFileAccess files_;
    Description description_;
    uint32_t frameCounter_ = 0;
    uint32_t seedGeneration_ = 0;
    std::chrono::steady_clock::time_point timestampOrigin_;
};
