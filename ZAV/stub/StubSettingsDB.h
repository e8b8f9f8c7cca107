// The settings database of a process that doesn't own the hardware: a null
// object that holds nothing and forwards nothing. Reads answer empty, writes
// are dropped, nothing fails.
//
// The singular getCurrentValue answers null here; callers use the list forms.
// Threads: as SettingsDB.
#pragma once

#include "SettingsDB.h"
#include "frame/Singleton.h"

namespace Velmora {

class StubSettingsDB : public Singleton<StubSettingsDB>, public SettingsDB {
public:
    StubSettingsDB();
    ~StubSettingsDB() override;

protected:
    VectorObject<std::string> _getEntities() override;
    VectorObject<std::string> _getAttributes(std::string const& entity) override;
    VectorObject<SerialObject*> _getAllowedValues(EntityAttributePair const& pair) override;
    void _setAllowedValues(AllowedValues const& allowed) override;
    SerialObject* _getCurrentValue(EntityAttributePair const& pair) override;
    VectorObject<AttributeValuePair> _getCurrentValues(std::string const& entity) override;
    void _setCurrentValues(CurrentValues const& values) override;
    void _reset() override;
};

} // namespace Velmora
