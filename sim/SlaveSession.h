// The endpoint of one display session of the Android slave: the master's
// window manager of that session dials it (its name is the slave's name with
// the session index appended) and treats it as the window manager of the
// "Android" windows, and their programs dial it too.
//
// What it answers:
//   IWindowManager.launch {launch record, "proxy"}: starts the program that
//     the record's applicationURL names when that is a bare name of an
//     executable in PATH, else the default program, with the record (less
//     "proxy") as its VELMORA_APP_PARAMETERS; the new window's uid, which is
//     the record's authorizationToken, else the process id.
//   IWindowManager.dispatchEvent {"proxy", "event"}: the master mirrors every
//     event it did not consume. It goes to the application that holds the
//     focus (the last one the master gave it and has not taken back), unless
//     the master has just handed that application the same event through
//     handleEvent: an application never sees one key twice.
//   The calls on one window, with its "uid", passed on to its program:
//     IApplicationManager.{getState, setState, activate, suspend, terminate,
//     getRuntimeStatistics} as ILifecycleManagement, IWindowManager.
//     {handleFocus, isFocused, handleEvent} as IWindowEvent, and the rest of
//     IWindowManager's window calls (visibility, opacity, z-order, location,
//     stacking) as IWindowCompositing. An unknown uid fails with "invalid
//     uid"; a program that has not dialled in, or fails, fails the call.
// What it sends to its subscribers: each application's state changes and
// keep-alives (see AndroidApp), TERMINATED included when it dies unasked.
//
// Threads: methods run on the endpoint's worker threads; childEnded() from
// the signal loop; the rest from the owner's thread.
#pragma once

#include "AndroidApp.h"
#include "rpc/RPCServer.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

namespace Velmora {

class SlaveSession : public RPCServer {
public:
    // Serves `endpoint`; `defaultProgram` is started when a launch names no program of its own.
    SlaveSession(std::string const& endpoint, std::string defaultProgram);
    ~SlaveSession() override;

    // Reaps `pid` if it is one of this session's programs; true when it was.
    bool childEnded(pid_t pid);
    // Asks every program to end (SIGTERM), or kills them.
    void stopApplications();
    void killApplications();
    // Waits up to `deadline` until every application is gone (reported and forgotten); false on timeout.
    bool awaitNoApplications(std::chrono::milliseconds deadline);

private:
    std::string launch(IRPC::RPCSynchronousMethodObject const& method);
    std::string dispatchEvent(IRPC::RPCSynchronousMethodObject const& method);
    std::string forward(IRPC::RPCSynchronousMethodObject const& method);
    // The program a launch of `url` starts: its full path, empty when there is none.
    std::string programFor(std::string const& url) const;
    std::shared_ptr<AndroidApp> find(std::string const& uid);
    void report(std::string const& event, Json::Value const& params);
    void gone(std::string const& uid);

    std::string const defaultProgram;
    std::map<std::string, std::string> targets; // wire name -> the program's method, filled by the constructor

    std::mutex mutex;
    std::map<std::string, std::shared_ptr<AndroidApp>> applications; // by uid
    std::condition_variable emptied;
    std::string focusedUid;
    std::string handledEvent;          // the last event passed on through handleEvent,
    std::set<std::string> handledBy;   // and the applications that got it since the last mirror
};

} // namespace Velmora
