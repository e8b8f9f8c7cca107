#include "rpc/RPCConnection.h"

#include "frame/CommandProcessor.h"
#include "frame/DebugPrint.h"
#include "serial/Deserializer.h"
#include "frame/Exception.h"

#include <chrono>
#include <cstdlib>

namespace Velmora {

static char const MODULE[] = "RPCConnection";

struct RPCConnection::PendingCall {
    std::condition_variable answered;
    bool done = false;
    bool lost = false; // the connection ended first
    Reply reply;
    Completion completion; // set for a call nobody waits for
};

namespace {

bool isValidId(Json::Value const& id) { return id.isString() || id.isIntegral() || id.isNull(); }

bool isValidParams(Json::Value const& message)
{
    return !message.isMember("params") || message["params"].isObject() || message["params"].isArray();
}

// The id as the answer carries it; integers, the usual ids, without the writer.
std::string idText(Json::Value const& id)
{
    switch (id.type()) {
    case Json::intValue:
        return std::to_string(id.asLargestInt());
    case Json::uintValue:
        return std::to_string(id.asLargestUInt());
    default:
        return IRPC::write(id);
    }
}

Json::Value const* memberOf(Json::Value const& object, std::string const& name)
{
    return object.isObject() ? object.find(name.data(), name.data() + name.size()) : nullptr;
}

// A reply text is an object with at least one member, which the id joins.
bool isReplyObject(std::string const& reply)
{
    auto const first = reply.find_first_not_of(" \t\r\n", 1);
    return !reply.empty() && reply.front() == '{' && first != std::string::npos && reply[first] == '"';
}

} // namespace

unsigned int RPCConnection::defaultTimeoutMs()
{
    char const* text = std::getenv("VELMORA_RPC_TIMEOUT_MS");
    if (!text || !*text)
        return 2000;
    char* end = nullptr;
    unsigned long const value = std::strtoul(text, &end, 10);
    return (*end == '\0' && value > 0 && value < 3600000) ? static_cast<unsigned int>(value) : 2000;
}

RPCConnection::RPCConnection(IHandler& handler) : handler(handler) {}

RPCConnection::~RPCConnection() = default;

bool RPCConnection::isOpen() const
{
    std::lock_guard lock(mutex);
    return open;
}

void RPCConnection::subscribe(std::vector<std::string> const& names)
{
    std::lock_guard lock(mutex);
    subscriptions.insert(names.begin(), names.end());
}

void RPCConnection::unsubscribe(std::vector<std::string> const& names)
{
    std::lock_guard lock(mutex);
    for (auto const& name : names)
        subscriptions.erase(name);
}

bool RPCConnection::isSubscribed(std::string const& name) const
{
    std::lock_guard lock(mutex);
    return subscriptions.count("*") != 0 || subscriptions.count(name) != 0;
}

std::string RPCConnection::getRegisteredUid() const
{
    std::lock_guard lock(mutex);
    return registeredUid;
}

void RPCConnection::setRegisteredUid(std::string const& uid)
{
    std::lock_guard lock(mutex);
    registeredUid = uid;
}

void RPCConnection::sendText(std::string text)
{
    if (isOpen())
        write(std::move(text));
}

void RPCConnection::notify(std::string const& method, Json::Value const& params)
{
    Json::Value message;
    message["jsonrpc"] = "2.0";
    message["method"] = method;
    if (!params.isNull())
        message["params"] = params;
    sendText(IRPC::write(message));
}

unsigned long long RPCConnection::send(std::string const& method, Json::Value params,
                                       std::shared_ptr<PendingCall> const& call)
{
    unsigned long long id = 0;
    {
        std::lock_guard lock(mutex);
        if (!open) {
            VLOG(DebugLevelError, "call(): %s on a closed connection\n", method.c_str());
            throwException(MODULE, __LINE__, "call", ReturnGenericFailure);
        }
        id = nextId++;
        pending[id] = call;
    }
    Json::Value message;
    message["jsonrpc"] = "2.0";
    message["id"] = Json::UInt64(id);
    message["method"] = method;
    if (!params.isNull())
        message["params"] = std::move(params);
    write(IRPC::write(message));
    return id;
}

void RPCConnection::callDetached(std::string const& method, Json::Value params, Completion answered)
{
    auto const call = std::make_shared<PendingCall>();
    call->completion = std::move(answered);
    send(method, std::move(params), call);
}

RPCConnection::Reply RPCConnection::call(std::string const& method, Json::Value const& params, unsigned int timeoutMs)
{
    auto const call = std::make_shared<PendingCall>();
    unsigned long long const id = send(method, params, call);

    std::unique_lock lock(mutex);
    bool const answered = call->answered.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return call->done; });
    pending.erase(id);
    if (!answered) {
        lock.unlock();
        VLOG(DebugLevelError, "call(): %s missed its deadline of %u ms\n", method.c_str(), timeoutMs);
        throwException(MODULE, __LINE__, "call", ReturnTimedOut);
    }
    if (call->lost) {
        lock.unlock();
        VLOG(DebugLevelError, "call(): %s: the peer went away\n", method.c_str());
        throwException(MODULE, __LINE__, "call", ReturnGenericFailure);
    }
    return call->reply;
}

