// Each AV input channel of the encoder has its settings in a row.
#pragma once

enum e_EntradaAV : int {
    EAV_BRILLO = 0,
    EAV_CONTRASTE = 1,
    EAV_SATURACION = 2,
    EAV_SHARPNESS = 3,
    EAV_VIDEO_ENC_STANDARD = 4,
    EAV_VIDEO_ASPECT_RATIO = 5,
    EAV_BITRATE = 6,
    EAV_REMUX_AV = 7,
    EAV_PID_VIDEO_CH = 8,
    EAV_PID_AUDIO_CH = 9,
    EAV_PID_PCR_CH = 10,
    EAV_FILTER_MODE = 11,
    EAV_AUDIO_BITRATE = 12,
    EAV_AUDIO_ENC_STANDARD = 13,
    EAV_LOW_LATENCY = 14,
    EAV_PROFILE = 15,
    EAV_LEVEL = 16,
    EAV_REMOTE_AUDIO_SAMPLING_RATE = 17,
    EAV_REMOTE_NEEDS_RELOAD_FIRMWARE = 18,
    EAV_REMOTE_SISTEMA_TV = 19,
    EAV_REMOTE_STOP = 20,
    EAV_REMOTE_VIDEO_PRESENT = 21,
    EAV_REMOTE_AUDIO_PRESENT = 22,
    EAV_REMOTE_MODO_SALIDA = 23,
    EAV_ESTADOPENDIENTERE = 24,
};

// Returns the column's number; 0 without exactly one row of the channel and for any other selector.
// `channel` is the row's key, from 0.
int get_EntradaAV(e_EntradaAV selector, int channel);

// Returns 0 when there is exactly one row of the channel, else -1. Any other selector writes
// nothing.
int set_EntradaAV(e_EntradaAV selector, int channel, int value);
