// The daemon's work in pieces, each beside the bare work that it cannot do without.
//
//   works NAME COUNT CONFIGURATION STATE [memstatus]
//
// does one piece COUNT times on the two databases; what one time costs is the difference between
// two counts. NAME.bare repeats the very SQL statements that NAME runs, with SQLite alone, or is
// the plainest loop over the same bytes. With `memstatus` SQLite keeps its memory statistics.
#include <sqlite3.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "bench/canned_transport.h"
#include "bench/requests.h"
#include "link/crc8.h"
#include "link/link_level.h"
#include "link/mensaje.h"
#include "params/EntradaAV.h"
#include "params/EsclavosModulo.h"
#include "params/RFOut.h"
#include "params/ServiciosSalida.h"
#include "params/alarmasEstado.h"
#include "params/databases.h"
#include "params/service_state.h"

namespace {

constexpr std::uint8_t kInfo = 114;  // as long as a configuration block
tPuertoZondar port{};

// Every sixteenth byte has to be doubled on the wire.
mensaje record_to_send() {
    mensaje record{};
    record.longitud = kInfo;
    for (std::uint8_t i = 0; i < kInfo; ++i)
        record.info[i] = i % 16 == 0 ? kStartByte : i;
    return record;
}

void send(unsigned crc8_mode) {
    static mensaje record = record_to_send();
    canned.sent = 0;
    enviar_mensaje_nenlace(&port, &record, crc8_mode);
}

void receive(unsigned crc8_mode) {
    if (canned.sent == 0)
        send(crc8_mode);
    static mensaje record{};
    canned.read = 0;
    if (recibir_mensaje_nenlace(&port, &record, 5000, 0) != kReceived)
        std::abort();
}

// Checksum, CRC and stuffing with nothing around them.
void plain_send(bool crc8_mode) {
    static mensaje record = record_to_send();
    std::uint8_t* const plain = frame_area(record);
    std::size_t size = kInfoOffset + kInfo;
    unsigned sum = 0;
    for (std::size_t i = kControlOffset; i < size; ++i)
        sum += plain[i];
    unsigned crc = 0;
    for (std::size_t i = kControlOffset; crc8_mode && i < size; ++i)
        crc = kCrc8Table[crc ^ plain[i]];
    plain[size++] = static_cast<std::uint8_t>(-sum);
    if (crc8_mode)
        plain[size++] = static_cast<std::uint8_t>(crc);
    unsigned end = 0;
    for (std::size_t i = 0; i < size; ++i) {
        canned.bytes[end++] = plain[i];
        if (plain[i] == kStartByte && i >= 2)
            canned.bytes[end++] = kStartByte;
    }
    canned.sent = end;
}

void plain_receive(bool crc8_mode) {
    if (canned.sent == 0)
        send(crc8_mode ? 1 : 0);
    static std::uint8_t plain[kMaxFrame];
    std::size_t size = 0;
    for (std::size_t i = 0; i < canned.sent; ++i) {
        plain[size++] = canned.bytes[i];
        if (canned.bytes[i] == kStartByte && i >= 2)
            ++i;
    }
    const std::size_t covered = kInfoOffset + kInfo;
    unsigned sum = plain[covered];
    for (std::size_t i = kControlOffset; i < covered; ++i)
        sum += plain[i];
    unsigned crc = 0;
    for (std::size_t i = kControlOffset; crc8_mode && i < covered; ++i)
        crc = kCrc8Table[crc ^ plain[i]];
    if ((sum & 0xFFU) != 0 || (crc8_mode && crc != plain[covered + 1]))
        std::abort();
}

struct Loop {
    std::string_view name;
    void (*once)();
};

// clang-format off
constexpr Loop kLoops[] = {
    {"get_EntradaAV", [] { get_EntradaAV(EAV_BITRATE, 0); }},
    {"get_ServiciosSalida", [] { get_ServiciosSalida(SS_SID, 0); }},
    {"get_RFOut", [] { get_RFOut(RFO_FRECUENCIA, 1); }},
    {"get_EsclavosModulo", [] { get_EsclavosModulo(EM_UPGRADE, 1); }},
    {"get_service_state", [] { get_service_state(ST_TIPO_1, 0); }},
    {"get_alarmas", [] { get_alarmas_estado_valor("alarma_hw", MODO_BINARIO); }},
    {"send", [] { send(0); }},
    {"send.bare", [] { plain_send(false); }},
    {"send_crc8", [] { send(1); }},
    {"send_crc8.bare", [] { plain_send(true); }},
    {"receive", [] { receive(0); }},
    {"receive.bare", [] { plain_receive(false); }},
    {"receive_crc8", [] { receive(1); }},
    {"receive_crc8.bare", [] { plain_receive(true); }},
};
// clang-format on

// False when there is no work of the name.
bool repeat(std::string_view name, int count) {
    for (const Loop& loop : kLoops) {
        if (loop.name != name)
            continue;
        for (int round = 0; round < count; ++round)
            loop.once();
        return true;
    }
    constexpr std::string_view kBare = ".bare";
    const bool bare = name.ends_with(kBare);
    if (bare)
        name.remove_suffix(kBare.size());
    if (request(name, 0) == nullptr)
        return false;
    const BareStatements statements(name);
    for (int round = 0; round < count; ++round) {
        if (bare)
            statements.run(round);
        else
            carry_out(*request(name, round));
    }
    return true;
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: %s NAME COUNT CONFIGURATION STATE [memstatus]\n", argv[0]);
        return 2;
    }
    if (argc == 5)
        sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    if (!open_databases(argv[3], argv[4])) {
        std::fprintf(stderr, "%s: cannot open the databases\n", argv[0]);
        return 2;
    }
    if (!repeat(argv[1], std::atoi(argv[2]))) {
        std::fprintf(stderr, "%s: no work of the name %s\n", argv[0], argv[1]);
        return 2;
    }
    sqlite3_close(ConfDB);
    sqlite3_close(TempDB);
}
