// Checks of this host for what loses GigE Vision frames: the socket receive buffer limit, the
// MTU of the interface that reaches the camera, its reverse-path filter and firewall rules that
// drop UDP. Shared by `viewlane-cli doctor` and the viewer's status bar.
#include "hostcheck.h"

#include <korvatin/korvatincamera.h>
#include <korvatin/korvatingigevision.h>
#include <korvatin/streamreceivebuffer.h>

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>

namespace {

// A 2592 x 1944 sensor, the usual 5-megapixel one, 8 bits per pixel.
constexpr uint64_t kTypicalPayloadBytes = 2592ull * 1944ull;
constexpr double kTypicalFramesPerSecond = 60.0;
// Jumbo frames: the MTU that GigE Vision adapters and switches commonly take.
constexpr uint32_t kJumboMtu = 9000;
constexpr uint64_t kMiB = 1024ull * 1024ull;
// How long a firewall tool may take to list its rules.
constexpr int kFirewallToolTimeoutMs = 3000;

std::string number(uint64_t value) {
    return std::to_string(value);
}

// The folder that stands for /proc/sys: the system's, or one a test made.
QString procSys() {
    const QString root = qEnvironmentVariable("KORVATIN_HOST_PROC_SYS");
    return root.isEmpty() ? QStringLiteral("/proc/sys") : root;
}

// A number from a file under /proc/sys, e.g. "net/core/rmem_max"; none when it cannot be read.
std::optional<long long> readSysctl(const QString& path) {
    QFile file(procSys() + '/' + path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    bool ok = false;
    const long long value = file.readAll().trimmed().toLongLong(&ok);
    if (!ok)
        return std::nullopt;
    return value;
}

// The interface's MTU as this network namespace sees it; none when it has no such interface.
std::optional<int> interfaceMtu(const std::string& name) {
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return std::nullopt;
    ifreq request{};
    std::strncpy(request.ifr_name, name.c_str(), IFNAMSIZ - 1);
    const int result = ::ioctl(fd, SIOCGIFMTU, &request);
    ::close(fd);
    if (result != 0)
        return std::nullopt;
    return request.ifr_mtu;
}

std::string describeStream(const CHostCheck::Stream& stream) {
    char text[160];
    if (stream.framesPerSecond > 0)
        std::snprintf(text, sizeof text, "%.1f MB frames at %.1f fps of %s",
                      double(stream.payloadBytes) / 1e6, stream.framesPerSecond,
                      stream.source.c_str());
    else
        std::snprintf(text, sizeof text, "%.1f MB frames of %s", double(stream.payloadBytes) / 1e6,
                      stream.source.c_str());
    return text;
}

// Where the camera's packets come from, for a firewall rule.
std::string sourceOf(const CHostCheck::Stream& stream) {
    return stream.deviceAddress.empty() ? std::string("CAMERA_ADDRESS") : stream.deviceAddress;
}

// Rules of `nft list ruleset` that drop UDP arriving at this host: lines of chains hooked at
// input or prerouting that name UDP and drop or reject, and such chains whose policy drops
// without a rule that accepts UDP. Each with the command that lets the camera's packets in.
void readNftRules(const QString& ruleset, const std::string& source,
                  std::vector<std::string>* rules, std::vector<std::string>* fixes) {
    QString family;
    QString table;
    QString chain;
    bool hooked = false;
    bool policyDrop = false;
    bool acceptsUdp = false;
    const auto endChain = [&] {
        if (hooked && policyDrop && !acceptsUdp) {
            rules->push_back("chain " + chain.toStdString() + " of table " + family.toStdString() +
                             " " + table.toStdString() + " drops by policy");
            fixes->push_back("nft insert rule " + family.toStdString() + " " + table.toStdString() +
                             " " + chain.toStdString() + " ip saddr " + source +
                             " meta l4proto udp accept");
        }
        chain.clear();
        hooked = policyDrop = acceptsUdp = false;
    };
    for (const QString& rawLine : ruleset.split('\n')) {
        const QString line = rawLine.trimmed();
        const QStringList words = line.split(' ', Qt::SkipEmptyParts);
        if (words.size() >= 3 && words[0] == "table") {
            family = words[1];
            table = words[2];
            continue;
        }
        if (words.size() >= 2 && words[0] == "chain") {
            chain = words[1];
            continue;
        }
        if (chain.isEmpty())
            continue;
        if (line == "}") {
            endChain();
            continue;
        }
        if (line.contains("hook input") || line.contains("hook prerouting")) {
            hooked = true;
            policyDrop = line.contains("policy drop");
            continue;
        }
        const bool udp = words.contains("udp") || line.contains("l4proto udp");
        if (udp && words.contains("accept"))
            acceptsUdp = true;
        if (hooked && udp && (words.contains("drop") || words.contains("reject"))) {
            rules->push_back(line.toStdString() + " (chain " + chain.toStdString() + " of table " +
                             family.toStdString() + " " + table.toStdString() + ")");
            fixes->push_back("nft insert rule " + family.toStdString() + " " + table.toStdString() +
                             " " + chain.toStdString() + " ip saddr " + source +
                             " meta l4proto udp accept");
        }
    }
}

// The same for `iptables-save`: the INPUT chain's policy and its rules.
void readIptablesRules(const QString& rules, const std::string& source,
                       std::vector<std::string>* found, std::vector<std::string>* fixes) {
    bool policyDrop = false;
    bool acceptsUdp = false;
    for (const QString& rawLine : rules.split('\n')) {
        const QString line = rawLine.trimmed();
        if (line.startsWith(":INPUT DROP"))
            policyDrop = true;
        if (!line.startsWith("-A INPUT "))
            continue;
        const bool udp = line.contains("-p udp");
        if (udp && line.contains("-j ACCEPT"))
            acceptsUdp = true;
        if (udp && (line.contains("-j DROP") || line.contains("-j REJECT")))
            found->push_back(line.toStdString());
    }
    if (policyDrop && !acceptsUdp)
        found->push_back("the INPUT chain drops by policy");
    if (!found->empty())
        fixes->push_back("iptables -I INPUT -s " + source + " -p udp -j ACCEPT");
}

QString findTool(const QString& name) {
    QString path = QStandardPaths::findExecutable(name);
    if (path.isEmpty())
        path = QStandardPaths::findExecutable(name, {"/usr/sbin", "/sbin"});
    return path;
}

} // namespace

CHostCheck::Stream CHostCheck::TypicalStream() {
    Stream stream;
    stream.source = "a 5-megapixel camera at 60 fps";
    stream.payloadBytes = kTypicalPayloadBytes;
    stream.framesPerSecond = kTypicalFramesPerSecond;
    return stream;
}

CHostCheck::Stream CHostCheck::StreamOf(CKorvatinCamera& camera) {
    Stream stream;
    const GigEVisionDeviceInfo* info = camera.ConnectedDeviceInfo();
    if (info != nullptr) {
        stream.deviceAddress = info->currentIp;
        for (const NetworkInterfaceController& nic : CKorvatinGigEVision::EnumerateNICs()) {
            if (std::strcmp(nic.name, info->hostInterfaceAddress) == 0)
                stream.interfaceName = nic.systemName;
        }
    }
    stream.source = "the device " + stream.deviceAddress;
    // A feature a camera lacks leaves its figure 0: that check then says it could not be made.
    try {
        stream.payloadBytes = camera.GetUInt32("PayloadSize");
    } catch (const std::exception&) {
        try {
            stream.payloadBytes = uint64_t(camera.GetUInt32("Width")) * camera.GetUInt32("Height");
        } catch (const std::exception&) {
        }
    }
    try {
        stream.framesPerSecond = camera.GetUInt32("FrameRate");
    } catch (const std::exception&) {
    }
    try {
        stream.packetBytes = camera.GetUInt32("GevSCPSPacketSize");
        stream.maxPacketBytes = camera.GetUInt32Max("GevSCPSPacketSize");
    } catch (const std::exception&) {
    }
    return stream;
}

std::vector<CHostCheck::Finding> CHostCheck::Run(const Stream& stream) {
    return {CheckReceiveBuffer(stream), CheckMtu(stream), CheckReversePathFilter(stream),
            CheckFirewall(stream)};
}

bool CHostCheck::AnyProblem(const std::vector<Finding>& findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding& f) { return f.state == Finding::State::Problem; });
}

