// Many threads of one program, each with a module of its own, and all with one trace file.
#include <gtest/gtest.h>
#include <pcap/pcap.h>

#include <thread>
#include <vector>

#include "master/parameters.h"
#include "master/requests.h"
#include "tests/master/outcomes.h"
#include "tests/support/database.h"
#include "tests/support/fleet.h"

namespace master {

namespace {

constexpr std::size_t kModules = 40;
constexpr int kRounds = 5;
constexpr char kTrace[] = "/tmp/trace.pcap";

// -1 when the file is not whole.
int records_of(const char* path) {
    char error[PCAP_ERRBUF_SIZE];
    pcap_t* const file = pcap_open_offline(path, error);
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    int count = 0;
    int result = 0;
    while ((result = pcap_next_ex(file, &header, &data)) == 1)
        ++count;
    pcap_close(file);
    return result == PCAP_ERROR_BREAK ? count : -1;
}

void ask_often(std::size_t module) {
    const Settings settings = {
        .target = {.host = Fleet::address(module)}, .timeout = kForEver, .trace_path = kTrace};
    const auto brightness = static_cast<std::uint32_t>(100 + module);
    for (int round = 0; round < kRounds; ++round) {
        Session session(settings);
        EXPECT_EQ(session.ask(write_request(*find_parameter("EntradaAV.0.Brillo"), brightness)),
                  Bytes());
        const Bytes info = session.ask(identification_request());
        EXPECT_EQ(std::string(info.begin() + 17, info.begin() + 29), Fleet::serial_number(module));
    }
    // All wait for one lock, and nobody listens there.
    EXPECT_EQ(outcome(status_request(), {.target = {.host = "localhost"}, .timeout = kForEver}),
              "connect: no connection: Connection refused");
}

TEST(Threads, AskAModuleEachAtATime) {
    const Fleet fleet(kModules);
    std::vector<std::thread> threads;
    for (std::size_t module = 0; module < kModules; ++module)
        threads.emplace_back(ask_often, module);
    for (std::thread& thread : threads)
        thread.join();
    for (std::size_t module = 0; module < kModules; ++module)
        EXPECT_EQ(
            Database(Fleet::conf_db(module)).value("SELECT Brillo FROM EntradaAV WHERE rowid = 0"),
            std::to_string(100 + module));
    EXPECT_EQ(records_of(kTrace), static_cast<int>(kModules) * kRounds * 4);
}

}  // namespace

}  // namespace master
