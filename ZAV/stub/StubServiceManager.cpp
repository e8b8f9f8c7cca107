#include "StubServiceManager.h"

namespace Velmora {

StubServiceManager::StubServiceManager(ApplicationFactory* factory) : ServiceManager(factory, 0, nullptr) {}

StubServiceManager::~StubServiceManager() = default;

void StubServiceManager::init() { ApplicationManager::init(); }

Client::Type StubServiceManager::getClientType() { return Client::Stub; }

} // namespace Velmora
