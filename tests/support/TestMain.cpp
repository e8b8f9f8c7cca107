// The main of every test binary: a failure outside any test (which would skip
// the suite, and ctest counts a skip as a pass) ends the run as failed.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace {

class FailureOutsideATestEndsTheRun : public testing::EmptyTestEventListener {
    void OnTestStart(testing::TestInfo const&) override { inTest = true; }
    void OnTestEnd(testing::TestInfo const&) override { inTest = false; }
    void OnTestPartResult(testing::TestPartResult const& result) override
    {
        if (!result.failed() || inTest)
            return;
        // The default printer, called before us, has shown the failure.
        std::printf("[  FAILED  ] a failure outside any test ends the run\n");
        std::fflush(stdout);
        std::_Exit(1);
    }
    // Set on the main thread; a failure reported from another thread reads it too.
    std::atomic<bool> inTest{false};
};

} // namespace

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new FailureOutsideATestEndsTheRun);
    return RUN_ALL_TESTS();
}
