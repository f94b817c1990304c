// Each RF output of the modulator has its settings in a row.
#pragma once

enum e_RFOut : int {
    RFO_COFDM_OFF = 0,
    RFO_CANAL_SALIDA = 1,
    RFO_FRECUENCIA = 2,  // kHz
    RFO_MODO_OFDM = 3,
    RFO_ANCHO_BANDA = 4,
    RFO_INTERVALO_GUARDA = 5,
    RFO_CONSTELACION = 6,
    RFO_CODE_RATE = 7,
};

// Returns the column's number; 0 without exactly one row of the output. `output` counts from 0, the
// rows' keys from 1. Any other selector is RFO_COFDM_OFF.
int get_RFOut(e_RFOut selector, int output);

// Returns 0 when there is exactly one row of the output, else -1. Any other selector is
// RFO_COFDM_OFF.
int set_RFOut(e_RFOut selector, int output, int value);
