// velmoractl: drives a running server from the shell. One subcommand per
// remote method (launch, windows, focus, state, terminate, params, services,
// packages, package, install, remove, notify), `call` for any method, `watch`
// to follow notifications, `journal` for the box's lifecycle history, and `key` to press a remote-control key through the
// input FIFO that the server reads. `velmoractl <subcommand> --help` tells each.
//
// Output is readable (strings bare, lists one item a line, null as "ok") or,
// with --json, the raw JSON: {"result":...} or {"error":{...}}.
// Exit status: 0 done, 1 the call failed, 2 bad usage or no server.
#include "KeyNames.h"
#include "LifecycleEntry.h"
#include "frame/DebugPrint.h"
#include "frame/Exception.h"
#include "interfaces/ILifecycleManagement.h"
#include "interfaces/IRPC.h"
#include "rpc/RPCClient.h"
#include "rpc/RuntimeDirectory.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <deque>
#include <functional>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

using namespace Velmora;

namespace {

int const CALL_FAILED = 1;
int const BAD_USAGE = 2;
// The kinds of the journal's entries: a misspelt one would match nothing, silently.
std::vector<std::string> const JOURNAL_KINDS(LifecycleEntry::KINDS.begin(), LifecycleEntry::KINDS.end());

struct Options {
    std::string endpoint = "ZAV";
    bool json = false;
};

// Thrown for bad usage that only shows once the arguments are read.
struct UsageError {
    std::string text;
};

std::string styled(Json::Value const& value)
{
    std::string text = value.toStyledString();
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

// Strings bare, null as "ok", lists of strings one a line, package records as
// "name version-release" (the repository's, which carry no version, as "name"),
// anything else as indented JSON.
std::string readable(Json::Value const& value)
{
    if (value.isString())
        return value.asString();
    if (value.isNull())
        return "ok";
    if (!value.isArray())
        return styled(value);
    std::string text;
    for (Json::Value const& item : value) {
        if (item.isString())
            text += item.asString();
        else if (item.isObject() && item["name"].isString())
            text += item["name"].asString() +
                    (item["version"].asString().empty()
                         ? ""
                         : " " + item["version"].asString() + "-" + item["release"].asString());
        else
            text += IRPC::write(item);
        text += "\n";
    }
    if (!text.empty())
        text.pop_back();
    return text;
}

Json::Value parseJson(std::string const& text, char const* what)
{
    Json::Value value = IRPC::parse(text);
    if (!value.isObject())
        throw UsageError{std::string(what) + " must be a JSON object"};
    return value;
}

// Whether the list that `method` answers (without parameters) holds `uid`.
bool listHolds(RPCClient& client, char const* method, std::string const& uid)
{
    RPCConnection::Reply const reply = client.call(method, Json::Value(Json::objectValue));
    if (!reply.ok || !reply.result.isArray())
        return false;
    return std::find(reply.result.begin(), reply.result.end(), Json::Value(uid)) != reply.result.end();
}

// The display sessions are numbered from 0: the first one whose window list
// fails is their number (`session`, which failed, bounds the probe).
std::string sessionHint(RPCClient& client, unsigned int session)
{
    unsigned int count = 0;
    for (Json::Value probe; count < session; ++count) {
        probe["proxy"] = count;
        if (!client.call("IWindowManager.getWindowList", probe).ok)
            break;
    }
    std::string const has = count == 0   ? "no display session"
                            : count == 1 ? "1 display session (--session 0)"
                                         : std::to_string(count) + " display sessions (--session 0 to " +
                                               std::to_string(count - 1) + ")";
    return "no display session " + std::to_string(session) + " on this server, which has " + has;
}

// What a failure for a uid or session that names nothing, or of an Android
// launch, means to the person who typed it; "" when the failure is another one.
std::string hintFor(RPCClient& client, std::string const& method, Json::Value const& params, std::string const& message)
{
    if (message == "invalid proxy" && params["proxy"].isUInt())
        return sessionHint(client, params["proxy"].asUInt());
    if (method == "IWindowManager.launch" && params["applicationType"] == "ANDROID")
        return "Android applications run on the box's Android slave server, which did not take the launch: is it up?";
    if (!params["uid"].isString() || (message != "invalid interface" && message != "invalid uid"))
        return std::string();
    std::string const uid = params["uid"].asString();
    std::string const ended = "; velmoractl journal --uid " + uid + " tells how one ended)";
    if (!method.starts_with("IWindowManager."))
        return "no window or service has the uid " + uid +
               " (velmoractl windows and velmoractl services list them, a window once its program has reported" + ended;
    if (listHolds(client, "IServiceManager.getServiceList", uid))
        return uid + " is a service, and this command is for windows only (velmoractl windows lists them)";
    return "no window has the uid " + uid + " (velmoractl windows lists them, once their program has reported" + ended;
}

int report(Options const& options, std::string const& method, RPCConnection::Reply const& reply,
           std::string const& hint = std::string())
{
    if (options.json) {
        Json::Value message;
        if (reply.ok) {
            message["result"] = reply.result;
        } else {
            message["error"]["code"] = reply.code;
            message["error"]["message"] = reply.message;
        }
        std::printf("%s\n", IRPC::write(message).c_str());
    } else if (reply.ok && reply.result.isArray() && reply.result.empty()) {
        // An empty list prints no line, as grep prints none for no match.
    } else if (reply.ok) {
        std::printf("%s\n", readable(reply.result).c_str());
    } else {
        std::fprintf(stderr, "velmoractl: %s failed: %s (%d)%s%s\n", method.c_str(), reply.message.c_str(), reply.code,
                     hint.empty() ? "" : ": ", hint.c_str());
    }
    return reply.ok ? 0 : CALL_FAILED;
}

// report, with the hint for a failure that a person can mend (not with --json,
// whose output is the raw reply).
int reportCall(RPCClient& client, Options const& options, std::string const& method, Json::Value const& params,
               RPCConnection::Reply const& reply)
{
    bool const hinted = !reply.ok && !options.json;
    return report(options, method, reply, hinted ? hintFor(client, method, params, reply.message) : std::string());
}

// The end of `watch` or `journal --follow` when the server closed the connection.
int serverWentAway()
{
    std::fprintf(stderr, "velmoractl: the server went away (its connection closed)\n");
    return CALL_FAILED;
}

// Notifications, the end of the connection and stop signals, for the
// commands that wait for them.
class Events {
public:
    void add(std::string const& name, Json::Value const& params)
    {
        std::lock_guard lock(mutex);
        received.push_back({name, params});
        changed.notify_all();
    }
    void close()
    {
        std::lock_guard lock(mutex);
        closed = true;
        changed.notify_all();
    }
    // The first notification that `match` accepts, or nothing when the
    // connection ends or `timeout` passes first. `match` sees each
    // notification once, in the order received, so it may keep state.
    std::optional<Json::Value> await(std::function<bool(std::string const&, Json::Value const&)> const& match,
                                     std::chrono::seconds timeout)
    {
        std::unique_lock lock(mutex);
        std::optional<Json::Value> found;
        std::size_t seen = 0;
        changed.wait_for(lock, timeout, [&] {
            for (; !found && seen < received.size(); ++seen)
                if (match(received[seen].first, received[seen].second))
                    found = received[seen].second;
            return found || closed;
        });
        return found;
    }

    // The next notification not yet taken, in the order received; nothing
    // once the connection has ended and every one was taken.
    std::optional<std::pair<std::string, Json::Value>> next()
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return taken < received.size() || closed; });
        if (taken == received.size())
            return std::nullopt;
        return received[taken++];
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::pair<std::string, Json::Value>> received;
    std::size_t taken = 0;
    bool closed = false;
};

