#include "MasterSettingsDB.h"

#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "serial/Serialization.h"
#include "frame/SysRoot.h"

#include <memory>

namespace Velmora {

static char const MODULE[] = "MasterSettingsDB";

char const* const MasterSettingsDB::CURRENT_STORE_NAME = "ZAVSettingsDBCurrent";
char const* const MasterSettingsDB::ALLOWED_STORE_NAME = "ZAVSettingsDBAllowed";
char const* const MasterSettingsDB::STORE_DIRECTORY = "/root";
char const* const MasterSettingsDB::STORE_EXTENSION = ".db";

namespace {

VectorObject<std::string> toVectorObject(std::vector<std::string> const& names)
{
    VectorObject<std::string> result;
    result.assign(names.begin(), names.end());
    return result;
}

} // namespace

MasterSettingsDB::MasterSettingsDB()
    : currentStore(CURRENT_STORE_NAME, SysRoot::path(STORE_DIRECTORY), STORE_EXTENSION),
      allowedStore(ALLOWED_STORE_NAME, SysRoot::path(STORE_DIRECTORY), STORE_EXTENSION)
{
}

MasterSettingsDB::~MasterSettingsDB()
{
    // The thread goes before the stores it uses.
    uninit();
}

void MasterSettingsDB::init()
{
    SettingsDB::init();
    currentStore.init();
    allowedStore.init();
}

VectorObject<std::string> MasterSettingsDB::_getEntities()
{
    return toVectorObject(currentStore.getEntities());
}

VectorObject<std::string> MasterSettingsDB::_getAttributes(std::string const& entity)
{
    return toVectorObject(currentStore.getAttributes(entity));
}

VectorObject<SerialObject*> MasterSettingsDB::_getAllowedValues(EntityAttributePair const& pair)
{
    return deserialize<VectorObject<SerialObject*>>(allowedStore.getValue(pair.getEntity(), pair.getAttribute()));
}

void MasterSettingsDB::_setAllowedValues(AllowedValues const& allowed)
{
    for (SerialObject const* value : allowed.getValueList())
        allowedStore.setValue(allowed.getEntity(), allowed.getAttribute(), value->serialize());
}

SerialObject* MasterSettingsDB::_getCurrentValue(EntityAttributePair const& pair)
{
    std::string text = allowedStore.getValue(pair.getEntity(), pair.getAttribute());
    SerialObject* object = createSerialObject(text);
    if (object)
        return object;
    VLOG(DebugLevelError, "createSerialObject failed %s\n", text.c_str());
    throwException(MODULE, __LINE__, "_getCurrentValue", ReturnGenericFailure);
}

VectorObject<ISettingsDB::AttributeValuePair> MasterSettingsDB::_getCurrentValues(std::string const& entity)
{
    EAVStore::AttributeValueList stored = currentStore.getAttributeValueList(entity);
    VectorObject<AttributeValuePair> result;
    result.reserve(stored.size());
    for (auto& [attribute, text] : stored) {
        std::unique_ptr<SerialObject> object(createSerialObject(text));
        if (!object) {
            VLOG(DebugLevelError, "createSerialObject failed\n");
            throwException(MODULE, __LINE__, "_getCurrentValues", ReturnGenericFailure);
        }
        result.emplace_back(std::move(attribute), std::move(object));
    }
    return result;
}

void MasterSettingsDB::_setCurrentValues(CurrentValues const& values)
{
    for (AttributeValuePair const& pair : values.getAttributeValuePairList())
        currentStore.setValue(values.getEntity(), pair.getAttribute(), pair.getValue().serialize());
}

void MasterSettingsDB::_reset()
{
    currentStore.reset();
}

} // namespace Velmora
