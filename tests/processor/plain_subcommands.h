// The sub-commands that store one value, as masters, log readers and the board's other programs
// know them: written from the protocol's description, not from the daemon's table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/database.h"
#include "tests/support/files.h"

struct Plain {
    std::uint8_t code;
    const char* name;  // as it is logged
    unsigned bytes;    // of a number; 0 for a text
    unsigned room;     // of a text: one less is stored; 0 for a number
    const char* cell;  // table, row and column; empty when there is none
};

// clang-format off
inline constexpr Plain kPlain[] = {
    {1, "Modo Entrada.", 1, 0, "ConfiguracionGen 1 Modo_Entrada"},
    {2, "Brillo ch1.", 1, 0, "EntradaAV 0 Brillo"},
    {3, "SUBCOMMAND_CONTRASTE_CH1", 1, 0, "EntradaAV 0 Contraste"},
    {4, "SUBCOMMAND_SATURACION_CH1", 1, 0, "EntradaAV 0 Saturacion"},
    {5, "SUBCOMMAND_SHARPNESS_CH1", 1, 0, "EntradaAV 0 Sharpness"},
    {6, "SUBCOMMAND_VIDEO_ENC_STANDARD_CH1", 1, 0, "EntradaAV 0 Video_Enc_Standard"},
    {7, "SUBCOMMAND_VIDEO_ASPECT_RATIO_CH1 ", 1, 0, "EntradaAV 0 Video_Aspect_Ratio"},
    {8, "SUBCOMMAND_BITRATE_CH1 ", 2, 0, "EntradaAV 0 Bitrate"},
    {9, "SUBCOMMAND_AUDIO_BITRATE_CH1", 1, 0, "EntradaAV 0 Audio_Bitrate"},
    {10, "SUBCOMMAND_BRILLO_CH2.", 1, 0, "EntradaAV 1 Brillo"},
    {11, "SUBCOMMAND_CONTRASTE_CH2", 1, 0, "EntradaAV 1 Contraste"},
    {12, "SUBCOMMAND_SATURACION_CH2", 1, 0, "EntradaAV 1 Saturacion"},
    {13, "SUBCOMMAND_SHARPNESS_CH2", 1, 0, "EntradaAV 1 Sharpness"},
    {14, "SUBCOMMAND_VIDEO_ENC_STANDARD_CH2", 1, 0, "EntradaAV 1 Video_Enc_Standard"},
    {15, "SUBCOMMAND_VIDEO_ASPECT_RATIO_CH2 ", 1, 0, "EntradaAV 1 Video_Aspect_Ratio"},
    {16, "SUBCOMMAND_BITRATE_CH2 ", 2, 0, "EntradaAV 1 Bitrate"},
    {17, "SUBCOMMAND_AUDIO_BITRATE_CH2", 1, 0, "EntradaAV 1 Audio_Bitrate"},
    {18, "SUBCOMMAND_COFDM_OFF_1", 1, 0, "RFOut 1 Cofdm_Off"},
    {21, "SUBCOMMAND_ATENUACION", 1, 0, "ConfiguracionGen 1 Atenuacion"},
    {22, "SUBCOMMAND_MODO_OFDM_1 ", 1, 0, "RFOut 1 Modo_OFDM"},
    {23, "SUBCOMMAND_ANCHO_BANDA_1", 1, 0, "RFOut 1 Ancho_Banda"},
    {24, "SUBCOMMAND_INTERVALO_GUARDA_1", 1, 0, "RFOut 1 Intervalo_Guarda"},
    {25, "SUBCOMMAND_INTERVALO_GUARDA_1", 1, 0, "RFOut 1 Constelacion"},
    {26, "SUBCOMMAND_CODE_RATE_1", 1, 0, "RFOut 1 Code_Rate"},
    {27, "SUBCOMMAND_VIDEO_SERV1", 1, 0, "PIDsSalida 0.1 Seleccionado"},
    {28, "SUBCOMMAND_AUDIO_SERV1", 1, 0, "PIDsSalida 0.2 Seleccionado"},
    {29, "SUBCOMMAND_LCN_SERV1", 2, 0, "ServiciosSalida 0 LCN"},
    {30, "SUBCOMMAND_SID_SERV1", 2, 0, "ServiciosSalida 0 SID"},
    {31, "SUBCOMMAND_NOMBRE_SERV1", 0, 15, "ServiciosSalida 0 Nombre"},
    {32, "SUBCOMMAND_VIDEO_SERV2", 1, 0, "PIDsSalida 1.1 Seleccionado"},
    {33, "SUBCOMMAND_AUDIO_SERV2", 1, 0, "PIDsSalida 1.2 Seleccionado"},
    {34, "SUBCOMMAND_LCN_SERV2", 2, 0, "ServiciosSalida 1 LCN"},
    {35, "SUBCOMMAND_SID_SERV2", 2, 0, "ServiciosSalida 1 SID"},
    {36, "SUBCOMMAND_NOMBRE_SERV2", 0, 15, "ServiciosSalida 1 Nombre"},
    {37, "SUBCOMMAND_NETWORKNAME ", 0, 15, "Red 1 NetworkName"},
    {38, "SUBCOMMAND_PROVEEDOR", 0, 15, "Red 1 Proveedor"},
    {39, "SUBCOMMAND_NID", 2, 0, "Red 1 NID"},
    {40, "SUBCOMMAND_TSID_OUT", 2, 0, ""},
    {41, "SUBCOMMAND_ONID_OUT", 2, 0, ""},
    {42, "SUBCOMMAND_NIT_PATRON", 1, 0, "Red 1 NIT_Patron"},
    {43, "SUBCOMMAND_LCN_MODE", 1, 0, "Red 1 LCN_Mode"},
    {44, "SUBCOMMAND_INSERTAR_TDT", 1, 0, "Red 1 Insertar_TDT"},
    {45, "SUBCOMMAND_IP_OFF", 1, 0, "IPOut 1 Ip_Off"},
    {46, "SUBCOMMAND_PROTOCOLO", 1, 0, "IPOut 1 Protocolo"},
    {47, "SUBCOMMAND_QOS", 1, 0, "IPOut 1 Qos"},
    {48, "SUBCOMMAND_TTL", 1, 0, "IPOut 1 Ttl"},
    {49, "SUBCOMMAND_VLAN_MODE", 1, 0, "IPOut 1 Vlan_Mode"},
    {50, "SUBCOMMAND_VLAN_ID", 2, 0, "IPOut 1 Vlan_Id"},
    {51, "SUBCOMMAND_VLAN_TPID", 2, 0, "IPOut 1 Vlan_Tpid"},
    {52, "SUBCOMMAND_IP_ADDRESS_SOURCE_SERV1", 0, 16, "ServiciosSalida 0 IP_address_source"},
    {53, "SUBCOMMAND_IP_PORT_SOURCE_SERV1", 2, 0, "ServiciosSalida 0 IP_port_source"},
    {55, "SUBCOMMAND_NOMBRE_SAP_SERV1", 0, 15, "ServiciosSalida 0 Nombre_SAP"},
    {56, "SUBCOMMAND_IP_ADDRESS_SOURCE_SERV2", 0, 16, "ServiciosSalida 1 IP_address_source"},
    {57, "SUBCOMMAND_IP_PORT_SOURCE_SERV2", 2, 0, "ServiciosSalida 1 IP_port_source"},
    {59, "SUBCOMMAND_NOMBRE_SAP_SERV2", 0, 15, "ServiciosSalida 1 Nombre_SAP"},
    {60, "SUBCOMMAND_SAP_MODE", 1, 0, "IPOut 1 SAP_Mode"},
    {61, "SUBCOMMAND_SAP_IP", 0, 16, "IPOut 1 SAP_Ip"},
    {62, "SUBCOMMAND_SAP_USER", 0, 15, "IPOut 1 SAP_User"},
    {63, "SUBCOMMAND_SAP_TIME", 1, 0, "IPOut 1 SAP_Time"},
    {66, "SUBCOMMAND_PLAYER_MODE", 1, 0, "ConfiguracionGen 1 Player_Mode"},
    {67, "SUBCOMMAND_IP_DHCP", 1, 0, "ConfiguracionGen 1 Ip_Dhcp"},
    {68, "SUBCOMMAND_IP_ADDRESS", 0, 16, "ConfiguracionGen 1 Ip_Address"},
    {69, "SUBCOMMAND_IP_MASK", 0, 16, "ConfiguracionGen 1 Ip_Mask"},
    {70, "SUBCOMMAND_IP_GATEWAY", 0, 16, "ConfiguracionGen 1 Ip_Gateway"},
    {74, "SUBCOMMAND_IDTIMEZONE", 1, 0, "ConfiguracionGen 1 Subtimezone"},
    {75, "SUBCOMMAND_LCD_BLOQUEO", 1, 0, "ConfiguracionGen 1 Lcd_Bloqueo"},
    {76, "SUBCOMMAND_LCD_CODBLOQUEO", 0, 5, "ConfiguracionGen 1 Lcd_Codbloqueo"},
    {77, "SUBCOMMAND_MODO_ENCAP", 1, 0, "IPOut 1 Mpts_Mode"},
    {78, "SUBCOMMAND_LOW_LATENCY_SERV1", 1, 0, "EntradaAV 0 Low_Latency"},
    {79, "SUBCOMMAND_LOW_LATENCY_SERV2", 1, 0, "EntradaAV 1 Low_Latency"},
};
// clang-format on

