#include "StubSettingsDB.h"

namespace Velmora {

StubSettingsDB::StubSettingsDB() = default;

StubSettingsDB::~StubSettingsDB()
{
    uninit();
}

VectorObject<std::string> StubSettingsDB::_getEntities() { return {}; }

VectorObject<std::string> StubSettingsDB::_getAttributes(std::string const&) { return {}; }

VectorObject<SerialObject*> StubSettingsDB::_getAllowedValues(EntityAttributePair const&) { return {}; }

void StubSettingsDB::_setAllowedValues(AllowedValues const&) {}

SerialObject* StubSettingsDB::_getCurrentValue(EntityAttributePair const&) { return nullptr; }

VectorObject<ISettingsDB::AttributeValuePair> StubSettingsDB::_getCurrentValues(std::string const&) { return {}; }

void StubSettingsDB::_setCurrentValues(CurrentValues const&) {}

void StubSettingsDB::_reset() {}

} // namespace Velmora
