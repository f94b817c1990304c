// The main of every test program: only runs in the sandbox, so that no test touches the host's
// /quelt, its port 8001 or its log.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char* argv[]) {
    if (std::getenv("ZONDAR_SANDBOX") == nullptr) {
        std::fprintf(stderr, "%s: run me as: tests/sandbox %s\n", argv[0], argv[0]);
        return 2;
    }
    testing::InitGoogleTest(&argc, argv);
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    return RUN_ALL_TESTS();
}
