#include "store/EAVStoreProtected.h"

#include "store/EAVDatabase.h"
#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "frame/ListenerList.h"

namespace Velmora {

static char const MODULE[] = "EAVStore";

EAVStoreProtected::EAVStoreProtected(std::string const& name, std::string const& directory,
                                     std::string const& extension)
    : path(directory + "/" + name + extension)
{
}

EAVStoreProtected::~EAVStoreProtected() = default;

EAVDatabase& EAVStoreProtected::database(char const* operation) const
{
    if (!db)
        throwException(MODULE, __LINE__, operation, ReturnInvalidState);
    return *db;
}

EAVDatabase& EAVStoreProtected::readDatabase(char const* operation) const
{
    if (!reader)
        throwException(MODULE, __LINE__, operation, ReturnInvalidState);
    return *reader;
}

std::string EAVStoreProtected::getValue(std::string const& entity, std::string const& attribute) const
{
    Mutex::ScopedLock lock(&readMutex);
    return readDatabase("getValue").getValue(entity, attribute);
}

std::vector<std::string> EAVStoreProtected::getEntities() const
{
    Mutex::ScopedLock lock(&readMutex);
    return readDatabase("getEntities").getEntities();
}

std::vector<std::string> EAVStoreProtected::getAttributes(std::string const& entity) const
{
    Mutex::ScopedLock lock(&readMutex);
    return readDatabase("getAttributes").getAttributes(entity);
}

EAVStoreProtected::AttributeValueList EAVStoreProtected::getAttributeValueList(std::string const& entity) const
{
    Mutex::ScopedLock lock(&readMutex);
    return readDatabase("getAttributeValueList").getAttributeValueList(entity);
}

EAVStoreProtected::EntityAttributeValueList EAVStoreProtected::getEntityAttributeValueList() const
{
    Mutex::ScopedLock lock(&readMutex);
    return readDatabase("getEntityAttributeValueList").getEntityAttributeValueList();
}

bool EAVStoreProtected::addListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    bool added = Velmora::addListener(listeners, listener);
    listenersChanged = listenersChanged || added;
    return added;
}

bool EAVStoreProtected::removeListener(IListener* listener)
{
    Mutex::ScopedLock lock(&listenerMutex);
    bool removed = Velmora::removeListener(listeners, listener);
    listenersChanged = listenersChanged || removed;
    return removed;
}

std::string const& EAVStoreProtected::getPath() const
{
    return path;
}

void EAVStoreProtected::queueCommit(EntityAttributeValueList const& written)
{
    std::lock_guard lock(deliveryMutex);
    committed.push_back(written);
}

void EAVStoreProtected::deliverCommits()
{
    std::unique_lock lock(deliveryMutex);
    std::thread::id const self = std::this_thread::get_id();
    if (teller && *teller != self)
        return;
    // Ends this thread's turn however the loop is left; a nested call leaves
    // the turn to the call it runs in.
    struct Turn {
        std::unique_lock<std::mutex>& lock;
        std::optional<std::thread::id>& teller;
        bool const nested;
        ~Turn()
        {
            if (!lock.owns_lock())
                lock.lock();
            if (!nested)
                teller.reset();
        }
    } const turn{lock, teller, teller.has_value()};
    teller = self;
    while (!committed.empty()) {
        EntityAttributeValueList written = std::move(committed.front());
        committed.pop_front();
        lock.unlock();
        tell(written);
        lock.lock();
    }
}

void EAVStoreProtected::tell(EntityAttributeValueList const& written)
{
    // The commit stands whatever a listener does: its failures are only logged.
    fanOut(listenerMutex, listeners, listenersChanged, [&written](EAVStoreListener* listener) {
        for (auto const& triple : written)
            runLoggingExceptions(MODULE, __LINE__, "onEAVUpdate", [&] {
                listener->onEAVUpdate(triple.first, triple.second.first, triple.second.second);
            });
    });
    fanOut(listenerMutex, listeners, listenersChanged, [](EAVStoreListener* listener) {
        runLoggingExceptions(MODULE, __LINE__, "onEAVCommit", [listener] { listener->onEAVCommit(); });
    });
}

} // namespace Velmora