Json::Value RPCConnection::callOrThrow(std::string const& method, Json::Value const& params)
{
    Reply reply = call(method, params);
    if (!reply.ok) {
        VLOG(DebugLevelError, "callOrThrow(): %s failed: %s\n", method.c_str(), reply.message.c_str());
        throwException(MODULE, __LINE__, "callOrThrow", ReturnGenericFailure);
    }
    return std::move(reply.result);
}

void RPCConnection::receive(std::string const& text)
{
    // Whatever a peer sends, reading goes on.
    try {
        dispatch(text);
    } catch (std::exception const& e) {
        VLOG(DebugLevelError, "receive(): message dropped: %s\n", e.what());
    } catch (...) {
        VLOG(DebugLevelError, "receive(): message dropped\n");
    }
}

void RPCConnection::dispatch(std::string const& text)
{
    if (!Deserializer::withinBounds(text))
        return sendError(Json::Value(), IRPC::INVALID_REQUEST, "Invalid Request");
    Json::Value message = IRPC::parse(text);
    if (message.isNull())
        return sendError(Json::Value(), IRPC::PARSE_ERROR, "Parse error");
    if (!message.isObject())
        return sendError(Json::Value(), IRPC::INVALID_REQUEST, "Invalid Request");
    Json::Value id = message.get("id", Json::Value());
    if (!isValidId(id))
        return sendError(Json::Value(), IRPC::INVALID_REQUEST, "Invalid Request");
    if (!message.isMember("method")) {
        if (message.isMember("result") || message.isMember("error"))
            return completeCall(message);
        return sendError(id, IRPC::INVALID_REQUEST, "Invalid Request");
    }
    if (!message["method"].isString() || !isValidParams(message))
        return sendError(id, IRPC::INVALID_REQUEST, "Invalid Request");
    std::string const method = message["method"].asString();
    Json::Value params;
    message.removeMember("params", &params);
    if (!message.isMember("id"))
        return handler.handleNotification(*this, method, params);
    std::string paramsText = params.isNull() ? std::string() : IRPC::sourceText(params, text);
    answerRequest(IRPC::RPCSynchronousMethodObject(method, std::move(params), std::move(paramsText)), std::move(id));
}

// A request answered on a processor's thread. Dropped unrun by a processor
// that has stopped, it answers with the status such a processor gives.
class RPCConnection::AnswerCommand : public CommandProcessor::Command {
public:
    AnswerCommand(CommandProcessor* processor, std::shared_ptr<RPCConnection> connection,
                  IRPC::RPCSynchronousMethodObject request, Json::Value id)
        : Command(processor), connection(std::move(connection)), request(std::move(request)), id(std::move(id))
    {
    }
    ~AnswerCommand() override
    {
        if (!answered)
            connection->sendReply(
                id, IRPC::RPCErrorObject(request.getMethod(), Exception(ReturnInvalidState).what()).serialize());
    }
    void call() override
    {
        answered = true;
        connection->answer(request, id);
    }

private:
    std::shared_ptr<RPCConnection> const connection;
    IRPC::RPCSynchronousMethodObject const request;
    Json::Value const id;
    bool answered = false;
};

