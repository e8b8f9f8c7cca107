// The journal's file on its own: a burst, rotation, a restart and a damaged file.
#include "LifecycleJournal.h"
#include "ScratchDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using namespace Velmora;
namespace fs = std::filesystem;

namespace {

std::vector<LifecycleEntry> everything(LifecycleJournal const& journal)
{
    return journal.query(std::string(), std::nullopt, std::string(), 0, 0);
}

} // namespace

TEST(LifecycleJournal, ABurstKeepsTheNewestThroughRotationRestartsAndADamagedFile)
{
    ScratchDirectory const scratch("velmora-journal");
    std::string const path = scratch.file("var/journal");
    {
        LifecycleJournal journal(path, 100, 16 * 1024);
        journal.start();
        for (int i = 0; i < 10000; ++i)
            journal.record({.uid = std::to_string(i), .name = "app", .kind = LifecycleEntry::KIND_STATE});
        std::vector<LifecycleEntry> const ring = everything(journal);
        ASSERT_EQ(100u, ring.size());
        EXPECT_EQ("9900", ring.front().uid);
        EXPECT_EQ("9999", ring.back().uid);
        EXPECT_EQ(10000u, ring.back().sequence);
        EXPECT_TRUE(journal.query("4242", std::nullopt, "state", 0, 0).empty()); // gone from the ring
        EXPECT_EQ(3u, journal.query(std::string(), std::nullopt, "state", 0, 3).size());
    } // the writer drains before the journal goes

    // Rotation kept one old file; together they end with the newest entries, without a gap.
    EXPECT_TRUE(fs::exists(path + ".1"));
    EXPECT_LT(fs::file_size(path + ".1"), 2 * 16 * 1024u);
    {
        LifecycleJournal reread(path, 100000);
        reread.start();
        std::vector<LifecycleEntry> const kept = everything(reread);
        ASSERT_FALSE(kept.empty());
        EXPECT_LT(kept.size(), 10000u);
        EXPECT_EQ("9999", kept.back().uid);
        EXPECT_EQ(10000u - kept.size() + 1, kept.front().sequence);
    }

    // A line of garbage and a last line cut short by a crash are skipped; the
    // next entry goes on a line of its own and continues the numbering.
    std::ofstream(path, std::ios::app) << "{not json\n{\"sequence\":12";
    {
        LifecycleJournal damaged(path, 100);
        damaged.start();
        EXPECT_EQ("9999", everything(damaged).back().uid);
        damaged.record({.uid = "after", .kind = LifecycleEntry::KIND_ENDED, .reason = "TERMINATED"});
    }
    LifecycleJournal repaired(path, 100);
    repaired.start();
    std::vector<LifecycleEntry> const after = repaired.query("after", std::nullopt, "ended", 0, 0);
    ASSERT_EQ(1u, after.size());
    EXPECT_EQ(10001u, after.front().sequence);
    EXPECT_EQ("TERMINATED", after.front().reason);
}