// Prints each notification as it comes: "<name> <params>", or with --json
// {"event":...,"params":...}.
void printNotification(Options const& options, std::string const& name, Json::Value const& params)
{
    if (options.json) {
        Json::Value message;
        message["event"] = name;
        message["params"] = params;
        std::printf("%s\n", IRPC::write(message).c_str());
    } else {
        std::printf("%s %s\n", name.c_str(), IRPC::write(params).c_str());
    }
    std::fflush(stdout);
}

// Subscribes to `events` and prints what comes until SIGINT or SIGTERM (0) or
// the end of the connection (1). The signals were blocked before any thread
// started; the end of the connection raises SIGUSR1 for the same wait.
int watch(RPCClient& client, std::vector<std::string> const& names)
{
    Json::Value params;
    params["events"] = Json::Value(Json::arrayValue);
    for (std::string const& name : names)
        params["events"].append(name);
    if (names.empty())
        params["events"].append("*");
    client.callOrThrow("RPC.subscribe", params);
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGUSR1);
    int signal = 0;
    sigwait(&stops, &signal);
    return signal == SIGUSR1 ? serverWentAway() : 0;
}

char const* const MANIFEST_RECORD = "IPackageManager.getManifestPackageInfo";
char const* const NOT_OFFERED = " is not in the box's repository (velmoractl packages --manifest)";

