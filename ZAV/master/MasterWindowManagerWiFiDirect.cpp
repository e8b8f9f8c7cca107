// Wi-Fi Direct and Bluetooth hand-offs: a Miracast peer gets the Wi-Fi Display
// player, an A2DP device that attached is noted; and the one socket operation.
#include "MasterWindowManager.h"

#include "frame/DebugPrint.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Velmora {

static char const MODULE[] = "MasterWindowManager";

namespace {

char const MEDIA_PAGE[] = "file:///usr/local/html_root/velmoraLauncher/../qenclient.html";

bool reachable(IWireless::WiFiDirectPeerInfo const& peer)
{
    in_addr address{};
    unsigned int const port = peer.getMiraCastSettings().getRtspPort();
    return ::inet_pton(AF_INET, peer.getIpAddress().c_str(), &address) == 1 && port > 0 && port <= 65535;
}

} // namespace

void MasterWindowManager::onWiFiDirectConnect(WiFiDirectPeerInfo const& peer)
{
    if (std::getenv("MSFT_DEMO")) {
        launchPage(MEDIA_PAGE, "Wi-Fi Direct");
        return;
    }
    IWireless::MiraCastSettings const& miraCast = peer.getMiraCastSettings();
    if (!miraCast.isEnabled())
        return;
    if (!reachable(peer)) {
        VLOG(DebugLevelError, "onWiFiDirectConnect(): refused the peer %s:%u\n", peer.getIpAddress().c_str(),
             miraCast.getRtspPort());
        return;
    }
    std::string const parameters =
        "-w rtsp://" + peer.getIpAddress() + ":" + std::to_string(miraCast.getRtspPort()) + " -t -b 2";
    launch(LaunchParameters("0", APPLICATION_TYPE_WFDPLAYER, "", parameters, {}, true, false), "Wi-Fi Direct");
}

void MasterWindowManager::onAttachDone(std::string const& result, BTDeviceInfo const& device)
{
    if (result != "Success")
        return;
    for (std::string const& service : device.getServices())
        if (service == IBluetooth::SERVICE_A2DP) {
            queueCommand(new StartAvCommand(this), true);
            return;
        }
}

int MasterWindowManager::CreateTcpListener(char const* address, unsigned short port)
{
    int const fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) {
        std::puts("socket creation failed");
        return -1;
    }
    auto const fail = [fd](char const* line) {
        std::puts(line);
        ::close(fd);
        return -1;
    };
    int const one = 1;
    if (::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one) < 0)
        return fail("setsocketopt failed ");
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_addr.s_addr = ::inet_addr(address);
    endpoint.sin_port = htons(port);
    if (::bind(fd, reinterpret_cast<sockaddr const*>(&endpoint), sizeof endpoint) < 0)
        return fail("bind failed");
    if (::listen(fd, 10) != 0)
        return fail("listen failed");
    return fd;
}

} // namespace Velmora
