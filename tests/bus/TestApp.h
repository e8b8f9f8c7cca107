// Starts the SDK's test program with extra environment, and reaps it.
#pragma once

#include <map>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <vector>

extern char** environ;

namespace BusTest {

class TestApp {
public:
    explicit TestApp(std::map<std::string, std::string> const& extra)
    {
        std::vector<std::string> entries;
        for (char** entry = environ; *entry; ++entry) {
            std::string const text = *entry;
            if (!extra.count(text.substr(0, text.find('='))))
                entries.push_back(text);
        }
        for (auto const& [name, value] : extra)
            entries.push_back(name + "=" + value);
        std::vector<char*> envp;
        for (auto& entry : entries)
            envp.push_back(entry.data());
        envp.push_back(nullptr);
        char program[] = VELMORA_TEST_APP;
        char* argv[] = {program, nullptr};
        if (::posix_spawn(&pid, program, nullptr, nullptr, argv, envp.data()) != 0)
            pid = -1;
    }
    ~TestApp()
    {
        if (pid > 0 && !reaped) {
            ::kill(pid, SIGKILL);
            wait();
        }
    }
    TestApp(TestApp const&) = delete;
    TestApp& operator=(TestApp const&) = delete;

    int wait()
    {
        int status = 0;
        ::waitpid(pid, &status, 0);
        reaped = true;
        return status;
    }

    pid_t pid = -1;

private:
    bool reaped = false;
};

} // namespace BusTest
