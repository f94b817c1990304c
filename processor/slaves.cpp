#include "processor/slaves.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

#include "link/mensaje.h"
#include "params/EntradaAV.h"
#include "params/EsclavosModulo.h"
#include "params/alarmasEstado.h"
#include "processor/answer_block.h"
#include "processor/device_info.h"
#include "processor/protocol_log.h"
#include "processor/request.h"
#include "protocol/description.h"

namespace {

using protocol::Layout;
using protocol::position;

// Of the requests. All that bear more than the MAC have it at the same place.
constexpr std::size_t kMac = position(Layout::slave, "mac");
constexpr std::size_t kSlaveChannel = position(Layout::slave_channel, "channel");
constexpr std::size_t kChannel = position(Layout::channel, "channel");
constexpr std::size_t kStatus = position(Layout::slave_status, "status");
constexpr unsigned kStatusSize = protocol::width(Layout::slave_status, "status");
constexpr std::size_t kState = position(Layout::slave_state, "state");
constexpr std::size_t kVersion = position(Layout::slave_identity, "software");

constexpr int kConfirmed = 2;  // of the pending states

// An identifier below 1 is no slave. There always is one: the look-up makes it.
int slave_of(const mensaje& request) {
    return get_EsclavosModuloIdByMAC(text_at(request, kMac).data());
}

std::array<std::uint32_t, 256> seen{};

void mark_seen(int slave) {
    const auto index = static_cast<unsigned>(slave);
    if (index < seen.size())
        seen[index] = 1;
}

// Of the answer that is being made; the functions of the table below are given nothing.
struct Asked {
    std::uint8_t code = 0;
    std::uint8_t channel = 0;
    int slave = 0;
    bool refused = false;
};
constinit Asked asked{};

std::uint32_t sub_command() {
    return asked.code;
}

std::uint32_t channel_of_slave() {
    return asked.channel;
}

std::uint32_t refusal_of_slave() {
    return asked.refused ? 1 : 0;
}

std::uint32_t upgrade_of_slave() {
    return static_cast<std::uint32_t>(get_EsclavosModulo(EM_UPGRADE, asked.slave));
}

int software(std::uint8_t* at) {
    return get_versions(at, 1);
}

constexpr Field kAnswers[] = {
#define LINES "protocol/slave_answers.def"
#include "processor/answer_fields.inc"
};

template <Layout layout>
void put_answer(mensaje& answer) {
    static constexpr std::span<const Field> kFields = fields_of(kAnswers, layout);
    put_fields(kFields, answer, asked.channel);
}

// Where the texts of a request are stored.
struct SlaveText {
    Layout layout;
    std::uint8_t position;
    std::uint8_t size;
    e_str_EsclavosModulo column;
};

constexpr auto requested = static_cast<e_str_EsclavosModulo>(-1);  // not stored as it is

constexpr SlaveText kSlaveTexts[] = {
#define FIELD(layout, position, width, name, kind, unit, meaning, source) \
    {Layout::layout, position, width, source},
#define LINES "protocol/slave_requests.def"
#include "protocol/lines.inc"
};

struct SlaveNumber {
    e_EsclavosModulo column;
    int value;
};

constexpr SlaveNumber kRegistered[] = {
    {EM_ESTADO, 1},
    {EM_RESET_FACTORY, 0},
    {EM_UPGRADE, 0},
    {EM_MASTER, 0},
};

// Writes everything whatever becomes of it. False when something could not be written.
bool write_slave(int slave, const mensaje& request) {
    bool written = true;
    const auto check = [&written](int result) {
        log_if_failed(result);
        written = written && result >= 0;
    };
    for (const SlaveText& row : kSlaveTexts) {
        if (row.column != requested)
            check(setstr_EsclavosModulo(row.column, slave, text_at(request, row.position).data(),
                                        row.size));
    }
    std::array<char, 12> version{};
    std::snprintf(version.data(), version.size(), "%d.%d.%d", request.info[kVersion],
                  request.info[kVersion + 1], request.info[kVersion + 2]);
    constexpr unsigned kVersionSize = 8;
    check(setstr_EsclavosModulo(EMS_SWVERSION, slave, version.data(), kVersionSize));
    for (const SlaveNumber& row : kRegistered)
        check(set_EsclavosModulo(row.column, slave, row.value));
    return written;
}

}  // namespace

bool slave_seen(int slave) {
    const auto index = static_cast<unsigned>(slave);
    return index < seen.size() && seen[index] != 0;
}

void answer_pending_state(const mensaje& request, mensaje& answer) {
    slave_of(request);
    asked = {.code = request.info[0], .channel = request.info[kSlaveChannel]};
    put_answer<Layout::pending_state>(answer);
}

void answer_encoder(const mensaje& request, mensaje& answer) {
    slave_of(request);
    asked = {.code = request.info[0], .channel = request.info[kSlaveChannel]};
    put_answer<Layout::encoder>(answer);
}

void reset_pending_state(const mensaje& request, mensaje& /*answer*/) {
    set_EntradaAV(EAV_ESTADOPENDIENTERE, request.info[kChannel], 0);
}

void confirm_pending_state(const mensaje& request, mensaje& /*answer*/) {
    set_EntradaAV(EAV_ESTADOPENDIENTERE, request.info[kChannel], kConfirmed);
}

void store_encoder_status(const mensaje& request, mensaje& answer) {
    slave_of(request);
    setstr_alarmas_estado_valor(protocol::state::estado_remote_encoder,
                                text_at(request, kStatus).data(), kStatusSize);
    asked = {.code = request.info[0]};
    put_answer<Layout::status_stored>(answer);
}

void register_slave(const mensaje& request, mensaje& answer) {
    asked = {.code = request.info[0], .slave = slave_of(request), .refused = true};
    if (asked.slave < 1) {
        log_problem("ERROR: No se ha podido detectar ni crear nuevo esclavo.\n");
    } else {
        mark_seen(asked.slave);
        asked.refused = !write_slave(asked.slave, request);
    }
    put_answer<Layout::master_identity>(answer);
}

// A slave tells the two layouts apart by their length.
void answer_upgrade(const mensaje& request, mensaje& answer) {
    asked = {.code = request.info[0], .slave = slave_of(request)};
    if (asked.slave < 1)
        put_answer<Layout::no_slave>(answer);
    else
        put_answer<Layout::upgrade>(answer);
}

void store_slave_state(const mensaje& request, mensaje& /*answer*/) {
    const int slave = slave_of(request);
    if (slave >= 1)
        set_EsclavosModulo(EM_ESTADO, slave, request.info[kState]);
}
