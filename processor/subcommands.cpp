#include "processor/subcommands.h"

#include <syslog.h>

#include <algorithm>
#include <iterator>

#include "processor/board_clock.h"
#include "processor/conf_log.h"
#include "processor/device_info.h"
#include "processor/protocol_log.h"
#include "processor/region.h"
#include "processor/request.h"
#include "processor/slaves.h"

namespace {

constexpr std::uint8_t kRefused = 255;  // the length of a refusal; its info stays zero

void reset_factory(const mensaje& /*request*/, mensaje& /*answer*/) {
    send_reset_factory();
}

// The names are those of the logs: blanks and full stops at the end, a name used twice and all.
// clang-format off
constexpr Subcommand kSubcommands[] = {
    {1,   "Modo Entrada.",                          1,  number(CG_MODO_ENTRADA)},
    {2,   "Brillo ch1.",                            1,  number(EAV_BRILLO, 0)},
    {3,   "SUBCOMMAND_CONTRASTE_CH1",               1,  number(EAV_CONTRASTE, 0)},
    {4,   "SUBCOMMAND_SATURACION_CH1",              1,  number(EAV_SATURACION, 0)},
    {5,   "SUBCOMMAND_SHARPNESS_CH1",               1,  number(EAV_SHARPNESS, 0)},
    {6,   "SUBCOMMAND_VIDEO_ENC_STANDARD_CH1",      1,  number(EAV_VIDEO_ENC_STANDARD, 0)},
    {7,   "SUBCOMMAND_VIDEO_ASPECT_RATIO_CH1 ",     1,  number(EAV_VIDEO_ASPECT_RATIO, 0)},
    {8,   "SUBCOMMAND_BITRATE_CH1 ",                2,  number(EAV_BITRATE, 0)},
    {9,   "SUBCOMMAND_AUDIO_BITRATE_CH1",           1,  number(EAV_AUDIO_BITRATE, 0)},
    {10,  "SUBCOMMAND_BRILLO_CH2.",                 1,  number(EAV_BRILLO, 1)},
    {11,  "SUBCOMMAND_CONTRASTE_CH2",               1,  number(EAV_CONTRASTE, 1)},
    {12,  "SUBCOMMAND_SATURACION_CH2",              1,  number(EAV_SATURACION, 1)},
    {13,  "SUBCOMMAND_SHARPNESS_CH2",               1,  number(EAV_SHARPNESS, 1)},
    {14,  "SUBCOMMAND_VIDEO_ENC_STANDARD_CH2",      1,  number(EAV_VIDEO_ENC_STANDARD, 1)},
    {15,  "SUBCOMMAND_VIDEO_ASPECT_RATIO_CH2 ",     1,  number(EAV_VIDEO_ASPECT_RATIO, 1)},
    {16,  "SUBCOMMAND_BITRATE_CH2 ",                2,  number(EAV_BITRATE, 1)},
    {17,  "SUBCOMMAND_AUDIO_BITRATE_CH2",           1,  number(EAV_AUDIO_BITRATE, 1), Then::next_row},
    {18,  "SUBCOMMAND_COFDM_OFF_1",                 1,  number(RFO_COFDM_OFF)},
    {19,  "SUBCOMMAND_CANAL_SALIDA_1",              1,  NumberSetter{number(RFO_CANAL_SALIDA), set_output_channel}},
    {20,  "SUBCOMMAND_FRECUENCIA_1",                3,  NumberSetter{number(RFO_FRECUENCIA), set_output_frequency}},
    {21,  "SUBCOMMAND_ATENUACION",                  1,  number(CG_ATENUACION)},
    {22,  "SUBCOMMAND_MODO_OFDM_1 ",                1,  number(RFO_MODO_OFDM)},
    {23,  "SUBCOMMAND_ANCHO_BANDA_1",               1,  number(RFO_ANCHO_BANDA)},
    {24,  "SUBCOMMAND_INTERVALO_GUARDA_1",          1,  number(RFO_INTERVALO_GUARDA)},
    {25,  "SUBCOMMAND_INTERVALO_GUARDA_1",          1,  number(RFO_CONSTELACION)},
    {26,  "SUBCOMMAND_CODE_RATE_1",                 1,  number(RFO_CODE_RATE)},
    {27,  "SUBCOMMAND_VIDEO_SERV1",                 1,  number(kVideo, 0)},
    {28,  "SUBCOMMAND_AUDIO_SERV1",                 1,  number(kAudio, 0)},
    {29,  "SUBCOMMAND_LCN_SERV1",                   2,  number(SS_LCN, 0)},
    {30,  "SUBCOMMAND_SID_SERV1",                   2,  number(SS_SID, 0)},
    {31,  "SUBCOMMAND_NOMBRE_SERV1",                15, text(SSS_NOMBRE, 0)},
    {32,  "SUBCOMMAND_VIDEO_SERV2",                 1,  number(kVideo, 1)},
    {33,  "SUBCOMMAND_AUDIO_SERV2",                 1,  number(kAudio, 1)},
    {34,  "SUBCOMMAND_LCN_SERV2",                   2,  number(SS_LCN, 1)},
    {35,  "SUBCOMMAND_SID_SERV2",                   2,  number(SS_SID, 1)},
    {36,  "SUBCOMMAND_NOMBRE_SERV2",                15, text(SSS_NOMBRE, 1)},
    {37,  "SUBCOMMAND_NETWORKNAME ",                15, text(REDS_NETWORKNAME)},
    {38,  "SUBCOMMAND_PROVEEDOR",                   15, text(REDS_PROVEEDOR)},
    {39,  "SUBCOMMAND_NID",                         2,  number(RED_NID)},
    {40,  "SUBCOMMAND_TSID_OUT",                    2,  number(kNoTsidOut)},
    {41,  "SUBCOMMAND_ONID_OUT",                    2,  number(kNoOnidOut)},
    {42,  "SUBCOMMAND_NIT_PATRON",                  1,  number(RED_NIT_PATRON)},
    {43,  "SUBCOMMAND_LCN_MODE",                    1,  number(RED_LCN_MODE)},
    {44,  "SUBCOMMAND_INSERTAR_TDT",                1,  number(RED_INSERTAR_TDT)},
    {45,  "SUBCOMMAND_IP_OFF",                      1,  number(IPO_IP_OFF)},
    {46,  "SUBCOMMAND_PROTOCOLO",                   1,  number(IPO_PROTOCOLO)},
    {47,  "SUBCOMMAND_QOS",                         1,  number(IPO_QOS)},
    {48,  "SUBCOMMAND_TTL",                         1,  number(IPO_TTL)},
    {49,  "SUBCOMMAND_VLAN_MODE",                   1,  number(IPO_VLAN_MODE)},
    {50,  "SUBCOMMAND_VLAN_ID",                     2,  number(IPO_VLAN_ID)},
    {51,  "SUBCOMMAND_VLAN_TPID",                   2,  number(IPO_VLAN_TPID)},
    {52,  "SUBCOMMAND_IP_ADDRESS_SOURCE_SERV1",     16, text(SSS_IP_ADDRESS_SOURCE, 0)},
    {53,  "SUBCOMMAND_IP_PORT_SOURCE_SERV1",        2,  number(SS_IP_PORT_SOURCE, 0)},
    {55,  "SUBCOMMAND_NOMBRE_SAP_SERV1",            15, text(SSS_NOMBRE_SAP, 0)},
    {56,  "SUBCOMMAND_IP_ADDRESS_SOURCE_SERV2",     16, text(SSS_IP_ADDRESS_SOURCE, 1)},
    {57,  "SUBCOMMAND_IP_PORT_SOURCE_SERV2",        2,  number(SS_IP_PORT_SOURCE, 1)},
    {59,  "SUBCOMMAND_NOMBRE_SAP_SERV2",            15, text(SSS_NOMBRE_SAP, 1)},
    {60,  "SUBCOMMAND_SAP_MODE",                    1,  number(IPO_SAP_MODE)},
    {61,  "SUBCOMMAND_SAP_IP",                      16, text(IPOS_SAP_IP)},
    {62,  "SUBCOMMAND_SAP_USER",                    15, text(IPOS_SAP_USER)},
    {63,  "SUBCOMMAND_SAP_TIME",                    1,  number(IPO_SAP_TIME)},
    {66,  "SUBCOMMAND_PLAYER_MODE",                 1,  number(CG_PLAYER_MODE)},
    {67,  "SUBCOMMAND_IP_DHCP",                     1,  number(CG_IP_DHCP)},
    {68,  "SUBCOMMAND_IP_ADDRESS",                  16, text(CGS_IP_ADDRESS), Then::reset_network},
    {69,  "SUBCOMMAND_IP_MASK",                     16, text(CGS_IP_MASK), Then::reset_network},
    {70,  "SUBCOMMAND_IP_GATEWAY",                  16, text(CGS_IP_GATEWAY), Then::reset_network},
    {71,  "SUBCOMMAND_COUNTRY",                     15, TextSetter{text(CGS_COUNTRY), change_country}},
    {72,  "SUBCOMMAND_TIME",                        0,  set_clock_time},
    {73,  "SUBCOMMAND_DATE",                        0,  set_clock_date},
    {74,  "SUBCOMMAND_IDTIMEZONE",                  1,  number(CG_SUBTIMEZONE)},
    {75,  "SUBCOMMAND_LCD_BLOQUEO",                 1,  number(CG_LCD_BLOQUEO)},
    {76,  "SUBCOMMAND_LCD_CODBLOQUEO",              5,  text(CGS_LCD_CODBLOQUEO)},
    {77,  "SUBCOMMAND_MODO_ENCAP",                  1,  number(IPO_MPTS_MODE)},
    {78,  "SUBCOMMAND_LOW_LATENCY_SERV1",           1,  number(EAV_LOW_LATENCY, 0)},
    {79,  "SUBCOMMAND_LOW_LATENCY_SERV2",           1,  number(EAV_LOW_LATENCY, 1)},
    {80,  "SUBCOMMAND_RESET_FACTORY",               0,  reset_factory},
    {105, "SUBCOMMAND_GET_ESTADOPENDIENTE_RE",      0,  answer_pending_state},
    {106, "SUBCOMMAND_GET_ENTRADAAV",               0,  answer_encoder},
    {107, "SUBCOMMAND_RESET_ESTADOPENDIENTE_RE",    0,  reset_pending_state},
    {108, "SUBCOMMAND_CONFIRM_ESTADOPENDIENTE_RE",  0,  confirm_pending_state},
    {109, "SUBCOMMAND_REMOTE_ENCODER_STATUS",       0,  store_encoder_status},
    {110, nullptr,                                  0,  register_slave},
    {111, nullptr,                                  0,  answer_upgrade},
    {112, nullptr,                                  0,  store_slave_state},
};
// clang-format on

constexpr bool in_order() {
    for (std::size_t i = 1; i < std::size(kSubcommands); ++i) {
        if (kSubcommands[i].code <= kSubcommands[i - 1].code)
            return false;
    }
    return true;
}
static_assert(in_order());

constexpr bool widths_fit() {
    return std::all_of(std::begin(kSubcommands), std::end(kSubcommands), [](const auto& row) {
        if (std::holds_alternative<Handler>(row.target))
            return row.width == 0;
        if (std::holds_alternative<Text>(row.target) ||
            std::holds_alternative<TextSetter>(row.target))
            return row.width > 0;
        return row.width >= 1 && row.width <= 3;
    });
}
static_assert(widths_fit());
static_assert(std::rbegin(kSubcommands)->then != Then::next_row);

const Subcommand* find(std::uint8_t code) {
    const auto* const row = std::ranges::lower_bound(kSubcommands, code, {}, &Subcommand::code);
    return row != std::end(kSubcommands) && row->code == code ? row : nullptr;
}

void run(const Subcommand& row, const mensaje& request, mensaje& answer) {
    if (row.name != nullptr && (conf_log & kLogZondar) != 0)
        log_line(LOG_DEBUG, "Subcomando %s\n", row.name);
    if (const auto* const number = std::get_if<Number>(&row.target))
        log_if_failed(number->set(number_at(request, kValue, row.width)));
    else if (const auto* const text = std::get_if<Text>(&row.target))
        log_if_failed(text->set(text_at(request, kValue).data(), row.width));
    else if (const auto* const setter = std::get_if<NumberSetter>(&row.target))
        log_if_failed(setter->set(number_at(request, kValue, row.width)));
    else if (const auto* const changer = std::get_if<TextSetter>(&row.target))
        changer->set(text_at(request, kValue));
    else if (const auto* const handle = std::get_if<Handler>(&row.target))
        (*handle)(request, answer);
}

void refuse(const char* why, mensaje& answer) {
    log_problem(why);
    answer.longitud = kRefused;
}

}  // namespace

std::span<const Subcommand> subcommands() {
    return kSubcommands;
}

void write_parameter(const mensaje& request, mensaje& answer) {
    log_request("CMD: Comando escritura parametros.\n");
    if (request.longitud < 2)
        return refuse("Comando con longitud no esperada.\n", answer);
    const Subcommand* row = find(request.info[0]);
    if (row == nullptr)
        return refuse("Comando - Subcomando no reconocido.\n", answer);
    run(*row, request, answer);
    while (row->then == Then::next_row)
        run(*++row, request, answer);
    if (row->then == Then::reset_network)
        send_reset_network();
}
