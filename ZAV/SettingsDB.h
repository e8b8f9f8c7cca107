// The command layer of the settings database: each public operation becomes a
// command run on the settings thread, where the `_` operation of the concrete
// class (MasterSettingsDB, StubSettingsDB) does the work.
//
// Threads: public operations may come from any thread and wait for the answer;
// `_` operations run on the settings thread, one at a time. A failure reaches
// the caller as Exception with the command's status. addListener,
// removeListener and the four notifications run on the caller's thread with no
// lock: the owner keeps them from racing with each other.
// Ownership: listener pointers are not owned.
#pragma once

#include "frame/CommandProcessor.h"
#include "interfaces/ISettingsDB.h"
#include "frame/ReturningCommand.h"

#include <string>
#include <vector>

namespace Velmora {

class SettingsDB : public CommandProcessor, public virtual ISettingsDB, public virtual ISettingsDB::ISettingsDBNotifier {
public:
    class SettingsDBCommand : public CommandProcessor::Command {
    public:
        explicit SettingsDBCommand(SettingsDB* settings) : Command(settings) {}
        SettingsDB* getSettingsDB() const { return static_cast<SettingsDB*>(processor); }
    };

    class GetEntitiesCommand : public ReturningCommand<SettingsDBCommand, VectorObject<std::string>> {
    public:
        explicit GetEntitiesCommand(SettingsDB* settings);
        void call() override;
    };

    class GetAttributesCommand : public ReturningCommand<SettingsDBCommand, VectorObject<std::string>> {
    public:
        GetAttributesCommand(SettingsDB* settings, std::string const& entity);
        void call() override;

    private:
        std::string entity;
    };

    class GetAllowedValuesCommand : public ReturningCommand<SettingsDBCommand, VectorObject<SerialObject*>> {
    public:
        GetAllowedValuesCommand(SettingsDB* settings, EntityAttributePair const& pair);
        void call() override;

    private:
        EntityAttributePair pair;
    };

    class SetAllowedValuesCommand : public SettingsDBCommand {
    public:
        SetAllowedValuesCommand(SettingsDB* settings, AllowedValues const& allowed);
        void call() override;

    private:
        AllowedValues allowed;
    };

    // Holds a copy of the value read, which dies with the command.
    class GetCurrentValueCommand : public SettingsDBCommand {
    public:
        GetCurrentValueCommand(SettingsDB* settings, EntityAttributePair const& pair);
        ~GetCurrentValueCommand() override;
        void call() override;
        // Null until call() found a value; owned by the command.
        virtual SerialObject* getReturn() const;
        // Keeps a clone of `value`.
        virtual void setReturn(SerialObject const& value);

    private:
        EntityAttributePair pair;
        SerialObject* result = nullptr;
    };

    class GetCurrentValuesCommand : public ReturningCommand<SettingsDBCommand, VectorObject<AttributeValuePair>> {
    public:
        GetCurrentValuesCommand(SettingsDB* settings, std::string const& entity);
        void call() override;

    private:
        std::string entity;
    };

    class SetCurrentValuesCommand : public SettingsDBCommand {
    public:
        SetCurrentValuesCommand(SettingsDB* settings, CurrentValues const& values);
        void call() override;

    private:
        CurrentValues values;
    };

    class ResetCommand : public SettingsDBCommand {
    public:
        explicit ResetCommand(SettingsDB* settings);
        void call() override;
    };

    using ISettingsDB::getAllowedValues;
    using ISettingsDB::getCurrentValue;
    using ISettingsDB::setAllowedValues;
    using ISettingsDB::setCurrentValues;

    VectorObject<std::string> getEntities() override;
    VectorObject<std::string> getAttributes(std::string const& entity) override;
    VectorObject<SerialObject*> getAllowedValues(EntityAttributePair const& pair) override;
    void setAllowedValues(AllowedValues const& allowed) override;
    // The object named by the answer belongs to the command and is gone when
    // the caller gets the pointer: only a null test is meaningful. Callers that
    // need the value use getCurrentValues.
    SerialObject* getCurrentValue(EntityAttributePair const& pair) override;
    VectorObject<AttributeValuePair> getCurrentValues(std::string const& entity) override;
    void setCurrentValues(CurrentValues const& values) override;
    void reset() override;

    // Each walks the listeners in order, skipping null entries; the first one to
    // answer non-zero ends the walk and the answer is 1, otherwise 0.
    int onEntityListChange(VectorObject<std::string> const& list) override;
    int onAttributeListChange(std::string const& entity, VectorObject<std::string> const& list) override;
    int onAllowedValuesChange(std::string const& entity, VectorObject<AttributeValuePair> const& pairs) override;
    int onCurrentValuesChange(std::string const& entity, VectorObject<AttributeValuePair> const& pairs) override;

    bool addListener(IListener* listener) override;
    bool removeListener(IListener* listener) override;

protected:
    SettingsDB();
    ~SettingsDB() override;

    virtual VectorObject<std::string> _getEntities() = 0;
    virtual VectorObject<std::string> _getAttributes(std::string const& entity) = 0;
    // The elements are new objects owned by the caller.
    virtual VectorObject<SerialObject*> _getAllowedValues(EntityAttributePair const& pair) = 0;
    virtual void _setAllowedValues(AllowedValues const& allowed) = 0;
    // A new object owned by the caller, or null.
    virtual SerialObject* _getCurrentValue(EntityAttributePair const& pair) = 0;
    virtual VectorObject<AttributeValuePair> _getCurrentValues(std::string const& entity) = 0;
    virtual void _setCurrentValues(CurrentValues const& values) = 0;
    virtual void _reset() = 0;

private:
    template <class Notify>
    int notifyListeners(Notify&& notify);

    std::vector<ISettingsDB::ISettingsDBListener*> listeners;
};

} // namespace Velmora