std::string CHostCheck::Summary(const std::vector<Finding>& findings) {
    std::string summary;
    for (const Finding& finding : findings) {
        if (finding.state == Finding::State::Problem)
            summary += (summary.empty() ? "" : "; ") + finding.brief;
    }
    return summary;
}

std::string CHostCheck::Details(const std::vector<Finding>& findings) {
    std::string details;
    for (const Finding& finding : findings) {
        if (finding.state != Finding::State::Problem)
            continue;
        details += finding.check + ": " + finding.found + ", should be " + finding.shouldBe +
                   ".\nFix: " + finding.fix + "\n";
    }
    return details;
}

CHostCheck::Finding CHostCheck::CheckReceiveBuffer(const Stream& stream) {
    Finding finding;
    finding.check = "receive buffer limit (net.core.rmem_max)";
    const std::optional<long long> limit = readSysctl("net/core/rmem_max");
    if (!limit) {
        finding.state = Finding::State::NotChecked;
        finding.found = "not readable under " + procSys().toStdString();
        return finding;
    }
    finding.found = number(uint64_t(*limit)) + " bytes";
    if (stream.payloadBytes == 0) {
        finding.state = Finding::State::NotChecked;
        finding.shouldBe = "unknown: the device tells no payload size";
        return finding;
    }
    // What the stream channel asks for; the fix rounds it up to whole MiB.
    const uint64_t need =
        KorvatinStreamReceiveBufferBytes(stream.payloadBytes, stream.framesPerSecond);
    const uint64_t advised = (need + kMiB - 1) / kMiB * kMiB;
    finding.shouldBe = "at least " + number(need) + " bytes: two frames or 100 ms of " +
                       describeStream(stream) + ", whichever is more";
    if (uint64_t(*limit) >= need)
        return finding;
    finding.state = Finding::State::Problem;
    finding.brief = "net.core.rmem_max " + number(uint64_t(*limit)) + ", needs " + number(need);
    finding.fix = "sysctl -w net.core.rmem_max=" + number(advised) +
                  " and, to keep it, echo net.core.rmem_max=" + number(advised) +
                  " > /etc/sysctl.d/60-korvatin-viewlane.conf";
    return finding;
}

