// Raw GVCP for the simulator tests, including deliberately malformed packets.
#include "gvcpclient.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QElapsedTimer>

namespace {

void append16(QByteArray& b, uint16_t v) {
    b.append(char(v >> 8));
    b.append(char(v));
}

void append32(QByteArray& b, uint32_t v) {
    append16(b, uint16_t(v >> 16));
    append16(b, uint16_t(v));
}

uint32_t get32(const QByteArray& b, int offset) {
    const auto* p = reinterpret_cast<const uint8_t*>(b.constData()) + offset;
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

uint32_t parseIp(const QString& text) {
    in_addr a{};
    inet_pton(AF_INET, text.toLatin1().constData(), &a);
    return ntohl(a.s_addr);
}

QString ipText(uint32_t address) {
    in_addr a{};
    a.s_addr = htonl(address);
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &a, text, sizeof(text));
    return QString::fromLatin1(text);
}

QString fixedString(const QByteArray& b, int offset, int size) {
    const QByteArray field = b.mid(offset, size);
    const int end = field.indexOf('\0');
    return QString::fromUtf8(end < 0 ? field : field.left(end));
}

} // namespace

CGvcpClient::CGvcpClient(const QString& localAddress) {
    fd_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0)
        return;
    const int one = 1;
    setsockopt(fd_, SOL_SOCKET, SO_BROADCAST, &one, sizeof(one));
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(parseIp(localAddress));
    if (::bind(fd_, reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

CGvcpClient::~CGvcpClient() {
    if (fd_ >= 0)
        ::close(fd_);
}

QByteArray CGvcpClient::header(uint16_t command, uint16_t length, uint16_t id, uint8_t flags) {
    QByteArray b;
    b.append(char(0x42));
    b.append(char(flags));
    append16(b, command);
    append16(b, length);
    append16(b, id);
    return b;
}

bool CGvcpClient::sendRaw(const QString& address, const QByteArray& datagram) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(3956);
    to.sin_addr.s_addr = htonl(parseIp(address));
    return ::sendto(fd_, datagram.constData(), size_t(datagram.size()), 0,
                    reinterpret_cast<sockaddr*>(&to), sizeof(to)) == datagram.size();
}

GvcpAck CGvcpClient::receive(int timeoutMs) {
    GvcpAck ack;
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, timeoutMs) <= 0)
        return ack;
    QByteArray buffer(65536, '\0');
    sockaddr_in from{};
    socklen_t fromLength = sizeof(from);
    const ssize_t size = recvfrom(fd_, buffer.data(), size_t(buffer.size()), 0,
                                  reinterpret_cast<sockaddr*>(&from), &fromLength);
    if (size < 8)
        return ack;
    buffer.resize(int(size));
    const auto* h = reinterpret_cast<const uint8_t*>(buffer.constData());
    ack.received = true;
    ack.status = uint16_t(h[0] << 8 | h[1]);
    ack.command = uint16_t(h[2] << 8 | h[3]);
    ack.id = uint16_t(h[6] << 8 | h[7]);
    ack.payload = buffer.mid(8);
    ack.from = ipText(ntohl(from.sin_addr.s_addr));
    return ack;
}

GvcpAck CGvcpClient::command(const QString& address, uint16_t command, const QByteArray& payload,
                             int timeoutMs) {
    const uint16_t id = nextId_++;
    if (nextId_ == 0)
        nextId_ = 1;
    sendRaw(address, header(command, uint16_t(payload.size()), id) + payload);
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < timeoutMs) {
        GvcpAck ack = receive(int(timeoutMs - timer.elapsed()));
        if (ack.received && ack.id == id)
            return ack;
    }
    return GvcpAck();
}

GvcpAck CGvcpClient::readRegister(const QString& address, uint32_t registerAddress,
                                  uint32_t* value) {
    QByteArray payload;
    append32(payload, registerAddress);
    GvcpAck ack = command(address, 0x0080, payload);
    if (ack.received && ack.status == 0 && ack.payload.size() >= 4 && value)
        *value = get32(ack.payload, 0);
    return ack;
}

GvcpAck CGvcpClient::writeRegister(const QString& address, uint32_t registerAddress,
                                   uint32_t value) {
    QByteArray payload;
    append32(payload, registerAddress);
    append32(payload, value);
    return command(address, 0x0082, payload);
}

QList<DiscoveredCamera> CGvcpClient::discover(const QString& address, int expected, int timeoutMs) {
    QList<DiscoveredCamera> cameras;
    const uint16_t id = nextId_++;
    sendRaw(address, header(0x0002, 0, id, 0x11));
    QElapsedTimer timer;
    timer.start();
    while (cameras.size() < expected && timer.elapsed() < timeoutMs) {
        const GvcpAck ack = receive(int(timeoutMs - timer.elapsed()));
        if (!ack.received || ack.command != 0x0003 || ack.id != id || ack.payload.size() < 0xF8)
            continue;
        DiscoveredCamera camera;
        camera.address = ack.from;
        camera.currentIp = ipText(get32(ack.payload, 0x24));
        camera.currentMask = ipText(get32(ack.payload, 0x34));
        camera.currentGateway = ipText(get32(ack.payload, 0x44));
        camera.ipConfig = get32(ack.payload, 0x14);
        camera.serial = fixedString(ack.payload, 0xD8, 16);
        camera.model = fixedString(ack.payload, 0x68, 32);
        const QByteArray mac = ack.payload.mid(0x0A, 6);
        QStringList bytes;
        for (char c : mac)
            bytes << QString("%1").arg(uint8_t(c), 2, 16, QLatin1Char('0'));
        camera.mac = bytes.join(':');
        cameras << camera;
    }
    return cameras;
}

GvcpAck CGvcpClient::forceIp(const QString& address, const QByteArray& mac, const QString& newIp,
                             const QString& mask, const QString& gateway, int timeoutMs) {
    QByteArray payload(56, '\0');
    payload.replace(2, 6, mac);
    auto put = [&](int offset, uint32_t v) {
        QByteArray b;
        append32(b, v);
        payload.replace(offset, 4, b);
    };
    put(20, parseIp(newIp));
    put(36, parseIp(mask));
    put(52, parseIp(gateway));
    return command(address, 0x0004, payload, timeoutMs);
}
