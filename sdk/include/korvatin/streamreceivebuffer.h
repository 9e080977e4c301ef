// How large a socket receive buffer a camera's stream asks of the system: the stream channel
// asks for it, and the host checks compare the system's limit (net.core.rmem_max) with it.
#pragma once

#include <cmath>
#include <cstdint>

// Two frames, or 100 ms of the stream when that is more: what the socket may have to hold while
// the receiving thread waits for a processor. `framesPerSecond` 0 (not known) counts two frames.
inline uint64_t KorvatinStreamReceiveBufferBytes(uint64_t payloadBytes, double framesPerSecond) {
    const double tenthOfASecond =
        framesPerSecond > 0 ? std::ceil(double(payloadBytes) * framesPerSecond / 10.0) : 0.0;
    const uint64_t twoFrames = 2 * payloadBytes;
    return tenthOfASecond > double(twoFrames) ? uint64_t(tenthOfASecond) : twoFrames;
}
