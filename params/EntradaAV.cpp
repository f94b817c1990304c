#include "params/EntradaAV.h"

#include "params/family.h"

namespace {

using Record = queltdb::tEntradaAV;
using enum Record::Place;

// clang-format off
constexpr IntegerColumn<Record> kIntegers[] = {
    {EAV_BRILLO, Brillo},
    {EAV_CONTRASTE, Contraste},
    {EAV_SATURACION, Saturacion},
    {EAV_SHARPNESS, Sharpness},
    {EAV_VIDEO_ENC_STANDARD, Video_Enc_Standard},
    {EAV_VIDEO_ASPECT_RATIO, Video_Aspect_Ratio},
    {EAV_BITRATE, Bitrate},
    {EAV_REMUX_AV, Remux_Av},
    {EAV_PID_VIDEO_CH, Pid_Video_Ch},
    {EAV_PID_AUDIO_CH, Pid_Audio_Ch},
    {EAV_PID_PCR_CH, Pid_Pcr_Ch},
    {EAV_FILTER_MODE, Filter_Mode},
    {EAV_AUDIO_BITRATE, Audio_Bitrate},
    {EAV_AUDIO_ENC_STANDARD, Audio_Enc_Standard},
    {EAV_LOW_LATENCY, Low_Latency},
    {EAV_PROFILE, Profile},
    {EAV_LEVEL, Level},
    {EAV_REMOTE_AUDIO_SAMPLING_RATE, Remote_Audio_Sampling_Rate},
    {EAV_REMOTE_NEEDS_RELOAD_FIRMWARE, Remote_Needs_Reload_Firmware},
    {EAV_REMOTE_SISTEMA_TV, Remote_Sistema_TV},
    {EAV_REMOTE_STOP, Remote_Stop},
    {EAV_REMOTE_VIDEO_PRESENT, Remote_Video_Present},
    {EAV_REMOTE_AUDIO_PRESENT, Remote_Audio_Present},
    {EAV_REMOTE_MODO_SALIDA, Remote_Modo_Salida},
    {EAV_ESTADOPENDIENTERE, EstadoPendienteRE},
};
static_assert(complete(kIntegers, EAV_ESTADOPENDIENTERE) && writable(kIntegers));
// clang-format on

constexpr Family<Record> kFamily = {
    .database = ConfDB,
    .clause = "WHERE IdEntradaAV='%lld'",
    .integers = {kIntegers, Outside::ignored},
};

}  // namespace

int get_EntradaAV(e_EntradaAV selector, int channel) {
    return kFamily.get(selector, channel);
}

int set_EntradaAV(e_EntradaAV selector, int channel, int value) {
    return kFamily.set(selector, value, channel);
}
