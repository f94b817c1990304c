#include "params/EntradaAV.h"

#include "params/family.h"

namespace {

using Record = queltdb::tEntradaAV;

constexpr IntegerColumn<Record> kIntegers[] = {
    {EAV_BRILLO, COLUMN(Brillo)},                                              //
    {EAV_CONTRASTE, COLUMN(Contraste)},                                        //
    {EAV_SATURACION, COLUMN(Saturacion)},                                      //
    {EAV_SHARPNESS, COLUMN(Sharpness)},                                        //
    {EAV_VIDEO_ENC_STANDARD, COLUMN(Video_Enc_Standard)},                      //
    {EAV_VIDEO_ASPECT_RATIO, COLUMN(Video_Aspect_Ratio)},                      //
    {EAV_BITRATE, COLUMN(Bitrate)},                                            //
    {EAV_REMUX_AV, COLUMN(Remux_Av)},                                          //
    {EAV_PID_VIDEO_CH, COLUMN(Pid_Video_Ch)},                                  //
    {EAV_PID_AUDIO_CH, COLUMN(Pid_Audio_Ch)},                                  //
    {EAV_PID_PCR_CH, COLUMN(Pid_Pcr_Ch)},                                      //
    {EAV_FILTER_MODE, COLUMN(Filter_Mode)},                                    //
    {EAV_AUDIO_BITRATE, COLUMN(Audio_Bitrate)},                                //
    {EAV_AUDIO_ENC_STANDARD, COLUMN(Audio_Enc_Standard)},                      //
    {EAV_LOW_LATENCY, COLUMN(Low_Latency)},                                    //
    {EAV_PROFILE, COLUMN(Profile)},                                            //
    {EAV_LEVEL, COLUMN(Level)},                                                //
    {EAV_REMOTE_AUDIO_SAMPLING_RATE, COLUMN(Remote_Audio_Sampling_Rate)},      //
    {EAV_REMOTE_NEEDS_RELOAD_FIRMWARE, COLUMN(Remote_Needs_Reload_Firmware)},  //
    {EAV_REMOTE_SISTEMA_TV, COLUMN(Remote_Sistema_TV)},                        //
    {EAV_REMOTE_STOP, COLUMN(Remote_Stop)},                                    //
    {EAV_REMOTE_VIDEO_PRESENT, COLUMN(Remote_Video_Present)},                  //
    {EAV_REMOTE_AUDIO_PRESENT, COLUMN(Remote_Audio_Present)},                  //
    {EAV_REMOTE_MODO_SALIDA, COLUMN(Remote_Modo_Salida)},                      //
    {EAV_ESTADOPENDIENTERE, COLUMN(EstadoPendienteRE)},                        //
};
static_assert(complete<IntegerColumn<Record>>(kIntegers, EAV_ESTADOPENDIENTERE));

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

ColumnName column_name(e_EntradaAV selector) {
    return kFamily.integer_name(selector);
}
