// The general configuration is a single row: modes, management interface, country, front panel.
#pragma once

#include <cstdint>

enum e_ConfiguracionGen : int {
    CG_MODO_ENTRADA = 0,
    CG_MODO_SALIDA = 1,
    CG_ATENUACION = 2,
    CG_PLAYER_MODE = 3,
    CG_IP_DHCP = 4,
    CG_LCD_BLOQUEO = 5,
    CG_SUBTIMEZONE = 6,
};

enum e_str_ConfiguracionGen : int {
    CGS_IP_ADDRESS = 0,
    CGS_IP_MASK = 1,
    CGS_IP_GATEWAY = 2,
    CGS_COUNTRY = 3,
    CGS_LANGUAGE = 4,
    CGS_IDTIMEZONE = 5,
    CGS_CODTIMEZONE = 6,
    CGS_LCD_CODBLOQUEO = 7,
};

// Returns the column's number; 0 without exactly one row and for any other selector.
int get_ConfiguracionGen(e_ConfiguracionGen selector);

// Returns 0 when there is exactly one row, else -1. Any other selector writes nothing. Of
// CG_MODO_ENTRADA some values are stored as other codes; a get gives these, on purpose, not the
// given ones.
int set_ConfiguracionGen(e_ConfiguracionGen selector, int value);

// Clears the `size` bytes at `buffer` and copies the text. The addresses, the mask and the lock
// code may fill the buffer without a NUL, the others always end in one. Any other selector is
// CGS_IP_ADDRESS. CGS_LANGUAGE gives the country, cut or padded with zeros to the length of the
// language, on purpose.
void getstr_ConfiguracionGen(e_str_ConfiguracionGen selector, std::uint8_t* buffer, int size);

// Stores at most size - 1 characters of `text`; no more than these are read. Returns 0 when there
// is exactly one row, else -1. Any other selector is CGS_IP_ADDRESS.
int setstr_ConfiguracionGen(e_str_ConfiguracionGen selector, const char* text, unsigned size);
