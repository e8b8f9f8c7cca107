#include "SettingsDB.h"

#include "frame/ListenerList.h"

#include <memory>

namespace Velmora {

static char const MODULE[] = "SettingsDB";

// ---- Commands --------------------------------------------------------------

SettingsDB::GetEntitiesCommand::GetEntitiesCommand(SettingsDB* settings) : ReturningCommand(settings) {}
void SettingsDB::GetEntitiesCommand::call() { setReturn(getSettingsDB()->_getEntities()); }

SettingsDB::GetAttributesCommand::GetAttributesCommand(SettingsDB* settings, std::string const& entity)
    : ReturningCommand(settings), entity(entity)
{
}
void SettingsDB::GetAttributesCommand::call() { setReturn(getSettingsDB()->_getAttributes(entity)); }

SettingsDB::GetAllowedValuesCommand::GetAllowedValuesCommand(SettingsDB* settings, EntityAttributePair const& pair)
    : ReturningCommand(settings), pair(pair)
{
}
void SettingsDB::GetAllowedValuesCommand::call() { setReturn(getSettingsDB()->_getAllowedValues(pair)); }

SettingsDB::SetAllowedValuesCommand::SetAllowedValuesCommand(SettingsDB* settings, AllowedValues const& allowed)
    : SettingsDBCommand(settings), allowed(allowed)
{
}
void SettingsDB::SetAllowedValuesCommand::call() { getSettingsDB()->_setAllowedValues(allowed); }

SettingsDB::GetCurrentValueCommand::GetCurrentValueCommand(SettingsDB* settings, EntityAttributePair const& pair)
    : SettingsDBCommand(settings), pair(pair)
{
}

SettingsDB::GetCurrentValueCommand::~GetCurrentValueCommand() { delete result; }

void SettingsDB::GetCurrentValueCommand::call()
{
    // The object read is only the source of the copy kept.
    std::unique_ptr<SerialObject> value(getSettingsDB()->_getCurrentValue(pair));
    if (value)
        setReturn(*value);
}

SerialObject* SettingsDB::GetCurrentValueCommand::getReturn() const { return result; }

void SettingsDB::GetCurrentValueCommand::setReturn(SerialObject const& value)
{
    delete result;
    result = value.clone();
}

SettingsDB::GetCurrentValuesCommand::GetCurrentValuesCommand(SettingsDB* settings, std::string const& entity)
    : ReturningCommand(settings), entity(entity)
{
}
void SettingsDB::GetCurrentValuesCommand::call() { setReturn(getSettingsDB()->_getCurrentValues(entity)); }

SettingsDB::SetCurrentValuesCommand::SetCurrentValuesCommand(SettingsDB* settings, CurrentValues const& values)
    : SettingsDBCommand(settings), values(values)
{
}
void SettingsDB::SetCurrentValuesCommand::call() { getSettingsDB()->_setCurrentValues(values); }

SettingsDB::ResetCommand::ResetCommand(SettingsDB* settings) : SettingsDBCommand(settings) {}
void SettingsDB::ResetCommand::call() { getSettingsDB()->_reset(); }

// ---- SettingsDB ------------------------------------------------------------

SettingsDB::SettingsDB() : CommandProcessor("SettingsDB") {}

SettingsDB::~SettingsDB() = default;

VectorObject<std::string> SettingsDB::getEntities()
{
    GetEntitiesCommand command(this);
    executeOrThrow(command, MODULE, __LINE__, "getEntities");
    return command.takeReturn();
}

VectorObject<std::string> SettingsDB::getAttributes(std::string const& entity)
{
    GetAttributesCommand command(this, entity);
    executeOrThrow(command, MODULE, __LINE__, "getAttributes");
    return command.takeReturn();
}

VectorObject<SerialObject*> SettingsDB::getAllowedValues(EntityAttributePair const& pair)
{
    GetAllowedValuesCommand command(this, pair);
    executeOrThrow(command, MODULE, __LINE__, "getAllowedValues");
    return command.takeReturn();
}

void SettingsDB::setAllowedValues(AllowedValues const& allowed)
{
    SetAllowedValuesCommand command(this, allowed);
    executeOrThrow(command, MODULE, __LINE__, "setAllowedValues");
}

SerialObject* SettingsDB::getCurrentValue(EntityAttributePair const& pair)
{
    GetCurrentValueCommand command(this, pair);
    executeOrThrow(command, MODULE, __LINE__, "getCurrentValue");
    return command.getReturn();
}

VectorObject<ISettingsDB::AttributeValuePair> SettingsDB::getCurrentValues(std::string const& entity)
{
    GetCurrentValuesCommand command(this, entity);
    executeOrThrow(command, MODULE, __LINE__, "getCurrentValues");
    return command.takeReturn();
}

void SettingsDB::setCurrentValues(CurrentValues const& values)
{
    SetCurrentValuesCommand command(this, values);
    executeOrThrow(command, MODULE, __LINE__, "setCurrentValues");
}

void SettingsDB::reset()
{
    ResetCommand command(this);
    executeOrThrow(command, MODULE, __LINE__, "reset");
}

template <class Notify>
int SettingsDB::notifyListeners(Notify&& notify)
{
    for (ISettingsDB::ISettingsDBListener* listener : listeners) {
        if (listener && notify(listener) != 0)
            return 1;
    }
    return 0;
}

int SettingsDB::onEntityListChange(VectorObject<std::string> const& list)
{
    return notifyListeners([&](ISettingsDB::ISettingsDBListener* listener) { return listener->onEntityListChange(list); });
}

int SettingsDB::onAttributeListChange(std::string const& entity, VectorObject<std::string> const& list)
{
    return notifyListeners(
        [&](ISettingsDB::ISettingsDBListener* listener) { return listener->onAttributeListChange(entity, list); });
}

int SettingsDB::onAllowedValuesChange(std::string const& entity, VectorObject<AttributeValuePair> const& pairs)
{
    return notifyListeners(
        [&](ISettingsDB::ISettingsDBListener* listener) { return listener->onAllowedValuesChange(entity, pairs); });
}

int SettingsDB::onCurrentValuesChange(std::string const& entity, VectorObject<AttributeValuePair> const& pairs)
{
    return notifyListeners(
        [&](ISettingsDB::ISettingsDBListener* listener) { return listener->onCurrentValuesChange(entity, pairs); });
}

bool SettingsDB::addListener(IListener* listener)
{
    return Velmora::addListener(listeners, listener);
}

bool SettingsDB::removeListener(IListener* listener)
{
    return Velmora::removeListener(listeners, listener);
}

} // namespace Velmora
