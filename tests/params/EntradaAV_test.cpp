// The settings of the input channels.
#include "params/EntradaAV.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/params/selectors.h"

namespace {

const Family kIntegers = {
    .table = "EntradaAV",
    .select = "SELECT * FROM EntradaAV WHERE IdEntradaAV='1'",
    .keys =
        {{INT_MIN, -2147483648}, {-1, -1}, {0, 0}, {1, 1}, {2, 2}, {7, 7}, {INT_MAX, 2147483647}},
    // clang-format off
    .selectors = {
        {0, EAV_BRILLO, "Brillo"},
        {1, EAV_CONTRASTE, "Contraste"},
        {2, EAV_SATURACION, "Saturacion"},
        {3, EAV_SHARPNESS, "Sharpness"},
        {4, EAV_VIDEO_ENC_STANDARD, "Video_Enc_Standard"},
        {5, EAV_VIDEO_ASPECT_RATIO, "Video_Aspect_Ratio"},
        {6, EAV_BITRATE, "Bitrate"},
        {7, EAV_REMUX_AV, "Remux_Av"},
        {8, EAV_PID_VIDEO_CH, "Pid_Video_Ch"},
        {9, EAV_PID_AUDIO_CH, "Pid_Audio_Ch"},
        {10, EAV_PID_PCR_CH, "Pid_Pcr_Ch"},
        {11, EAV_FILTER_MODE, "Filter_Mode"},
        {12, EAV_AUDIO_BITRATE, "Audio_Bitrate"},
        {13, EAV_AUDIO_ENC_STANDARD, "Audio_Enc_Standard"},
        {14, EAV_LOW_LATENCY, "Low_Latency"},
        {15, EAV_PROFILE, "Profile"},
        {16, EAV_LEVEL, "Level"},
        {17, EAV_REMOTE_AUDIO_SAMPLING_RATE, "Remote_Audio_Sampling_Rate"},
        {18, EAV_REMOTE_NEEDS_RELOAD_FIRMWARE, "Remote_Needs_Reload_Firmware"},
        {19, EAV_REMOTE_SISTEMA_TV, "Remote_Sistema_TV"},
        {20, EAV_REMOTE_STOP, "Remote_Stop"},
        {21, EAV_REMOTE_VIDEO_PRESENT, "Remote_Video_Present"},
        {22, EAV_REMOTE_AUDIO_PRESENT, "Remote_Audio_Present"},
        {23, EAV_REMOTE_MODO_SALIDA, "Remote_Modo_Salida"},
        {24, EAV_ESTADOPENDIENTERE, "EstadoPendienteRE"},
    },
    // clang-format on
    .get = [](int selector,
              int key) { return get_EntradaAV(static_cast<e_EntradaAV>(selector), key); },
    .set = [](int selector, int key,
              int value) { return set_EntradaAV(static_cast<e_EntradaAV>(selector), key, value); },
};

INSTANTIATE_TEST_SUITE_P(EntradaAV, IntegerReads, testing::Values(kIntegers));
INSTANTIATE_TEST_SUITE_P(EntradaAV, IntegerWrites, testing::Values(kIntegers));

}  // namespace