void RPCConnection::answerRequest(IRPC::RPCSynchronousMethodObject request, Json::Value id)
{
    if (handler.neverBlocks(request.getMethod()))
        return answer(request, id);
    if (CommandProcessor* const processor = handler.answeringProcessor(request))
        return answerOn(*processor, std::move(request), std::move(id));
    runDetached([self = shared_from_this(), request = std::move(request), id = std::move(id)] {
        self->answer(request, id);
    });
}

void RPCConnection::answerOn(CommandProcessor& processor, IRPC::RPCSynchronousMethodObject request, Json::Value id)
{
    processor.queueCommand(new AnswerCommand(&processor, shared_from_this(), std::move(request), std::move(id)), true);
}

void RPCConnection::answer(IRPC::RPCSynchronousMethodObject const& request, Json::Value const& id)
{
    std::string reply;
    try {
        reply = handler.handleRequest(*this, request);
    } catch (Exception const& e) {
        reply = IRPC::RPCErrorObject(request.getMethod(), e.what()).serialize();
    } catch (std::exception const& e) {
        reply = IRPC::RPCErrorObject(request.getMethod(), e.what()).serialize();
    } catch (...) {
        reply = IRPC::RPCErrorObject(request.getMethod(), "unknown").serialize();
    }
    if (!isReplyObject(reply))
        reply = IRPC::RPCErrorObject(request.getMethod(), "unknown").serialize();
    sendReply(id, reply);
}

void RPCConnection::sendReply(Json::Value const& id, std::string const& reply)
{
    sendText("{\"id\":" + idText(id) + "," + reply.substr(1));
}

void RPCConnection::completeCall(Json::Value const& message)
{
    Json::Value const& id = message["id"];
    if (!id.isUInt64())
        return; // not an id this side gave out
    std::shared_ptr<PendingCall> call;
    {
        std::lock_guard lock(mutex);
        auto const found = pending.find(id.asUInt64());
        if (found == pending.end())
            return; // late answer to a call that already gave up
        // Out of the table at once: a close that follows before the caller
        // wakes must not turn this answer into a loss.
        call = found->second;
        pending.erase(found);
        Reply& reply = call->reply;
        if (message.isMember("error")) {
            Json::Value const& error = message["error"];
            Json::Value const* code = memberOf(error, "code");
            Json::Value const* text = memberOf(error, "message");
            reply.code = code && code->isInt() ? code->asInt() : int(IRPC::SERVER_ERROR);
            reply.message = text && text->isString() ? text->asString() : std::string();
        } else {
            reply.ok = true;
            reply.result = message["result"];
        }
        call->done = true;
    }
    // Outside the lock: the woken caller need not wait for it.
    if (call->completion)
        return call->completion(call->reply);
    call->answered.notify_one();
}

void RPCConnection::sendError(Json::Value const& id, int code, std::string const& text)
{
    VLOG(DebugLevelWarning, "receive(): rejected message: %s\n", text.c_str());
    Json::Value message;
    message["jsonrpc"] = "2.0";
    message["id"] = id;
    message["error"]["code"] = code;
    message["error"]["message"] = text;
    sendText(IRPC::write(message));
}

void RPCConnection::closeStopped()
{
    closeTransportStopped();
    closed();
}

bool RPCConnection::waitClosed(unsigned int timeoutMs)
{
    std::unique_lock lock(mutex);
    return closedCondition.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return !open; });
}

void RPCConnection::closed()
{
    std::vector<std::shared_ptr<PendingCall>> detached;
    {
        std::lock_guard lock(mutex);
        if (!open)
            return;
        open = false;
        closedCondition.notify_all();
        for (auto& [id, call] : pending) {
            call->lost = true;
            call->done = true;
            call->answered.notify_one();
            if (call->completion)
                detached.push_back(call);
        }
        std::erase_if(pending, [](auto const& entry) { return entry.second->completion != nullptr; });
    }
    for (auto const& call : detached) {
        call->reply.message = "the peer went away";
        call->completion(call->reply);
    }
    handler.handleClosed(*this);
}

} // namespace Velmora