// Whether a package record names a package: the server answers an empty record
// (an empty name, or for the repository's record an empty path) for one it
// does not know.
bool knownPackage(std::string const& method, Json::Value const& record)
{
    return !record[method == MANIFEST_RECORD ? "path" : "name"].asString().empty();
}

bool knownPackage(RPCClient& client, std::string const& method, std::string const& name)
{
    Json::Value params;
    params["package"] = name;
    RPCConnection::Reply const reply = client.call(method, params);
    return reply.ok && knownPackage(method, reply.result);
}

// The installed packages' records, with their dependencies; none when the call fails.
Json::Value installedRecords(RPCClient& client)
{
    Json::Value params;
    params["listRequest"]["groups"] = Json::Value(Json::arrayValue);
    RPCConnection::Reply const reply = client.call("IPackageManager.getExtendedPackageInfoList", params);
    return reply.ok && reply.result.isArray() ? reply.result : Json::Value(Json::arrayValue);
}

// The packages of `installed`, other than `removed`, that require `name`, separated by blanks.
std::string requirersOf(Json::Value const& installed, std::string const& name, std::vector<std::string> const& removed)
{
    std::string requirers;
    for (Json::Value const& record : installed) {
        std::string const requirer = record["name"].asString();
        if (std::find(removed.begin(), removed.end(), requirer) != removed.end())
            continue;
        for (Json::Value const& dependency : record["dependencies"])
            if (dependency["name"] == name) {
                requirers += (requirers.empty() ? "" : " ") + requirer;
                break;
            }
    }
    return requirers;
}

// What makes an install or remove of `packages` fail that the server knows:
// a package already installed or not offered, one not installed, or one that
// an installed package requires; "" when none of these stands out.
std::string likelyCause(RPCClient& client, std::string const& action, std::vector<std::string> const& packages)
{
    Json::Value const installed = action == "remove" ? installedRecords(client) : Json::Value(Json::arrayValue);
    for (std::string const& name : packages) {
        bool const isInstalled = knownPackage(client, "IPackageManager.getPackageInfo", name);
        if (action == "remove" && !isInstalled)
            return name + " is not installed";
        std::string const requirers = requirersOf(installed, name, packages);
        if (!requirers.empty())
            return name + " is required by " + requirers + " (remove them with it, or use --force)";
        if (action == "install" && isInstalled)
            return name + " is installed already";
        if (action == "install" && !knownPackage(client, MANIFEST_RECORD, name))
            return name + NOT_OFFERED;
    }
    return "";
}

// package: the record; an unknown package, whose record is empty, fails
// (with --json the raw record comes as it is).
int packageRecord(RPCClient& client, Options const& options, std::string const& method, Json::Value const& params)
{
    RPCConnection::Reply const reply = client.call(method, params);
    if (!reply.ok || options.json || knownPackage(method, reply.result))
        return report(options, method, reply);
    std::fprintf(stderr, "velmoractl: %s%s\n", params["package"].asCString(),
                 method == MANIFEST_RECORD ? NOT_OFFERED : " is not installed");
    return CALL_FAILED;
}

// packageInstall or packageRemove, then the wait for its onRequestEnd; fails
// with the request's result, and names a likely cause on stderr (also with
// --json, whose stdout is the onRequestEnd record).
int packageRequest(RPCClient& client, Events& events, Options const& options, std::string const& method,
                   std::string const& action, std::vector<std::string> const& packages, bool force,
                   unsigned int timeoutSeconds)
{
    Json::Value subscription;
    subscription["events"].append("IPackageInstaller::onRequestEnd");
    client.callOrThrow("RPC.subscribe", subscription);
    Json::Value params;
    params["packages"] = Json::Value(Json::arrayValue);
    for (std::string const& package : packages)
        params["packages"].append(package);
    params["force"] = force;
    RPCConnection::Reply const reply = client.call(method, params);
    if (!reply.ok)
        return report(options, method, reply);
    auto const end = events.await(
        [&](std::string const&, Json::Value const& end) {
            return end["action"] == action && end["packages"] == params["packages"];
        },
        std::chrono::seconds(timeoutSeconds));
    if (!end) {
        std::fprintf(stderr, "velmoractl: the %s request did not end (connection closed or %u s passed)\n",
                     action.c_str(), timeoutSeconds);
        return CALL_FAILED;
    }
    int const result = (*end)["result"].asInt();
    if (options.json)
        std::printf("%s\n", IRPC::write(*end).c_str());
    else if (result == 0)
        std::printf("ok\n");
    if (result == 0)
        return 0;
    std::string const cause = likelyCause(client, action, packages);
    std::fprintf(stderr, "velmoractl: %s failed: %s (%d)%s%s\n", action.c_str(),
                 Exception(static_cast<ReturnCode>(result)).what(), result, cause.empty() ? "" : ": ", cause.c_str());
    return CALL_FAILED;
}