// What is logged of a request: that it came, and each sub-command that it is carried out as.
inline std::vector<std::string> log_of(const Plain& row) {
    std::vector<std::string> lines = {"<31>CMD: Comando escritura parametros.\n",
                                      std::string("<31>Subcomando ") + row.name + "\n"};
    if (row.code == 17)
        lines.emplace_back("<31>Subcomando SUBCOMMAND_COFDM_OFF_1\n");
    return lines;
}

// The cells that a received number ends up in, and what they hold then. Of a service no other
// stream may be off.
inline Contents stored(const Plain& row, unsigned number) {
    Contents cells;
    if (*row.cell == '\0')
        return cells;
    const std::string text = std::to_string(number);
    cells[row.cell] = text;
    switch (row.code) {
        case 1:
            if (number == 3)
                cells[row.cell] = "10";
            if (number == 4)
                cells[row.cell] = "11";
            break;
        case 17:
            cells["RFOut 1 Cofdm_Off"] = text;
            break;
        case 25:
            cells[row.cell] = std::to_string(number + 1);
            break;
        case 27:
        case 28:
        case 32:
        case 33: {
            const bool video = row.code == 27 || row.code == 32;
            const std::string off = video ? "2" : "1";
            cells[row.code < 30 ? "EntradaAV 0 Remux_Av" : "EntradaAV 1 Remux_Av"] =
                number == 0 ? off : "0";
            if (number == 0)
                cells[row.cell] = "2";
            break;
        }
        default:
            break;
    }
    return cells;
}

