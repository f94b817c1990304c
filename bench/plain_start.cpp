// The plainest program that starts as the daemon does: runs the same scripts, opens the same
// databases, listens.
//
//   plain_start CONFIGURATION STATE
#include <sqlite3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "bench/listening_socket.h"

int main(int argc, char* argv[]) {
    sqlite3* databases[2] = {};
    for (int i = 0; i < 2; ++i) {
        if (argc != 3 || sqlite3_open(argv[i + 1], &databases[i]) != SQLITE_OK)
            return 2;
    }
    if (std::system("/quelt/script/g_ether_reload.sh") == -1)
        return 1;
    // The daemon listens before it reads who it is.
    const int listening = listening_socket();
    constexpr const char* kScripts[] = {
        "/quelt/script/get_board_versions.sh",
        "hostname|tr -d '\\n'",
        "/quelt/script/get_board_versions.sh",
        "/quelt/script/get_board_versions.sh",
        "/quelt/script/MAC",
    };
    for (const char* const script : kScripts) {
        std::FILE* const output = popen(script, "r");
        char line[256];
        while (std::fgets(line, sizeof line, output) != nullptr) {
        }
        pclose(output);
    }
    // The end of the start: the first connection is answered by being closed.
    close(accept(listening, nullptr, nullptr));
}