// Launches and prints the new window's uid. A launch put off until the oldest
// window has ended answers "" at once: its uid comes later, with the journal's
// "started" entry of the put-off launch, and its failure with "launch-failed"
// (which an immediate failure also writes). Only the latest put-off launch
// waits: a later one put off in the same session drops this one.
int launchWindow(RPCClient& client, Events& events, Options const& options, Json::Value const& params)
{
    Json::Value subscription;
    subscription["events"].append("ILifecycleJournal::onEntry");
    client.callOrThrow("RPC.subscribe", subscription);
    RPCConnection::Reply const reply = client.call("IWindowManager.launch", params);
    if (!reply.ok || !reply.result.isString() || !reply.result.asString().empty())
        return reportCall(client, options, "IWindowManager.launch", params, reply);
    unsigned int const waitSeconds = 60;
    bool putOff = false;
    auto const outcome = events.await(
        [&](std::string const& name, Json::Value const& entry) {
            if (name != "ILifecycleJournal::onEntry" || entry["session"].asInt() != params["proxy"].asInt())
                return false;
            std::string const kind = entry["kind"].asString();
            bool const ofThisType = entry["applicationType"] == params["applicationType"];
            if (kind == "put-off" && !putOff)
                putOff = ofThisType && entry["name"] == params["applicationURL"];
            else if (kind == "put-off")
                return true;
            bool const startedPutOff =
                kind == "started" && entry["reason"].asString().starts_with("requested by the put-off launch");
            return ofThisType && (kind == "launch-failed" || startedPutOff);
        },
        std::chrono::seconds(waitSeconds));
    if (!outcome) {
        std::fprintf(stderr, "velmoractl: the launch was put off until the oldest window ends, and none started "
                             "within %u s (velmoractl journal tells why)\n", waitSeconds);
        return CALL_FAILED;
    }
    if ((*outcome)["kind"] == "put-off") {
        std::fprintf(stderr, "velmoractl: the launch was put off until the oldest window ends, then dropped: only the "
                             "latest launch put off waits, and %s came later\n", (*outcome)["name"].asCString());
        return CALL_FAILED;
    }
    if ((*outcome)["kind"] == "launch-failed") {
        std::fprintf(stderr, "velmoractl: the launch failed: %s\n", (*outcome)["cause"].asCString());
        return CALL_FAILED;
    }
    RPCConnection::Reply started = reply;
    started.result = (*outcome)["uid"];
    return report(options, "IWindowManager.launch", started);
}

// What `journal` asks for: the query's filters and whether to follow new entries.
struct JournalRequest {
    Json::Value query{Json::objectValue};
    bool follow = false;
    // False for --limit 0: the query then only tells where --follow starts.
    bool printKept = true;
};

// Milliseconds since the epoch for TIME: "30s", "15m", "2h", "1d" ago, seconds
// since the epoch, or a local "YYYY-MM-DD HH:MM[:SS]" (a "T" may replace the blank).
std::int64_t journalTime(std::string const& text)
{
    char* end = nullptr;
    long long const number = std::strtoll(text.c_str(), &end, 10);
    std::int64_t const nowMs = static_cast<std::int64_t>(std::time(nullptr)) * 1000;
    if (end != text.c_str() && *end == '\0')
        return number * 1000;
    if (end != text.c_str() && end[1] == '\0') {
        for (auto [unit, ms] : {std::pair{'s', 1000LL}, {'m', 60000LL}, {'h', 3600000LL}, {'d', 86400000LL}})
            if (*end == unit)
                return nowMs - number * ms;
    }
    std::string normal = text;
    std::replace(normal.begin(), normal.end(), 'T', ' ');
    std::tm local{};
    local.tm_isdst = -1;
    for (char const* format : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%d %H:%M"}) {
        char const* rest = ::strptime(normal.c_str(), format, &local);
        if (rest && *rest == '\0')
            return static_cast<std::int64_t>(std::mktime(&local)) * 1000;
    }
    throw UsageError{"--since: \"" + text + "\" is neither 30s/15m/2h/1d, seconds since the epoch, nor YYYY-MM-DD HH:MM[:SS]"};
}

