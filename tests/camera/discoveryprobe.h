// Sees the discovery commands sent on the loopback interface, to know when a discovery pass runs.
#pragma once

// A UDP socket on 127.255.255.255:3956, beside the simulated cameras. The directed broadcast that
// discovery sends on the loopback interface (127.0.0.1/8) reaches it; it never answers.
class DiscoveryProbe {
public:
    DiscoveryProbe();
    ~DiscoveryProbe();
    DiscoveryProbe(const DiscoveryProbe&) = delete;
    DiscoveryProbe& operator=(const DiscoveryProbe&) = delete;

    bool isOpen() const { return fd_ >= 0; }
    // Waits up to timeoutMs for the next discovery command; true when one arrived.
    bool waitForDiscovery(int timeoutMs);
    // Drops what has arrived so far.
    void drain();

private:
    int fd_ = -1;
};
