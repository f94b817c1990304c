#include "tests/processor/parameter_names.h"

namespace {

// The columns of the selectors.
constexpr const char* kGeneral[] = {"Modo_Entrada", "Modo_Salida", "Atenuacion", "Player_Mode",
                                    "Ip_Dhcp",      "Lcd_Bloqueo", "Subtimezone"};
constexpr const char* kInput[] = {"Brillo",        "Contraste",          "Saturacion",
                                  "Sharpness",     "Video_Enc_Standard", "Video_Aspect_Ratio",
                                  "Bitrate",       "Remux_Av",           "Pid_Video_Ch",
                                  "Pid_Audio_Ch",  "Pid_Pcr_Ch",         "Filter_Mode",
                                  "Audio_Bitrate", "Audio_Enc_Standard", "Low_Latency"};
constexpr const char* kOutput[] = {"Cofdm_Off",   "Canal_Salida",     "Frecuencia",   "Modo_OFDM",
                                   "Ancho_Banda", "Intervalo_Guarda", "Constelacion", "Code_Rate"};
constexpr const char* kService[] = {"LCN", "SID", "IP_port_source"};
constexpr const char* kStream[] = {"?", "video", "audio"};
constexpr const char* kNetwork[] = {"NID",        "none",     "none",
                                    "NIT_Patron", "LCN_Mode", "Insertar_TDT"};
constexpr const char* kIpOutput[] = {"Ip_Off",   "Protocolo", "Qos",     "Ttl",       "SAP_Mode",
                                     "SAP_Time", "Vlan_Mode", "Vlan_Id", "Vlan_Tpid", "Mpts_Mode"};
constexpr const char* kGeneralTexts[] = {"Ip_Address",  "Ip_Mask",       "Ip_Gateway",
                                         "Country",     "Language",      "Idtimezone",
                                         "Codtimezone", "Lcd_Codbloqueo"};
constexpr const char* kServiceTexts[] = {"Nombre", "Nombre_SAP", "IP_address_source"};
constexpr const char* kNetworkTexts[] = {"NetworkName", "Proveedor"};
constexpr const char* kIpOutputTexts[] = {"SAP_Ip", "SAP_User"};

}  // namespace

std::string name_of(const Number& number) {
    const int selector = number.selector;
    const std::string index = " " + std::to_string(number.index) + " ";
    const std::string first = number.first != 0 ? " from " + std::to_string(number.first) : "";
    switch (number.of) {
        case Number::Of::general:
            return std::string("ConfiguracionGen ") + kGeneral[selector] + first;
        case Number::Of::input:
            return "EntradaAV" + index + kInput[selector] + first;
        case Number::Of::rf_output:
            return "RFOut" + index + kOutput[selector] + first;
        case Number::Of::service:
            return "ServiciosSalida" + index + kService[selector] + first;
        case Number::Of::stream:
            return "stream" + index + kStream[selector] + first;
        case Number::Of::network:
            return std::string("Red ") + kNetwork[selector] + first;
        case Number::Of::ip_output:
            return std::string("IPOut ") + kIpOutput[selector] + first;
    }
    return "?";
}

std::string name_of(const Text& text) {
    const int selector = text.selector;
    switch (text.of) {
        case Text::Of::general:
            return std::string("ConfiguracionGen ") + kGeneralTexts[selector];
        case Text::Of::service:
            return "ServiciosSalida " + std::to_string(text.index) + " " + kServiceTexts[selector];
        case Text::Of::network:
            return std::string("Red ") + kNetworkTexts[selector];
        case Text::Of::ip_output:
            return std::string("IPOut ") + kIpOutputTexts[selector];
    }
    return "?";
}
