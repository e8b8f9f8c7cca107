#include "LifecycleJournal.h"

#include "frame/DebugPrint.h"

#include <json/json.h>
#include <pthread.h>
#include <systemd/sd-journal.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

namespace Velmora {

static char const MODULE[] = "LifecycleJournal";

char const* const LifecycleJournal::DEFAULT_PATH = "/usr/local/var/velmora/journal";
std::size_t const LifecycleJournal::DEFAULT_CAPACITY = 4096;
std::uint64_t const LifecycleJournal::DEFAULT_ROTATE_BYTES = 1024 * 1024;
std::size_t const LifecycleJournal::PENDING_LIMIT = 16384;

namespace {

std::int64_t clockMs(clockid_t clock)
{
    timespec now{};
    ::clock_gettime(clock, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// systemd hands a service its journal as standard error and says so here.
bool underSystemd()
{
    char const* stream = std::getenv("JOURNAL_STREAM");
    return stream && *stream;
}

std::string line(LifecycleEntry const& entry)
{
    // A writer made once per thread (the writer thread's), not a builder and its settings per line.
    thread_local std::unique_ptr<Json::StreamWriter> const writer = [] {
        Json::StreamWriterBuilder builder;
        builder["indentation"] = "";
        return std::unique_ptr<Json::StreamWriter>(builder.newStreamWriter());
    }();
    std::ostringstream text;
    writer->write(LifecycleJournal::toJson(entry), &text);
    text << '\n';
    return std::move(text).str();
}

std::string message(LifecycleEntry const& entry)
{
    std::string text = entry.kind;
    if (!entry.uid.empty())
        text += " " + entry.uid;
    if (!entry.name.empty())
        text += " " + entry.name;
    return text + ": " + entry.reason + (entry.cause.empty() ? "" : " (" + entry.cause + ")");
}

void sendToSystemd(LifecycleEntry const& entry)
{
    sd_journal_send("MESSAGE=%s", message(entry).c_str(), "PRIORITY=%i", LOG_INFO, "VELMORA_KIND=%s",
                    entry.kind.c_str(), "VELMORA_UID=%s", entry.uid.c_str(), "VELMORA_SESSION=%d", entry.session,
                    "VELMORA_APPLICATION_TYPE=%s", entry.applicationType.c_str(), "VELMORA_NAME=%s",
                    entry.name.c_str(), "VELMORA_REASON=%s", entry.reason.c_str(), "VELMORA_CAUSE=%s",
                    entry.cause.c_str(), "VELMORA_SEQUENCE=%llu", static_cast<unsigned long long>(entry.sequence),
                    nullptr);
}

} // namespace

LifecycleJournal::LifecycleJournal(std::string path, std::size_t capacity, std::uint64_t rotateBytes)
    : path(std::move(path)), capacity(std::max<std::size_t>(capacity, 1)), rotateBytes(rotateBytes),
      toSystemd(underSystemd())
{
}

LifecycleJournal::~LifecycleJournal()
{
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    wake.notify_one();
    if (writer.joinable())
        writer.join();
}

void LifecycleJournal::start()
{
    if (!path.empty()) {
        readBack(path + ".1");
        readBack(path);
    }
    writer = std::thread([this] {
        pthread_setname_np(pthread_self(), "JournalWriter");
        writerLoop();
    });
}

void LifecycleJournal::setSubscriber(Subscriber value)
{
    std::lock_guard<std::mutex> lock(subscriberMutex);
    subscriber = std::move(value);
}

void LifecycleJournal::readBack(std::string const& name)
{
    std::ifstream in(name);
    if (!in)
        return;
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> const reader(builder.newCharReader());
    std::size_t unreadable = 0;
    std::string text;
    std::lock_guard<std::mutex> lock(mutex);
    while (std::getline(in, text)) {
        Json::Value value;
        std::optional<LifecycleEntry> entry;
        if (reader->parse(text.data(), text.data() + text.size(), &value, nullptr))
            entry = fromJson(value);
        if (!entry) {
            ++unreadable;
            continue;
        }
        nextSequence = std::max(nextSequence, entry->sequence + 1);
        ring.push_back(std::move(*entry));
        if (ring.size() > capacity)
            ring.pop_front();
    }
    if (unreadable)
        VLOG(DebugLevelWarning, "%s: %zu unreadable lines skipped\n", name.c_str(), unreadable);
}

void LifecycleJournal::record(LifecycleEntry entry)
{
    entry.monotonicMs = static_cast<std::uint64_t>(clockMs(CLOCK_MONOTONIC));
    entry.wallClockMs = clockMs(CLOCK_REALTIME);
    bool firstDrop = false;
    {
        std::lock_guard<std::mutex> lock(mutex);
        entry.sequence = nextSequence++;
        if (entry.kind == LifecycleEntry::KIND_ENDED && entry.session < 0)
            booted = false; // a service ended: the next complete boot is news
        if (!entry.uid.empty()) {
            auto& identity = identities[entry.uid];
            if (!entry.applicationType.empty() || !entry.name.empty())
                identity = {entry.applicationType, entry.name};
            else
                std::tie(entry.applicationType, entry.name) = identity;
            if (entry.kind == LifecycleEntry::KIND_ENDED)
                identities.erase(entry.uid);
            else if (identities.size() > capacity)
                identities.clear(); // uids that never ended: their names are lost, not the entries
        }
        ring.push_back(entry);
        if (ring.size() > capacity)
            ring.pop_front();
        pending.push_back(std::move(entry));
        if (pending.size() > PENDING_LIMIT) {
            pending.pop_front();
            firstDrop = !std::exchange(pendingDropLogged, true);
        }
    }
    wake.notify_one();
    if (firstDrop)
        VLOG(DebugLevelError, "the writer is %zu entries behind: the oldest skip the file and the bus\n",
             PENDING_LIMIT);
}

std::vector<LifecycleEntry> LifecycleJournal::query(std::string const& uid, std::optional<int> session,
                                                    std::string const& kind, std::int64_t sinceMs,
                                                    std::size_t limit, std::uint64_t beforeSequence) const
{
    std::vector<LifecycleEntry> found;
    std::lock_guard<std::mutex> lock(mutex);
    for (auto it = ring.rbegin(); it != ring.rend() && (limit == 0 || found.size() < limit); ++it) {
        if ((uid.empty() || it->uid == uid) && (!session || it->session == *session) &&
            (kind.empty() || it->kind == kind) && it->wallClockMs >= sinceMs &&
            (beforeSequence == 0 || it->sequence < beforeSequence))
            found.push_back(*it);
    }
    std::reverse(found.begin(), found.end());
    return found;
}

void LifecycleJournal::writerLoop()
{
    for (;;) {
        std::deque<LifecycleEntry> batch;
        {
            std::unique_lock<std::mutex> lock(mutex);
            wake.wait(lock, [this] { return stopping || !pending.empty(); });
            if (pending.empty())
                return;
            batch.swap(pending);
        }
        std::vector<LifecycleEntry> const entries(std::make_move_iterator(batch.begin()),
                                                  std::make_move_iterator(batch.end()));
        write(entries);
        if (toSystemd)
            for (LifecycleEntry const& entry : entries)
                sendToSystemd(entry);
        // Held while telling: once setSubscriber returns, the old subscriber is never called again.
        std::lock_guard<std::mutex> lock(subscriberMutex);
        if (subscriber)
            for (LifecycleEntry const& entry : entries)
                subscriber(entry);
    }
}

void LifecycleJournal::write(std::vector<LifecycleEntry> const& batch)
{
    if (path.empty())
        return;
    std::string text;
    for (LifecycleEntry const& entry : batch) {
        text += line(entry);
        if (fileBytes + text.size() >= rotateBytes) {
            if (!append(text))
                return;
            rotate();
        }
    }
    append(text);
}

bool LifecycleJournal::append(std::string& text)
{
    if (!file.valid() && !openFile())
        return false;
    for (std::size_t done = 0; done < text.size();) {
        ssize_t const wrote = ::write(file.get(), text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote <= 0) {
            fail("write " + path + ": " + std::strerror(errno));
            file.reset(); // opened again for the next batch
            return false;
        }
        done += static_cast<std::size_t>(wrote);
        fileBytes += static_cast<std::uint64_t>(wrote);
    }
    text.clear();
    return true;
}

bool LifecycleJournal::openFile()
{
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    file = FileDescriptor(::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    struct stat status{};
    if (!file.valid() || ::fstat(file.get(), &status) != 0) {
        fail("open " + path + ": " + std::strerror(errno));
        file.reset();
        return false;
    }
    fileBytes = static_cast<std::uint64_t>(status.st_size);
    // A line cut short by a crash must not swallow the next entry.
    char last = '\n';
    if (fileBytes > 0 && ::pread(file.get(), &last, 1, status.st_size - 1) == 1 && last != '\n' &&
        ::write(file.get(), "\n", 1) == 1)
        ++fileBytes;
    return true;
}

void LifecycleJournal::rotate()
{
    file.reset();
    std::string const old = path + ".1";
    if (::rename(path.c_str(), old.c_str()) != 0)
        fail("rename " + path + " to " + old + ": " + std::strerror(errno));
    openFile();
}

void LifecycleJournal::fail(std::string const& what)
{
    if (std::exchange(failureLogged, true))
        return;
    VLOG(DebugLevelError, "the journal file fails, entries stay in memory only: %s\n", what.c_str());
}

Json::Value LifecycleJournal::toJson(LifecycleEntry const& entry)
{
    Json::Value value(Json::objectValue);
    value["@type"] = "LifecycleEntry";
    value["sequence"] = Json::UInt64(entry.sequence);
    value["monotonicMs"] = Json::UInt64(entry.monotonicMs);
    value["wallClockMs"] = Json::Int64(entry.wallClockMs);
    value["session"] = entry.session;
    value["uid"] = entry.uid;
    value["applicationType"] = entry.applicationType;
    value["name"] = entry.name;
    value["kind"] = entry.kind;
    value["reason"] = entry.reason;
    value["cause"] = entry.cause;
    return value;
}

std::optional<LifecycleEntry> LifecycleJournal::fromJson(Json::Value const& value)
{
    if (!value.isObject() || !value["sequence"].isUInt64() || !value["kind"].isString())
        return std::nullopt;
    auto const text = [&](char const* key) {
        Json::Value const& member = value[key];
        return member.isString() ? member.asString() : std::string();
    };
    LifecycleEntry entry;
    entry.sequence = value["sequence"].asUInt64();
    entry.monotonicMs = value["monotonicMs"].isUInt64() ? value["monotonicMs"].asUInt64() : 0;
    entry.wallClockMs = value["wallClockMs"].isInt64() ? value["wallClockMs"].asInt64() : 0;
    entry.session = value["session"].isInt() ? value["session"].asInt() : -1;
    entry.uid = text("uid");
    entry.applicationType = text("applicationType");
    entry.name = text("name");
    entry.kind = text("kind");
    entry.reason = text("reason");
    entry.cause = text("cause");
    return entry;
}

void LifecycleJournal::onBootComplete()
{
    bool again = false;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (std::exchange(booted, true))
            return;
        again = std::exchange(bootedBefore, true);
    }
    record({.kind = LifecycleEntry::KIND_BOOT_COMPLETE, .reason = "every service runs",
            .cause = again ? "again, after a service ended" : "the first time since the server started"});
}

void LifecycleJournal::onServiceFailure(std::string const& name)
{
    record({.uid = name, .kind = LifecycleEntry::KIND_SERVICE_FAILED, .reason = "the service ended",
            .cause = "the service manager starts it again"});
}

int LifecycleJournal::onRequestEnd(VectorObject<std::string> const& packages, std::string const& operation,
                                   ReturnCode result)
{
    std::string names;
    for (std::string const& package : packages)
        names += (names.empty() ? "" : " ") + package;
    record({.name = names, .kind = LifecycleEntry::KIND_PACKAGE, .reason = operation,
            .cause = result == ReturnSuccess ? "done" : "failed with result " + std::to_string(static_cast<int>(result))});
    return 0;
}

} // namespace Velmora
