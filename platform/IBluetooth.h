// The Bluetooth notices of the media engine, delivered by QENClient: device
// discovery, attachment and pairing, and the transcript of a voice remote.
// BTDeviceInfo is the record of one device: its name and the services it offers.
#pragma once

#include "frame/IListener.h"
#include "serial/VectorObject.h"

#include <string>
#include <utility>

namespace Velmora {

class IBluetooth {
public:
    static char const* const SERVICE_A2DP; // "A2DP"

    class BTDeviceInfo {
    public:
        BTDeviceInfo() = default;
        BTDeviceInfo(std::string name, VectorObject<std::string> services)
            : name(std::move(name)), services(std::move(services))
        {
        }
        std::string const& getName() const { return name; }
        VectorObject<std::string> const& getServices() const { return services; }

    private:
        std::string name;
        VectorObject<std::string> services;
    };

    class IBluetoothListener : public virtual IListener {
    public:
        virtual void onDiscoveryDone(VectorObject<BTDeviceInfo>& devices) = 0;
        virtual void onAttachDone(std::string const& result, BTDeviceInfo const& device) = 0;
        virtual void onDetachDone(std::string const& result, BTDeviceInfo const& device) = 0;
        virtual void simplePairingConfirm(BTDeviceInfo& device) = 0;
        virtual void simplePairingNotify(BTDeviceInfo& device, unsigned int passkey) = 0;
        virtual void onHidVoiceRecDone(std::string const& transcript) = 0;
        virtual void onAvkStateEvent(std::string const& event) = 0;
    };

    virtual ~IBluetooth() = default;
};

} // namespace Velmora
