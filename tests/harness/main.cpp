// Test main: enters the sandbox before any test runs, and gives every test a fresh device.
#include <string.h>

#include "sandbox.h"

namespace
{

// When a binary runs many tests in one process, each still starts from a clean device.
class ResetBetweenTests : public ::testing::EmptyTestEventListener
{
    void OnTestEnd(const ::testing::TestInfo &) override
    {
        if (sandbox::available())
            sandbox::reset_device();
    }
};

} // namespace

int main(int argc, char **argv)
{
    bool listing = false;
    for (int i = 1; i < argc; ++i)
        if (strncmp(argv[i], "--gtest_list_tests", 18) == 0)
            listing = true;
    ::testing::InitGoogleTest(&argc, argv);
    if (!listing) {
        sandbox::enter();
        ::testing::UnitTest::GetInstance()->listeners().Append(new ResetBetweenTests);
    }
    return RUN_ALL_TESTS();
}
