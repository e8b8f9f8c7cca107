// The store against failures of the process around it: a writer killed at
// random moments, a disk that fills up, a directory the writer may not touch.
#include "store/EAVStore.h"
#include "IntegrityOf.h"
#include "ScratchDirectory.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <cstdio>
#include <random>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

using namespace Velmora;

namespace {

// The writer child with its stdout on a pipe; killed if still running at the end.
class Writer {
public:
    explicit Writer(std::vector<std::string> const& arguments)
    {
        int fds[2];
        if (pipe2(fds, O_CLOEXEC) != 0)
            throw std::runtime_error("pipe2");
        std::vector<char*> argv{const_cast<char*>(VELMORA_EAV_WRITER)};
        for (std::string const& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        pid = fork();
        if (pid == 0) {
            dup2(fds[1], STDOUT_FILENO);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(fds[1]);
        output = fdopen(fds[0], "r");
    }
    ~Writer()
    {
        if (pid > 0) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
        if (output)
            fclose(output);
    }
    Writer(Writer const&) = delete;
    Writer& operator=(Writer const&) = delete;

    // The next line of output, without its newline; empty at the end.
    std::string line()
    {
        char buffer[256];
        if (!fgets(buffer, sizeof buffer, output))
            return {};
        std::string text(buffer);
        if (!text.empty() && text.back() == '\n')
            text.pop_back();
        return text;
    }
    // Kills the child at once.
    void killNow() { kill(pid, SIGKILL); }
    // The wait status of the ended child.
    int reap()
    {
        int status = 0;
        waitpid(pid, &status, 0);
        pid = -1;
        return status;
    }

private:
    pid_t pid = -1;
    FILE* output = nullptr;
};

} // namespace

TEST(EAVStoreProcess, EveryAcknowledgedWriteSurvivesSIGKILL)
{
    std::mt19937 random(std::random_device{}());
    for (int round = 0; round < 6; ++round) {
        ScratchDirectory scratch;
        long acknowledged = -1;
        {
            Writer writer({"stream", scratch.get()});
            // Let it write a random number of times; the kill lands somewhere in
            // the middle of the next write.
            long target = std::uniform_int_distribution<long>(1, 120)(random);
            while (acknowledged < target) {
                std::string text = writer.line();
                ASSERT_FALSE(text.empty()) << "writer ended early";
                acknowledged = std::stol(text);
            }
            if (round % 2)
                usleep(std::uniform_int_distribution<unsigned>(0, 3000)(random));
            writer.killNow();
            // Writes that were acknowledged before the kill are still in the pipe.
            for (std::string text = writer.line(); !text.empty(); text = writer.line())
                acknowledged = std::stol(text);
            int status = writer.reap();
            ASSERT_TRUE(WIFSIGNALED(status));
        }
        std::string file = scratch.file("Probe.db");
        EAVStore store("Probe", scratch.get(), ".db");
        ASSERT_NO_THROW(store.init()) << "round " << round;
        ASSERT_EQ(integrityOf(file), "ok");
        for (long i = 0; i <= acknowledged; ++i) {
            std::string index = std::to_string(i);
            if (i % 4 == 3)
                ASSERT_EQ(store.getAttributes("batch" + index).size(), 3u) << "batch " << i;
            else
                ASSERT_EQ(store.getValue("single", "k" + index), "v" + index) << "write " << i;
        }
        // A batch that was under way is there whole or not at all.
        for (std::string const& entity : store.getEntities()) {
            if (entity == "single")
                continue;
            EXPECT_EQ(store.getAttributes(entity).size(), 3u) << entity;
        }
    }
}

TEST(EAVStoreProcess, AFullDiskFailsTheWriteAndKeepsTheStore)
{
    ScratchDirectory scratch;
    std::vector<int> written;
    {
        Writer writer({"fill", scratch.get(), "65536"});
        std::string last;
        for (std::string text = writer.line(); !text.empty(); text = writer.line()) {
            last = text;
            if (text.rfind("ok ", 0) == 0)
                written.push_back(std::stoi(text.substr(3)));
        }
        int status = writer.reap();
        ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "last line: " << last;
        EXPECT_EQ(last.rfind("full ", 0), 0u) << last;
    }
    EXPECT_FALSE(written.empty());
    EXPECT_EQ(integrityOf(scratch.file("Probe.db")), "ok");
    EAVStore store("Probe", scratch.get(), ".db");
    store.init();
    EXPECT_EQ(store.getValue("fill", "before"), "present");
    for (int i : written)
        ASSERT_EQ(store.getValue("fill", std::string("k").append(std::to_string(i))).size(), 4096u) << i;
    // With room again, the store takes writes.
    store.setValue("fill", "after", "present");
    EXPECT_EQ(store.getValue("fill", "after"), "present");
}

TEST(EAVStoreProcess, ADirectoryThatCannotBeWrittenIsAnError)
{
    ScratchDirectory scratch;
    std::filesystem::create_directory(scratch.file("locked"));
    std::filesystem::permissions(scratch.file("locked"), std::filesystem::perms(0555));
    Writer fresh({"open", scratch.file("locked")});
    EXPECT_EQ(fresh.line().rfind("failed", 0), 0u);
    EXPECT_EQ(WEXITSTATUS(fresh.reap()), 1);
    EXPECT_TRUE(std::filesystem::is_empty(scratch.file("locked")));

    // A store that exists but lies in a locked directory (it can't get its
    // write-ahead log) or is itself read-only.
    std::filesystem::create_directory(scratch.file("existing"));
    {
        EAVStore store("Probe", scratch.file("existing"), ".db");
        store.init();
        store.setValue("a", "b", "c");
    }
    std::string before = contentsOf(scratch.file("existing/Probe.db"));
    std::filesystem::permissions(scratch.file("existing/Probe.db"), std::filesystem::perms(0444));
    Writer readOnly({"open", scratch.file("existing")});
    EXPECT_EQ(readOnly.line().rfind("failed", 0), 0u);
    EXPECT_EQ(WEXITSTATUS(readOnly.reap()), 1);
    EXPECT_TRUE(contentsOf(scratch.file("existing/Probe.db")) == before) << "the file was changed";
}
