#include "processor/configuration.h"

#include "link/mensaje.h"
#include "processor/board_clock.h"

namespace {

constexpr std::uint8_t kLength1 = 114;
constexpr std::uint8_t kLength2 = 185;

// The AV inputs, the RF output, the services, the network.
constexpr Field kBlock1[] = {
    {0, 1, [] { return 1U; }},                   //
    {1, 1, number(CG_MODO_ENTRADA)},             //
    {2, 1, number(EAV_BRILLO, 0)},               //
    {3, 1, number(EAV_CONTRASTE, 0)},            //
    {4, 1, number(EAV_SATURACION, 0)},           //
    {5, 1, number(EAV_SHARPNESS, 0)},            //
    {6, 1, number(EAV_VIDEO_ENC_STANDARD, 0)},   //
    {7, 1, number(EAV_VIDEO_ASPECT_RATIO, 0)},   //
    {8, 2, number(EAV_BITRATE, 0)},              //
    {10, 1, number(EAV_AUDIO_BITRATE, 0)},       //
    {11, 1, number(EAV_LOW_LATENCY, 0)},         //
    {12, 1, number(EAV_BRILLO, 1)},              //
    {13, 1, number(EAV_CONTRASTE, 1)},           //
    {14, 1, number(EAV_SATURACION, 1)},          //
    {15, 1, number(EAV_SHARPNESS, 1)},           //
    {16, 1, number(EAV_VIDEO_ENC_STANDARD, 1)},  //
    {17, 1, number(EAV_VIDEO_ASPECT_RATIO, 1)},  //
    {18, 2, number(EAV_BITRATE, 1)},             //
    {20, 1, number(EAV_AUDIO_BITRATE, 1)},       //
    {21, 1, number(EAV_LOW_LATENCY, 1)},         //
    {22, 1, number(RFO_COFDM_OFF)},              //
    {23, 1, number(RFO_CANAL_SALIDA)},           //
    {24, 3, number(RFO_FRECUENCIA)},             // kHz
    {27, 1, number(CG_ATENUACION)},              //
    {28, 1, number(RFO_MODO_OFDM)},              //
    {29, 1, number(RFO_ANCHO_BANDA)},            //
    {30, 1, number(RFO_INTERVALO_GUARDA)},       //
    {31, 1, number(RFO_CONSTELACION)},           //
    {32, 1, number(RFO_CODE_RATE)},              //
    {33, 1, number(kVideo, 0)},                  //
    {34, 1, number(kAudio, 0)},                  //
    {35, 2, number(SS_LCN, 0)},                  //
    {37, 2, number(SS_SID, 0)},                  //
    {39, 15, text(SSS_NOMBRE, 0)},               //
    {54, 1, number(kVideo, 1)},                  //
    {55, 1, number(kAudio, 1)},                  //
    {56, 2, number(SS_LCN, 1)},                  //
    {58, 2, number(SS_SID, 1)},                  //
    {60, 15, text(SSS_NOMBRE, 1)},               //
    {75, 15, text(REDS_NETWORKNAME)},            //
    {90, 15, text(REDS_PROVEEDOR)},              //
    {105, 2, number(RED_NID)},                   //
    {107, 2, number(kNoTsidOut)},                //
    {109, 2, number(kNoOnidOut)},                //
    {111, 1, number(RED_NIT_PATRON)},            //
    {112, 1, number(RED_LCN_MODE)},              //
    {113, 1, number(RED_INSERTAR_TDT)},          //
};
static_assert(gapless(kBlock1, 0, kLength1));

// The IP output and its announcements, the management interface, the clock.
constexpr Field kBlock2[] = {
    {0, 1, [] { return 2U; }},                 //
    {1, 1, number(IPO_IP_OFF)},                //
    {2, 1, number(IPO_PROTOCOLO)},             //
    {3, 1, number(IPO_QOS)},                   //
    {4, 1, number(IPO_TTL)},                   //
    {5, 1, number(IPO_VLAN_MODE)},             //
    {6, 2, number(IPO_VLAN_ID)},               //
    {8, 2, number(IPO_VLAN_TPID)},             //
    {10, 15, text(SSS_IP_ADDRESS_SOURCE, 0)},  //
    {25, 2, number(SS_IP_PORT_SOURCE, 0)},     //
    {27, 15, text(SSS_NOMBRE_SAP, 0)},         //
    {42, 15, text(SSS_IP_ADDRESS_SOURCE, 1)},  //
    {57, 2, number(SS_IP_PORT_SOURCE, 1)},     //
    {59, 15, text(SSS_NOMBRE_SAP, 1)},         //
    {74, 1, number(IPO_SAP_MODE)},             //
    {75, 15, text(IPOS_SAP_IP)},               //
    {90, 15, text(IPOS_SAP_USER)},             //
    {105, 1, number(IPO_SAP_TIME)},            //
    {106, 1, number(CG_PLAYER_MODE)},          //
    {107, 1, number(CG_IP_DHCP)},              //
    {108, 15, text(CGS_IP_ADDRESS)},           //
    {123, 15, text(CGS_IP_MASK)},              //
    {138, 15, text(CGS_IP_GATEWAY)},           //
    {153, 15, text(CGS_COUNTRY)},              //
    {168, 15, get_clock},                      //
    {183, 1, number(CG_SUBTIMEZONE)},          //
    {184, 1, number(IPO_MPTS_MODE)},           //
};
static_assert(gapless(kBlock2, 0, kLength2));

}  // namespace

std::span<const Field> configuration_block(std::uint8_t number) {
    if (number == 2)
        return kBlock2;
    return kBlock1;
}

void put_configuration(std::uint8_t number, mensaje& answer) {
    put_fields(configuration_block(number), answer);
    answer.longitud = number == 2 ? kLength2 : kLength1;
}
