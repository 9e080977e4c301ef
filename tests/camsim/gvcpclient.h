// Raw GVCP for the simulator tests, including deliberately malformed packets.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>

struct GvcpAck {
    bool received = false;
    uint16_t status = 0;
    uint16_t command = 0;
    uint16_t id = 0;
    QByteArray payload;
    QString from; // sender address
};

// One discovery answer, decoded from its bootstrap payload.
struct DiscoveredCamera {
    QString address; // the sender of the answer
    QString currentIp;
    QString currentMask;
    QString currentGateway;
    uint32_t ipConfig = 0; // the IP configuration bits (0x0014): 1 persistent, 2 DHCP, 4 LLA
    QString serial;
    QString mac; // "xx:xx:xx:xx:xx:xx"
    QString model;
};

class CGvcpClient {
public:
    // Binds a UDP socket to `localAddress` (any port), with broadcast allowed.
    explicit CGvcpClient(const QString& localAddress = QStringLiteral("127.0.0.1"));
    ~CGvcpClient();
    CGvcpClient(const CGvcpClient&) = delete;
    CGvcpClient& operator=(const CGvcpClient&) = delete;

    bool isOpen() const { return fd_ >= 0; }

    // Sends raw bytes to address:3956.
    bool sendRaw(const QString& address, const QByteArray& datagram);
    // Waits up to timeoutMs for one answer.
    GvcpAck receive(int timeoutMs);

    // Sends a command with the acknowledge flag and waits for its acknowledge.
    GvcpAck command(const QString& address, uint16_t command, const QByteArray& payload,
                    int timeoutMs = 1000);
    GvcpAck readRegister(const QString& address, uint32_t registerAddress, uint32_t* value);
    GvcpAck writeRegister(const QString& address, uint32_t registerAddress, uint32_t value);

    // Sends DISCOVERY_CMD to `address` (a camera or a broadcast address) and collects the
    // answers until `expected` arrived or timeoutMs passed.
    QList<DiscoveredCamera> discover(const QString& address, int expected, int timeoutMs);

    // FORCEIP_CMD for the camera with `mac` (6 bytes), sent to `address`.
    GvcpAck forceIp(const QString& address, const QByteArray& mac, const QString& newIp,
                    const QString& mask, const QString& gateway, int timeoutMs = 2000);

    static QByteArray header(uint16_t command, uint16_t length, uint16_t id, uint8_t flags = 0x01);

private:
    int fd_ = -1;
    uint16_t nextId_ = 1;
};
