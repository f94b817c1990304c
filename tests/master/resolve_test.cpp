// A name service that does not answer in time. Its call stands here in place of the system's.
#include <gtest/gtest.h>
#include <netdb.h>

#include <atomic>
#include <semaphore>

#include "master/requests.h"
#include "tests/master/outcomes.h"
#include "tests/support/wait.h"

namespace {

std::binary_semaphore answer(0);
std::atomic<int> freed = 0;

}  // namespace

int getaddrinfo(const char* /*host*/, const char* /*service*/, const addrinfo* hints,
                addrinfo** found) {
    if ((hints->ai_flags & AI_NUMERICHOST) != 0)
        return EAI_NONAME;
    answer.acquire();
    auto* const address = new sockaddr_in{};
    address->sin_family = AF_INET;
    address->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    *found = new addrinfo{};
    (*found)->ai_addr = reinterpret_cast<sockaddr*>(address);
    return 0;
}

void freeaddrinfo(addrinfo* found) noexcept {
    delete reinterpret_cast<sockaddr_in*>(found->ai_addr);
    delete found;
    ++freed;
}

namespace master {

namespace {

TEST(Resolve, EndsByItsDeadlineAndFreesWhatComesLater) {
    EXPECT_EQ(outcome(status_request(), {.target = {.host = "far"}, .timeout = kShort}),
              "resolve: no host far: no answer in time");
    EXPECT_EQ(freed, 0);
    answer.release();
    EXPECT_TRUE(eventually([] { return freed == 1; }));
}

TEST(Resolve, WaitsForANameThatComesInTime) {
    answer.release();
    EXPECT_EQ(outcome(status_request(), {.target = {.host = "far"}, .timeout = kForEver}),
              "connect: no connection: Connection refused");
    EXPECT_EQ(freed, 1);
}

}  // namespace

}  // namespace master
