#include "processor/slaves.h"

#include <array>
#include <cstddef>
#include <cstdio>

#include "link/mensaje.h"
#include "params/EntradaAV.h"
#include "params/EsclavosModulo.h"
#include "params/alarmasEstado.h"
#include "processor/answer_block.h"
#include "processor/device_info.h"
#include "processor/protocol_log.h"
#include "processor/request.h"

namespace {

// Of the requests.
constexpr std::uint8_t kMac = 1;
constexpr std::size_t kData = 14;  // what the sub-command carries behind the MAC

// Of a registration and of its answer.
constexpr std::uint8_t kHostname = 14;
constexpr std::uint8_t kSerial = 32;
constexpr std::uint8_t kModel = 45;
constexpr std::uint8_t kIp = 55;
constexpr std::uint8_t kVersion = 71;  // of the software: major, minor, build
constexpr std::size_t kRefused = 74;   // of the answer alone: 1 for a failure

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

constexpr Field kEncoder[] = {
    {2, 1, number(EAV_SHARPNESS, 0)},                      //
    {3, 1, number(EAV_VIDEO_ENC_STANDARD, 0)},             //
    {4, 2, number(EAV_BITRATE, 0)},                        //
    {6, 1, number(EAV_AUDIO_ENC_STANDARD, 0)},             //
    {7, 1, number(EAV_AUDIO_BITRATE, 0)},                  //
    {8, 1, number(EAV_VIDEO_ASPECT_RATIO, 0)},             //
    {9, 1, number(EAV_REMUX_AV, 0)},                       //
    {10, 2, number(EAV_PID_VIDEO_CH, 0)},                  //
    {12, 2, number(EAV_PID_AUDIO_CH, 0)},                  //
    {14, 2, number(EAV_PID_PCR_CH, 0)},                    //
    {16, 1, number(EAV_FILTER_MODE, 0)},                   //
    {17, 1, number(EAV_LOW_LATENCY, 0)},                   //
    {18, 1, number(EAV_PROFILE, 0)},                       //
    {19, 1, number(EAV_LEVEL, 0)},                         //
    {20, 2, number(EAV_REMOTE_AUDIO_SAMPLING_RATE, 0)},    //
    {22, 1, number(EAV_REMOTE_NEEDS_RELOAD_FIRMWARE, 0)},  //
    {23, 1, number(EAV_REMOTE_SISTEMA_TV, 0)},             //
    {24, 1, number(EAV_REMOTE_STOP, 0)},                   //
    {25, 1, number(EAV_REMOTE_VIDEO_PRESENT, 0)},          //
    {26, 1, number(EAV_REMOTE_AUDIO_PRESENT, 0)},          //
    {27, 1, number(EAV_REMOTE_MODO_SALIDA, 0)},            //
};
constexpr std::uint8_t kEncoderLength = 28;
static_assert(gapless(kEncoder, 2, kEncoderLength));

// A registration tells who the slave is, its answer who the master is, at the same positions.
struct SlaveText {
    std::size_t position;
    unsigned size;
    e_str_EsclavosModulo column;
};

constexpr SlaveText kSlaveTexts[] = {
    {kMac, 13, EMS_MAC},            //
    {kHostname, 18, EMS_HOSTNAME},  //
    {kSerial, 13, EMS_SERIAL},      //
    {kModel, 10, EMS_MODELO},       //
    {kIp, 16, EMS_IP},              //
};

constexpr Field kIdentity[] = {
    {kMac, 12, get_MAC_num},
    {kHostname, 18, get_hostname},
    {kSerial, 12, get_serial_num},
    {kModel, 10, get_type_model},
    {kIp, 16, get_slave_ip},
    {kVersion, 3, [](std::uint8_t* at) { return get_versions(at, 1); }},
};
constexpr std::uint8_t kIdentityLength = 75;
static_assert(ordered(kIdentity, 1, kRefused));

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
    for (const SlaveText& row : kSlaveTexts)
        check(setstr_EsclavosModulo(row.column, slave, text_at(request, row.position).data(),
                                    row.size));
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

std::span<const Field> encoder_settings() {
    return kEncoder;
}

void answer_pending_state(const mensaje& request, mensaje& answer) {
    slave_of(request);
    const std::uint8_t channel = request.info[kData];
    answer.info[0] = request.info[0];
    answer.info[1] = channel;
    answer.info[2] = static_cast<std::uint8_t>(get_EntradaAV(EAV_ESTADOPENDIENTERE, channel));
    answer.longitud = 3;
}

void answer_encoder(const mensaje& request, mensaje& answer) {
    slave_of(request);
    const std::uint8_t channel = request.info[kData];
    answer.info[0] = request.info[0];
    answer.info[1] = channel;
    put_fields(kEncoder, answer, channel);
    answer.longitud = kEncoderLength;
}

void reset_pending_state(const mensaje& request, mensaje& /*answer*/) {
    set_EntradaAV(EAV_ESTADOPENDIENTERE, request.info[kValue], 0);
}

void confirm_pending_state(const mensaje& request, mensaje& /*answer*/) {
    set_EntradaAV(EAV_ESTADOPENDIENTERE, request.info[kValue], kConfirmed);
}

void store_encoder_status(const mensaje& request, mensaje& answer) {
    constexpr unsigned kSize = 9;
    slave_of(request);
    setstr_alarmas_estado_valor("estado_remote_encoder", text_at(request, kData).data(), kSize);
    answer.info[0] = request.info[0];
    answer.longitud = 2;
}

void register_slave(const mensaje& request, mensaje& answer) {
    const int slave = slave_of(request);
    bool registered = false;
    if (slave < 1) {
        log_problem("ERROR: No se ha podido detectar ni crear nuevo esclavo.\n");
    } else {
        mark_seen(slave);
        registered = write_slave(slave, request);
    }
    answer.info[0] = request.info[0];
    put_fields(kIdentity, answer);
    answer.info[kRefused] = registered ? 0 : 1;
    answer.longitud = kIdentityLength;
}

// A slave tells the two layouts apart by their length.
void answer_upgrade(const mensaje& request, mensaje& answer) {
    const int slave = slave_of(request);
    answer.info[0] = request.info[0];
    if (slave < 1) {
        get_MAC_num(&answer.info[1]);
        answer.longitud = 14;
        return;
    }
    answer.info[1] = static_cast<std::uint8_t>(get_EsclavosModulo(EM_UPGRADE, slave));
    get_MAC_num(&answer.info[2]);
    answer.longitud = 15;
}

void store_slave_state(const mensaje& request, mensaje& /*answer*/) {
    const int slave = slave_of(request);
    if (slave >= 1)
        set_EsclavosModulo(EM_ESTADO, slave, request.info[kData]);
}