CHostCheck::Finding CHostCheck::CheckMtu(const Stream& stream) {
    Finding finding;
    finding.check = "MTU (jumbo frames)";
    if (stream.deviceAddress.empty()) {
        finding.state = Finding::State::NotChecked;
        finding.found = "no device named";
        finding.shouldBe = "as large as the device's packets: name a DEVICE to check it";
        return finding;
    }
    const std::optional<int> mtu =
        stream.interfaceName.empty() ? std::nullopt : interfaceMtu(stream.interfaceName);
    if (!mtu) {
        finding.state = Finding::State::NotChecked;
        finding.found = "no interface of this host found for " + stream.deviceAddress;
        return finding;
    }
    finding.check = "MTU of " + stream.interfaceName + " (jumbo frames)";
    finding.found = number(uint64_t(*mtu)) + " bytes";
    const uint32_t largest =
        stream.maxPacketBytes != 0 ? stream.maxPacketBytes : stream.packetBytes;
    if (largest == 0) {
        finding.state = Finding::State::NotChecked;
        finding.shouldBe = "unknown: the device tells no packet size (GevSCPSPacketSize)";
        return finding;
    }
    const uint32_t wanted = std::min(largest, kJumboMtu);
    finding.shouldBe = "at least " + number(wanted) + " bytes: the device sends packets of up to " +
                       number(largest) + " bytes (now " + number(stream.packetBytes) +
                       "), and a larger MTU carries a frame in fewer packets";
    if (uint32_t(*mtu) >= wanted)
        return finding;
    finding.state = Finding::State::Problem;
    finding.brief = "MTU " + number(uint64_t(*mtu)) + " on " + stream.interfaceName +
                    ", jumbo frames need " + number(wanted);
    finding.fix = "ip link set dev " + stream.interfaceName + " mtu " + number(wanted) +
                  " (the switch and the camera's port must take jumbo frames too)";
    return finding;
}

