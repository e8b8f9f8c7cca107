// The box's record of every lifecycle change with its reason: the answer to
// "why did this application go away". The managers tell it through
// LifecycleObserver (set on each with setLifecycleObserver); it also hears
// the service manager (boot complete, service failures) and the package
// installer (request ends) as an ordinary listener. It holds no policy.
//
// The newest entries stay in a bounded ring in memory. A writer thread of
// its own appends them to a file of JSON lines (one entry a line) that is
// read back by start(), rotated by size into "<path>.1" (one old file kept),
// sent to the systemd journal when the server runs under systemd, and handed
// to the subscriber (the RPC server's notification). A file or disk that
// fails costs the file copy only; the first failure is logged once with its
// cause. When the writer falls more than PENDING_LIMIT entries behind, the
// oldest pending ones skip the file and the subscriber; the ring keeps them.
//
// Threads: record() and the listener operations from any thread (the
// managers' threads among them): a short lock on the journal's own mutex,
// never a wait for I/O. query() from any thread. start(), setSubscriber()
// and the destructor belong to the owner, which unsets the journal on every
// manager and removes it from their listener lists before deleting it. The
// subscriber runs on the writer thread.
#pragma once

#include "LifecycleObserver.h"
#include "FileDescriptor.h"
#include "interfaces/IPackageInstaller.h"
#include "interfaces/IServiceManager.h"

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace Json {
class Value;
}

namespace Velmora {

class LifecycleJournal : public LifecycleObserver,
                         public virtual IServiceManager::IServiceManagerListener,
                         public virtual IPackageInstaller::IPackageInstallerListener {
public:
    static char const* const DEFAULT_PATH;       // "/usr/local/var/velmora/journal", under the sysroot
    static std::size_t const DEFAULT_CAPACITY;   // 4096 entries in the ring
    static std::uint64_t const DEFAULT_ROTATE_BYTES; // 1 MiB
    static std::size_t const PENDING_LIMIT;      // 16384 entries waiting for the writer

    using Subscriber = std::function<void(LifecycleEntry const&)>;

    // `path` is the file as written (no sysroot applied here); empty keeps no file.
    explicit LifecycleJournal(std::string path, std::size_t capacity = DEFAULT_CAPACITY,
                              std::uint64_t rotateBytes = DEFAULT_ROTATE_BYTES);
    ~LifecycleJournal() override;
    LifecycleJournal(LifecycleJournal const&) = delete;
    LifecycleJournal& operator=(LifecycleJournal const&) = delete;

    // Reads the old file and the current one back into the ring (unreadable
    // lines are skipped with one log line), then starts the writer.
    void start();
    // The one subscriber, told every new entry on the writer thread; empty for
    // none. Waits for a call to the old subscriber in progress; the subscriber
    // must not call setSubscriber.
    void setSubscriber(Subscriber subscriber);

    void record(LifecycleEntry entry) override;

    // The newest `limit` entries (0: all) of the ring that match every given
    // filter, oldest first. `sinceMs` is wall-clock milliseconds since the
    // epoch; `beforeSequence` (0: none) keeps the entries older than that one,
    // so that a reader can page back through the ring.
    std::vector<LifecycleEntry> query(std::string const& uid, std::optional<int> session, std::string const& kind,
                                      std::int64_t sinceMs, std::size_t limit, std::uint64_t beforeSequence = 0) const;

    static Json::Value toJson(LifecycleEntry const& entry);
    // Null when the value is not an entry.
    static std::optional<LifecycleEntry> fromJson(Json::Value const& value);

    // The service manager's and the package installer's notices. The service
    // manager tells of a complete boot after every pass that finds all
    // services up, and a pass follows each change of its table: only the
    // first since the start, and the first after a service ended, are recorded.
    void onBootComplete() override;
    void onServiceFailure(std::string const& name) override;
    void onServiceListChange(VectorObject<std::string> const&) override {}
    void onError(std::string const&, std::string const&) override {}
    void onKeepAlive(std::string const&, std::string const&) override {}
    void onStateChange(std::string const&, std::string const&, std::string const&) override {}
    int onRequestEnd(VectorObject<std::string> const& packages, std::string const& operation,
                     ReturnCode result) override;

private:
    void readBack(std::string const& file);
    void writerLoop();
    // Appends the batch, rotating whenever the file reaches rotateBytes.
    void write(std::vector<LifecycleEntry> const& batch);
    // Writes and empties `text`; false (the failure reported) when the file fails.
    bool append(std::string& text);
    bool openFile();
    void rotate();
    // Logs the first failure of the file, with its cause; later ones are silent.
    void fail(std::string const& what);

    std::string const path;
    std::size_t const capacity;
    std::uint64_t const rotateBytes;
    bool const toSystemd;

    mutable std::mutex mutex; // guards everything below down to `stopping`
    std::condition_variable wake;
    std::deque<LifecycleEntry> ring;
    std::deque<LifecycleEntry> pending;
    std::map<std::string, std::pair<std::string, std::string>> identities; // uid: type, name
    std::uint64_t nextSequence = 1;
    bool pendingDropLogged = false;
    bool booted = false;       // every service runs, as far as the journal has heard
    bool bootedBefore = false; // since the start
    bool stopping = false;

    std::mutex subscriberMutex;
    Subscriber subscriber;

    // The writer thread's own.
    FileDescriptor file;
    std::uint64_t fileBytes = 0;
    bool failureLogged = false;
    std::thread writer;
};

} // namespace Velmora