// Fills the board so that no two cells hold the same. Services 0 and 1 have a video (1, 3) and an
// audio stream (2, 4), as on the sample board.
inline void number_cells() {
    number_all_cells();
    run_elsewhere(kConfDb,
                  "UPDATE PIDsSalida SET idPID = 3 WHERE idPID = 7;"
                  "UPDATE PIDsSalida SET idPID = 4 WHERE idPID = 2147483647;"
                  "UPDATE PIDsSalida SET fk_idServicio = (idPID - 1) / 2, Tipo = 2 - idPID % 2 "
                  "WHERE idPID BETWEEN 1 AND 4");
}

// Numbers on the wire, with bytes behind them that do not count.
struct WireNumber {
    const char* bytes;
    unsigned number;
};
inline const std::vector<WireNumber> kOneByte = {
    {"00 FF FF FF", 0},
    {"A7 5A C3 00", 167},
    {"01", 1},
    {"FF 01 02 03", 255},
};
inline const std::vector<WireNumber> kTwoBytes = {
    {"00 00 FF FF", 0},     {"A5 5A C3 00", 42330}, {"00 01", 1},
    {"FF FF 01 02", 65535}, {"00 FF 01", 255},      {"01 00 FF", 256},
};
inline const std::vector<WireNumber>& numbers_for(const Plain& row) {
    return row.bytes == 1 ? kOneByte : kTwoBytes;
}

// A request's info.
inline Bytes write_of(const Plain& row, const Bytes& value) {
    return joined({{row.code}, value});
}
