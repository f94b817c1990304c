// Requests to the command processor on damaged database files.
//
// Input: what is done to the files of the sample board, then up to 2 requests as fuzz/requests.h
// has them.
//   1 byte                    bits 0 to 3: the number of patches; bit 4: the configuration is cut
//                             off, bit 5: the state
//   2 bytes of each cut       the length
//   of each patch: 2 bytes, 1 byte N, N bytes
//                             bit 15: the state, else the configuration; the other bits: where the
//                             bytes go
// The files have pages of 512 bytes, so that a small patch finds something to damage.
#include <sqlite3.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz/board.h"
#include "fuzz/input.h"
#include "fuzz/outside.h"
#include "fuzz/requests.h"
#include "fuzz/require.h"
#include "params/databases.h"
#include "processor/conf_log.h"
#include "processor/identification.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes file_of(const char* name) {
    sqlite3* const database = sample_database(name, "PRAGMA page_size = 512");
    sqlite3_int64 size = 0;
    std::uint8_t* const bytes = sqlite3_serialize(database, "main", &size, 0);
    REQUIRE(bytes != nullptr && size % 512 == 0);
    Bytes file(bytes, bytes + size);
    sqlite3_free(bytes);
    REQUIRE(sqlite3_close(database) == SQLITE_OK);
    return file;
}

sqlite3* opened(const Bytes& file) {
    sqlite3* database = nullptr;
    REQUIRE(sqlite3_open(":memory:", &database) == SQLITE_OK);
    auto* const copy = static_cast<std::uint8_t*>(sqlite3_malloc64(file.size() + 1));
    std::ranges::copy(file, copy);
    const auto size = static_cast<sqlite3_int64>(file.size());
    constexpr unsigned kFlags = SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE;
    REQUIRE(sqlite3_deserialize(database, "main", copy, size, size + 1, kFlags) == SQLITE_OK);
    return database;
}

void cut(Bytes& file, Input& input) {
    file.resize(input.two_bytes() % (file.size() + 1));
}

void patch(Bytes& configuration, Bytes& state, Input& input) {
    constexpr unsigned kState = 0x8000;
    const unsigned where = input.two_bytes();
    const auto bytes = input.bytes(input.byte());
    Bytes& file = (where & kState) != 0 ? state : configuration;
    if (file.empty())
        return;
    const std::size_t at = (where & ~kState) % file.size();
    std::copy_n(bytes.begin(), std::min(bytes.size(), file.size() - at), &file[at]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr unsigned kPatches = 0x0F;
    constexpr unsigned kCutConfiguration = 0x10;
    constexpr unsigned kCutState = 0x20;
    constexpr unsigned kMostRequests = 2;
    static const Bytes delivered_configuration = file_of(kConfiguration);
    static const Bytes delivered_state = file_of(kState);
    static const bool identified = [] {
        conf_log = 0x7F;
        fill_identification();
        return true;
    }();
    REQUIRE(identified);
    Bytes configuration = delivered_configuration;
    Bytes state = delivered_state;
    Input input(data, size);
    const std::uint8_t what = input.byte();
    if ((what & kCutConfiguration) != 0)
        cut(configuration, input);
    if ((what & kCutState) != 0)
        cut(state, input);
    for (unsigned i = 0; i < (what & kPatches); ++i)
        patch(configuration, state, input);
    ConfDB = opened(configuration);
    TempDB = opened(state);
    for (unsigned i = 0; i < kMostRequests && !input.at_end(); ++i)
        carry_out(*read_request(input));
    REQUIRE(sqlite3_close(ConfDB) == SQLITE_OK);
    REQUIRE(sqlite3_close(TempDB) == SQLITE_OK);
    return 0;
}