// One entry a line: local time, session, kind, uid and name, then why.
std::string journalLine(Json::Value const& entry)
{
    std::time_t const seconds = static_cast<std::time_t>(entry["wallClockMs"].asInt64() / 1000);
    std::tm local{};
    ::localtime_r(&seconds, &local);
    char when[32];
    std::strftime(when, sizeof when, "%Y-%m-%d %H:%M:%S", &local);
    std::string text = std::string(when) + "." + std::to_string(1000 + entry["wallClockMs"].asInt64() % 1000).substr(1);
    int const session = entry["session"].asInt();
    text += session < 0 ? "  box " : "  s" + std::to_string(session) + "  ";
    text += entry["kind"].asString();
    for (char const* key : {"uid", "applicationType", "name"})
        if (!entry[key].asString().empty())
            text += " " + entry[key].asString();
    text += ": " + entry["reason"].asString();
    if (!entry["cause"].asString().empty())
        text += " (" + entry["cause"].asString() + ")";
    return text;
}

void printJournalEntry(Options const& options, Json::Value const& entry)
{
    std::printf("%s\n", options.json ? IRPC::write(entry).c_str() : journalLine(entry).c_str());
    std::fflush(stdout);
}

// The entries that match, oldest first, asked for a page at a time from the
// newest back: a full ring in one reply would pass the bus's message size.
RPCConnection::Reply queryJournal(RPCClient& client, Json::Value query)
{
    constexpr unsigned int PAGE = 500;
    unsigned int const wanted = query.get("limit", 0).asUInt(); // 0: all
    std::deque<Json::Value> found;
    for (;;) {
        unsigned int const page = wanted == 0 ? PAGE : std::min<unsigned int>(PAGE, wanted - found.size());
        query["limit"] = page;
        RPCConnection::Reply reply = client.call("ILifecycleJournal.query", query);
        if (!reply.ok)
            return reply;
        for (Json::ArrayIndex i = reply.result.size(); i > 0; --i)
            found.push_front(reply.result[i - 1]);
        if (reply.result.size() < page || found.size() == wanted) {
            reply.result = Json::Value(Json::arrayValue);
            for (Json::Value& entry : found)
                reply.result.append(std::move(entry));
            return reply;
        }
        query["before"] = Json::UInt64(found.front()["sequence"].asUInt64());
    }
}

// Prints the entries that match; with `follow`, then every new matching one
// until the server goes (1) or the tool is interrupted.
int journal(RPCClient& client, Events& events, Options const& options, JournalRequest const& request)
{
    if (request.follow) {
        Json::Value subscription;
        subscription["events"].append("ILifecycleJournal::onEntry");
        client.callOrThrow("RPC.subscribe", subscription);
    }
    RPCConnection::Reply const reply = queryJournal(client, request.query);
    if (!reply.ok)
        return report(options, "ILifecycleJournal.query", reply);
    std::uint64_t last = 0;
    for (Json::Value const& entry : reply.result) {
        if (request.printKept)
            printJournalEntry(options, entry);
        last = entry["sequence"].asUInt64();
    }
    if (!request.follow)
        return 0;
    Json::Value const& query = request.query;
    auto const matches = [&](Json::Value const& entry) {
        for (char const* key : {"uid", "kind", "session"})
            if (query.isMember(key) && entry[key] != query[key])
                return false;
        return entry["sequence"].asUInt64() > last;
    };
    while (auto const notification = events.next()) {
        if (notification->first != "ILifecycleJournal::onEntry" || !matches(notification->second))
            continue;
        printJournalEntry(options, notification->second);
        last = notification->second["sequence"].asUInt64();
    }
    return serverWentAway();
}

// The input FIFO of `session`: the first entry of VELMORA_INPUT_DEVICES
// ("path" or "path@session") for that session.
std::string inputDevice(unsigned int session)
{
    char const* list = std::getenv("VELMORA_INPUT_DEVICES");
    std::string entries = list ? list : "";
    for (std::size_t start = 0; start < entries.size();) {
        std::size_t const end = std::min(entries.find(':', start), entries.size());
        std::string entry = entries.substr(start, end - start);
        start = end + 1;
        unsigned int entrySession = 0;
        if (auto const at = entry.rfind('@'); at != std::string::npos) {
            entrySession = static_cast<unsigned int>(std::strtoul(entry.c_str() + at + 1, nullptr, 10));
            entry.resize(at);
        }
        if (!entry.empty() && entrySession == session)
            return entry;
    }
    throw UsageError{"no input device for session " + std::to_string(session) +
                     ": give --device or set VELMORA_INPUT_DEVICES"};
}

