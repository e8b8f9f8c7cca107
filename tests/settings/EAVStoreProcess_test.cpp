// The store against failures of the process around it: a writer killed at
// random moments, a disk that fills up, a directory the writer may not touch.
#include "store/EAVStore.h"
#include "IntegrityOf.h"
#include "ScratchDirectory.h"
#include "ServerProcess.h"

#include <gtest/gtest.h>

#include <random>

using namespace Velmora;

namespace {

// Runs the writer child with `arguments` to its end: its exit status (-1 for
// a death by signal) and the lines it printed (its debug output among them).
std::pair<int, std::vector<std::string>> runWriter(std::vector<std::string> const& arguments, std::string const& output)
{
    return {HostTest::runToEnd(VELMORA_EAV_WRITER, arguments, output).status, readLines(output)};
}

// The numbers of the lines that are `prefix` and a number, in order.
std::vector<long> numbersAfter(std::string const& prefix, std::vector<std::string> const& lines)
{
    std::vector<long> numbers;
    for (std::string const& line : lines)
        if (line.size() > prefix.size() && line.rfind(prefix, 0) == 0 &&
            line.find_first_not_of("0123456789", prefix.size()) == std::string::npos)
            numbers.push_back(std::stol(line.substr(prefix.size())));
    return numbers;
}

} // namespace

TEST(EAVStoreProcess, EveryAcknowledgedWriteSurvivesSIGKILL)
{
    std::mt19937 random(std::random_device{}());
    for (int round = 0; round < 6; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ScratchDirectory scratch;
        // The writer kills itself after a random number of writes, at once or a
        // little later: the kill lands somewhere in the middle of a write.
        std::string const writes = std::to_string(std::uniform_int_distribution<long>(1, 120)(random));
        std::string const delay = std::to_string(std::uniform_int_distribution<unsigned>(0, round % 2 ? 3000 : 0)(random));
        auto const [status, lines] = runWriter({"stream", scratch.get(), writes, delay}, scratch.file("out"));
        ASSERT_EQ(status, -1) << "the writer ended without being killed";
        std::vector<long> const acknowledgements = numbersAfter("", lines);
        ASSERT_FALSE(acknowledgements.empty());
        long const acknowledged = acknowledgements.back();

        EAVStore store("Probe", scratch.get(), ".db");
        ASSERT_NO_THROW(store.init());
        ASSERT_EQ(integrityOf(scratch.file("Probe.db")), "ok");
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
    auto const [status, lines] = runWriter({"fill", scratch.get(), "65536"}, scratch.file("out"));
    EXPECT_EQ(status, 0) << "no clean failure: " << testing::PrintToString(lines);
    EXPECT_EQ(numbersAfter("full ", lines).size(), 1u);
    std::vector<long> const written = numbersAfter("ok ", lines);
    EXPECT_FALSE(written.empty());
    EXPECT_EQ(integrityOf(scratch.file("Probe.db")), "ok");
    EAVStore store("Probe", scratch.get(), ".db");
    store.init();
    EXPECT_EQ(store.getValue("fill", "before"), "present");
    for (long i : written)
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
    auto const refused = [&](std::string const& directory) {
        auto const [status, lines] = runWriter({"open", directory}, scratch.file("out"));
        return status == 1 && numbersAfter("failed ", lines).size() == 1;
    };
    EXPECT_TRUE(refused(scratch.file("locked")));
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
    EXPECT_TRUE(refused(scratch.file("existing")));
    EXPECT_TRUE(contentsOf(scratch.file("existing/Probe.db")) == before) << "the file was changed";
}
