// The wireless notices of the media engine, delivered by QENClient: access
// point scans and connections, and Wi-Fi Direct peers. WiFiDirectPeerInfo is
// a peer as it connects: its address and its Miracast settings.
#pragma once

#include "frame/IListener.h"
#include "serial/VectorObject.h"

#include <string>
#include <utility>

namespace Velmora {

class IWireless {
public:
    class WiFiApInfo {
    public:
        explicit WiFiApInfo(std::string ssid = {}) : ssid(std::move(ssid)) {}
        std::string const& getSsid() const { return ssid; }

    private:
        std::string ssid;
    };

    class MiraCastSettings {
    public:
        MiraCastSettings() = default;
        MiraCastSettings(bool enabled, unsigned int rtspPort) : enabled(enabled), rtspPort(rtspPort) {}
        bool isEnabled() const { return enabled; }
        unsigned int getRtspPort() const { return rtspPort; }

    private:
        bool enabled = false;
        unsigned int rtspPort = 0;
    };

    class WiFiDirectPeerInfo {
    public:
        WiFiDirectPeerInfo() = default;
        WiFiDirectPeerInfo(std::string ipAddress, MiraCastSettings miraCast)
            : ipAddress(std::move(ipAddress)), miraCast(miraCast)
        {
        }
        std::string const& getIpAddress() const { return ipAddress; }
        MiraCastSettings const& getMiraCastSettings() const { return miraCast; }

    private:
        std::string ipAddress;
        MiraCastSettings miraCast;
    };

    class IWirelessListener : public virtual IListener {
    public:
        virtual void onScanDone(VectorObject<WiFiApInfo>& accessPoints, std::string const& result) = 0;
        virtual void onFetchApInfoDone(WiFiApInfo& accessPoint, std::string const& result) = 0;
        virtual void onConnectionResult(WiFiApInfo& accessPoint, std::string const& result) = 0;
        virtual void onWiFiInviteEvent(std::string const& event) = 0;
        virtual void onRSSIEvent(std::string const& event) = 0;
        virtual void onWiFiDirectConnect(WiFiDirectPeerInfo const& peer) = 0;
        virtual void onWiFiDirectDiscoveredPeer(WiFiDirectPeerInfo const& peer) = 0;
        virtual void onWiFiDirectNotify(std::string const& event, unsigned int const& status,
                                        WiFiDirectPeerInfo const& peer) = 0;
    };

    virtual ~IWireless() = default;
};

} // namespace Velmora
