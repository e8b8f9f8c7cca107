// The persistent settings database of the process that owns the hardware: two
// stores in "/root" (relocated by VELMORA_ROOT), "ZAVSettingsDBCurrent" for
// current values and "ZAVSettingsDBAllowed" for allowed values. Values are kept
// as the JSON text of one serial object each. Nothing is cached, nothing is
// validated against the allowed values and no listener is told of a change.
//
// Deliberate asymmetries, which callers rely on: the singular getCurrentValue
// reads the allowed store; setAllowedValues writes every element under the
// same (entity, attribute), so only the last survives, and getAllowedValues
// reads that text back as a vector; reset empties the current store only; the
// entity and attribute lists know only the current store.
//
// Threads: `_` operations run on the settings thread; the stores lock for
// themselves. init() belongs to the owner's thread.
#pragma once

#include "store/EAVStore.h"
#include "SettingsDB.h"
#include "frame/Singleton.h"

namespace Velmora {

class MasterSettingsDB : public Singleton<MasterSettingsDB>, public SettingsDB {
public:
    static char const* const CURRENT_STORE_NAME; // "ZAVSettingsDBCurrent"
    static char const* const ALLOWED_STORE_NAME; // "ZAVSettingsDBAllowed"
    static char const* const STORE_DIRECTORY;    // "/root", before relocation
    static char const* const STORE_EXTENSION;    // ".db"

    MasterSettingsDB();
    ~MasterSettingsDB() override;

    // Starts the settings thread, then opens the current and the allowed store.
    void init() override;

protected:
    VectorObject<std::string> _getEntities() override;
    VectorObject<std::string> _getAttributes(std::string const& entity) override;
    VectorObject<SerialObject*> _getAllowedValues(EntityAttributePair const& pair) override;
    void _setAllowedValues(AllowedValues const& allowed) override;
    SerialObject* _getCurrentValue(EntityAttributePair const& pair) override;
    VectorObject<AttributeValuePair> _getCurrentValues(std::string const& entity) override;
    void _setCurrentValues(CurrentValues const& values) override;
    void _reset() override;

private:
    EAVStore currentStore;
    EAVStore allowedStore;
};

} // namespace Velmora