CHostCheck::Finding CHostCheck::CheckReversePathFilter(const Stream& stream) {
    Finding finding;
    const std::string name = stream.interfaceName.empty() ? "all" : stream.interfaceName;
    finding.check = "reverse-path filter (net.ipv4.conf." + name + ".rp_filter)";
    const std::optional<long long> all = readSysctl("net/ipv4/conf/all/rp_filter");
    const std::optional<long long> own =
        name == "all" ? all
                      : readSysctl(QString::fromStdString("net/ipv4/conf/" + name + "/rp_filter"));
    if (!all || !own) {
        finding.state = Finding::State::NotChecked;
        finding.found = "not readable under " + procSys().toStdString();
        return finding;
    }
    // The kernel applies the larger of the interface's value and "all".
    const long long effective = std::max(*all, *own);
    const char* words[] = {"off", "strict", "loose"};
    finding.found = number(uint64_t(effective)) + " (" +
                    (effective >= 0 && effective <= 2 ? words[effective] : "unknown") + ")";
    if (name != "all")
        finding.found +=
            ", from " + name + " " + number(uint64_t(*own)) + " and all " + number(uint64_t(*all));
    finding.shouldBe = "0 (off) or 2 (loose): strict filtering drops a camera's packets when "
                       "this host would not route its replies out of the same interface";
    if (effective != 1)
        return finding;
    finding.state = Finding::State::Problem;
    finding.brief = "strict reverse-path filter on " + name;
    finding.fix = "sysctl -w net.ipv4.conf.all.rp_filter=2" +
                  (name == "all" ? std::string() : " net.ipv4.conf." + name + ".rp_filter=2");
    return finding;
}

CHostCheck::Finding CHostCheck::CheckFirewall(const Stream& stream) {
    Finding finding;
    finding.check = "firewall rules that drop UDP";
    finding.shouldBe = "no rule that drops the camera's UDP packets";
    const QString nft = findTool("nft");
    const QString iptables = findTool("iptables-save");
    if (nft.isEmpty() && iptables.isEmpty()) {
        finding.state = Finding::State::NotChecked;
        finding.found = "neither nft nor iptables-save is installed, so no rules could be read";
        return finding;
    }
    const QString tool = nft.isEmpty() ? iptables : nft;
    const QStringList arguments = nft.isEmpty() ? QStringList() : QStringList{"list", "ruleset"};
    QProcess process;
    process.start(tool, arguments);
    const bool finished = process.waitForFinished(kFirewallToolTimeoutMs);
    const QString command = (tool + ' ' + arguments.join(' ')).trimmed();
    if (!finished || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        if (!finished)
            process.kill();
        finding.state = Finding::State::NotChecked;
        const QString error = QString::fromLocal8Bit(process.readAllStandardError()).trimmed();
        finding.found =
            command.toStdString() + " did not answer" +
            (error.isEmpty() ? std::string() : ": " + error.section('\n', 0, 0).toStdString()) +
            " (reading the rules needs root)";
        return finding;
    }
    const QString output = QString::fromLocal8Bit(process.readAllStandardOutput());
    std::vector<std::string> rules;
    std::vector<std::string> fixes;
    if (nft.isEmpty())
        readIptablesRules(output, sourceOf(stream), &rules, &fixes);
    else
        readNftRules(output, sourceOf(stream), &rules, &fixes);
    if (rules.empty()) {
        finding.found = "none in " + command.toStdString();
        return finding;
    }
    finding.state = Finding::State::Problem;
    finding.brief = "firewall rules drop UDP";
    for (const std::string& rule : rules)
        finding.found += (finding.found.empty() ? "" : "; ") + rule;
    std::vector<std::string> distinct;
    for (const std::string& fix : fixes) {
        if (std::find(distinct.begin(), distinct.end(), fix) == distinct.end())
            distinct.push_back(fix);
    }
    for (const std::string& fix : distinct)
        finding.fix += (finding.fix.empty() ? "" : "; ") + fix;
    return finding;
}