int pressKeys(std::vector<std::string> const& names, std::string device, unsigned int session)
{
    std::vector<unsigned short> codes;
    for (std::string const& name : names) {
        auto const code = KeyNames::linuxCode(name);
        if (!code)
            throw UsageError{"unknown key " + name};
        codes.push_back(*code);
    }
    if (device.empty())
        device = inputDevice(session);
    // Non-blocking: a FIFO that nobody reads fails at once instead of waiting.
    int const fd = ::open(device.c_str(), O_WRONLY | O_NONBLOCK | O_APPEND | O_CLOEXEC);
    if (fd < 0) {
        std::fprintf(stderr, "velmoractl: cannot open %s: %s\n", device.c_str(), KeyNames::whyNotOpen(errno).c_str());
        return BAD_USAGE;
    }
    int status = 0;
    for (unsigned short code : codes) {
        if (!KeyNames::writePress(fd, code)) {
            std::fprintf(stderr, "velmoractl: writing to %s failed: %s\n", device.c_str(), std::strerror(errno));
            status = CALL_FAILED;
            break;
        }
    }
    ::close(fd);
    return status;
}

std::string keyList()
{
    std::string text;
    for (KeyNames::Key const& key : KeyNames::all())
        text += (text.empty() ? "" : " ") + std::string(key.name);
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("Drives a running velmora-server: calls its remote methods and follows its notifications.\n"
                 "Exit status: 0 done, 1 the call failed, 2 bad usage or no server.",
                 "velmoractl");
    app.add_option("--endpoint", options.endpoint, "Server endpoint name")->capture_default_str();
    app.add_flag("--json", options.json, "Print raw JSON replies and notifications");
    app.require_subcommand(1);
    // A word that is no subcommand is named as unexpected, instead of "A subcommand is required".
    app.positionals_at_end();
    // --json and --endpoint may come after the subcommand too.
    app.fallthrough();

    // What the chosen subcommand asks: a method and its parameters, or an action of its own.
    std::string method;
    Json::Value params(Json::objectValue);
    std::function<int(RPCClient&, Events&)> action;
    auto simple = [&](char const* name, char const* help, char const* remote) {
        CLI::App* command = app.add_subcommand(name, help);
        // Before the subcommand's own final callback, which may pick a twin method.
        command->parse_complete_callback([&method, remote] { method = remote; });
        return command;
    };

    unsigned int session = 0;
    std::string type, url, launchParameters, uid, state, package, event, eventParams, device;
    std::vector<std::string> names;
    bool release = false, extended = false, manifest = false, force = false;
    unsigned int timeout = 600;

    CLI::App* launch = simple("launch", "Launch an application; prints its uid", "IWindowManager.launch");
    launch->add_option("type", type, "Application type: WEBAPP, WEBPAGE, WEBBROWSER, WEBGLAPP, AIR, AIRGL, OTHER, WFDPLAYER, ANDROID")->required();
    launch->add_option("url", url, "Application URL")->required();
    launch->add_option("--parameters", launchParameters, "Application parameters text");
    launch->add_option("--session", session, "Display session")->capture_default_str();
    launch->final_callback([&] {
        params["proxy"] = session;
        params["applicationType"] = type;
        params["applicationURL"] = url;
        params["applicationParameters"] = launchParameters;
        action = [&](RPCClient& client, Events& events) { return launchWindow(client, events, options, params); };
    });

    CLI::App* windows = simple("windows", "List the uids of a session's windows", "IWindowManager.getWindowList");
    windows->add_option("--session", session, "Display session")->capture_default_str();
    windows->final_callback([&] { params["proxy"] = session; });

    CLI::App* focus = simple("focus", "Report a window's focus (the box ignores it: focus follows launches, Home, window ends)",
                                     "IWindowManager.handleFocus");
    focus->add_option("uid", uid, "Window uid")->required();
    focus->add_flag("--release", release, "Report the focus lost instead");
    focus->final_callback([&] {
        params["uid"] = uid;
        params["obtained"] = !release;
    });

    CLI::App* stateCommand = simple("state", "Print an application's state, or request a new one",
                                    "IApplicationManager.getState");
    stateCommand->add_option("uid", uid, "Application or service uid")->required();
    stateCommand->add_option("state", state, "Requested state")
        ->check(CLI::IsMember(std::vector<std::string>{
            ILifecycleManagement::STATE_RUNNING, ILifecycleManagement::STATE_SUSPENDED,
            ILifecycleManagement::STATE_TERMINATING, ILifecycleManagement::STATE_TERMINATED,
            ILifecycleManagement::STATE_INITIALIZING, ILifecycleManagement::STATE_UNINITIALIZED,
            ILifecycleManagement::STATE_CRASHED, ILifecycleManagement::STATE_RUNAWAY}));
    stateCommand->final_callback([&] {
        params["uid"] = uid;
        if (!state.empty()) {
            method = "IApplicationManager.setState";
            params["requestedState"] = state;
        }
    });

    CLI::App* terminate = simple("terminate", "Ask an application to end", "IApplicationManager.terminate");
    terminate->add_option("uid", uid, "Application or service uid")->required();
    terminate->final_callback([&] { params["uid"] = uid; });

    CLI::App* launchParams = simple("params", "Print a window's launch parameters", "IWindowManager.getLaunchParameters");
    launchParams->add_option("uid", uid, "Window uid")->required();
    launchParams->final_callback([&] { params["uid"] = uid; });

    simple("services", "List the uids of the running services", "IServiceManager.getServiceList");

    CLI::App* packages = simple("packages", "List the installed packages", "IPackageManager.getPackageInfoList");
    packages->add_option("--group", names, "Only packages of this group (repeatable)");
    CLI::Option* packagesExtended = packages->add_flag("--extended", extended, "Records with dependencies and groups");
    packages->add_flag("--manifest", manifest, "The repository's packages instead")->excludes(packagesExtended);
    packages->final_callback([&] {
        method = extended ? "IPackageManager.getExtendedPackageInfoList"
                 : manifest ? "IPackageManager.getManifestPackageInfoList"
                            : "IPackageManager.getPackageInfoList";
        params["listRequest"]["groups"] = Json::Value(Json::arrayValue);
        for (std::string const& group : names)
            params["listRequest"]["groups"].append(group);
    });

    CLI::App* packageCommand = simple("package", "Print one package's record", "IPackageManager.getPackageInfo");
    packageCommand->add_option("name", package, "Package name")->required();
    CLI::Option* packageExtended = packageCommand->add_flag("--extended", extended, "The extended record");
    packageCommand->add_flag("--manifest", manifest, "The repository's record")->excludes(packageExtended);
    packageCommand->final_callback([&] {
        method = extended ? "IPackageManager.getExtendedPackageInfo"
                 : manifest ? MANIFEST_RECORD
                            : "IPackageManager.getPackageInfo";
        params["package"] = package;
        action = [&](RPCClient& client, Events&) { return packageRecord(client, options, method, params); };
    });

    for (auto [name, help, remote, verb, packagesHelp] :
         {std::tuple{"install", "Install packages and wait for the end of the request", "IPackageInstaller.packageInstall",
                     "install", "Names of packages that the repository offers (velmoractl packages --manifest)"},
          std::tuple{"remove", "Remove packages and wait for the end of the request", "IPackageInstaller.packageRemove",
                     "remove", "Names of installed packages"}}) {
        CLI::App* command = app.add_subcommand(name, help);
        command->add_option("packages", names, packagesHelp)->required();
        command->add_flag("--force", force, "Ignore dependencies");
        command->add_option("--timeout", timeout, "Seconds to wait for the end of the request")->capture_default_str();
        command->callback([&, remote = std::string(remote), verb = std::string(verb)] {
            action = [&, remote, verb](RPCClient& client, Events& events) {
                return packageRequest(client, events, options, remote, verb, names, force, timeout);
            };
        });
    }

    CLI::App* notify = simple("notify", "Send a notification to every subscriber", "IWindowManager.notify");
    notify->add_option("event", event, "Notification name")->required();
    notify->add_option("params", eventParams, "Further members, as a JSON object");
    notify->final_callback([&] {
        if (!eventParams.empty())
            params = parseJson(eventParams, "the notification's members");
        params["event"] = event;
        // The server answers true, always: printed "ok" as the other calls that only act.
        action = [&](RPCClient& client, Events&) {
            RPCConnection::Reply reply = client.call(method, params);
            if (reply.ok && !options.json)
                reply.result = Json::Value();
            return report(options, method, reply);
        };
    });

    CLI::App* watchCommand = app.add_subcommand("watch", "Print notifications as they come, until interrupted");
    watchCommand->add_option("events", names, "Notification names (all when none)");
    watchCommand->callback([&] { action = [&](RPCClient& client, Events&) { return watch(client, names); }; });

    CLI::App* call = app.add_subcommand("call", "Call any method: <Interface.method> [params-json]");
    call->add_option("method", method, "Method, as Interface.method")->required();
    call->add_option("params", eventParams, "Parameters, as a JSON object");
    call->final_callback([&] {
        if (!eventParams.empty())
            params = parseJson(eventParams, "the parameters");
    });

    JournalRequest journalRequest;
    std::string since, kind;
    int journalSession = -1;
    unsigned int limit = 0;
    CLI::App* journalCommand = app.add_subcommand(
        "journal", "Print the lifecycle journal, one entry a line, oldest first: why each application started and "
                   "went away (every entry the server keeps, unless the options narrow it)");
    journalCommand->add_flag("--follow,-f", journalRequest.follow, "Then print new entries as they come");
    journalCommand->add_option("--uid", uid, "Only this application's or service's entries");
    journalCommand->add_option("--since", since, "Only entries since TIME: 30s, 15m, 2h, 1d ago, epoch seconds or "
                                                 "YYYY-MM-DD HH:MM[:SS]");
    journalCommand->add_option("--kind", kind, "Only entries of this kind")->check(CLI::IsMember(JOURNAL_KINDS));
    journalCommand->add_option("--session", journalSession,
                               "Only this display session's entries; -1: the services' and the box's own")
        ->check(CLI::Range(-1, std::numeric_limits<int>::max()));
    journalCommand->add_option("--limit", limit, "Only the newest N entries; 0: none, so that --follow prints only "
                                                 "new ones");
    journalCommand->callback([&] {
        Json::Value& query = journalRequest.query;
        if (!uid.empty())
            query["uid"] = uid;
        if (!kind.empty())
            query["kind"] = kind;
        if (journalCommand->count("--session"))
            query["session"] = journalSession;
        if (!since.empty())
            query["since"] = Json::Int64(journalTime(since));
        // The server reads a limit of 0 as none: --limit 0 asks for the newest entry and prints none.
        if (journalCommand->count("--limit"))
            query["limit"] = std::max(limit, 1U);
        journalRequest.printKept = limit != 0 || !journalCommand->count("--limit");
        action = [&](RPCClient& client, Events& events) { return journal(client, events, options, journalRequest); };
    });

    CLI::App* key = app.add_subcommand("key", "Press remote-control keys by name: " + keyList());
    key->add_option("names", names, "Key names")->required();
    key->add_option("--device", device, "Input FIFO (default: VELMORA_INPUT_DEVICES' entry for the session)");
    key->add_option("--session", session, "Display session")->capture_default_str();

    try {
        app.parse(argc, argv);
        if (key->parsed())
            return pressKeys(names, device, session);
    } catch (CLI::ParseError const& e) {
        return app.exit(e) == 0 ? 0 : BAD_USAGE;
    } catch (UsageError const& e) {
        std::fprintf(stderr, "velmoractl: %s\n", e.text.c_str());
        return BAD_USAGE;
    }

    // Stop signals wait for `watch` in sigwait; blocked before the client's threads start.
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGUSR1);
    if (watchCommand->parsed())
        pthread_sigmask(SIG_BLOCK, &stops, nullptr);

    // The library's own log lines would repeat the one message printed here.
    if (!std::getenv("VELMORA_DEBUG"))
        velmoraSetDebugLevel(0);
    Events events;
    RPCClient client(1);
    client.setNotificationHandler([&](std::string const& name, Json::Value const& notification) {
        events.add(name, notification);
        if (watchCommand->parsed())
            printNotification(options, name, notification);
    });
    client.setClosedHandler([&] {
        events.close();
        if (watchCommand->parsed())
            ::kill(::getpid(), SIGUSR1);
    });
    try {
        client.connect(options.endpoint);
    } catch (Exception const& e) {
        std::fprintf(stderr,
                     "velmoractl: cannot reach endpoint %s in %s: is the server up? (the demo's box: "
                     "eval \"$(scripts/demo --env)\" first)\n",
                     options.endpoint.c_str(), RuntimeDirectory::path().c_str());
        return BAD_USAGE;
    }
    try {
        if (action)
            return action(client, events);
        return reportCall(client, options, method, params, client.call(method, params));
    } catch (Exception const& e) {
        std::fprintf(stderr, "velmoractl: %s\n", e.what());
        return CALL_FAILED;
    }
}
