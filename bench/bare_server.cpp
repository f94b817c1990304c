// The plainest server of one request: the same two connections, the SQL statements that the request
// cannot do without, an answer made beforehand, the daemon's pause.
//
//   bare_server NAME CONFIGURATION STATE
#include <sqlite3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>

#include "bench/canned_transport.h"
#include "bench/listening_socket.h"
#include "bench/requests.h"
#include "link/link_level.h"
#include "processor/identification.h"

namespace {

constexpr useconds_t kPause_us = 10'000;

}  // namespace

int main(int argc, char* argv[]) {
    sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    if (argc != 4 || request(argv[1], 0) == nullptr || !open_databases(argv[2], argv[3])) {
        std::fprintf(stderr, "usage: %s NAME CONFIGURATION STATE\n", argv[0]);
        return 2;
    }
    fill_identification();
    // The answer as it goes over the wire is left behind in `canned`.
    tPuertoZondar port{};
    Tx_mensaje_zondar(&port, carry_out(*request(argv[1], 0)).get());
    const BareStatements statements(argv[1]);

    const int listening = listening_socket();
    for (int round = 0;; ++round) {
        char received[64];
        const int asking = accept(listening, nullptr, nullptr);
        while (read(asking, received, sizeof received) > 0) {
        }
        close(asking);
        statements.run(round);
        const int collecting = accept(listening, nullptr, nullptr);
        if (write(collecting, canned.bytes.data(), canned.sent) < 0)
            std::perror("write");
        close(collecting);
        usleep(kPause_us);
    }
}
