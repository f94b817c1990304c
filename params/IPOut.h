// The IP output and its SAP announcements have a single row.
#pragma once

#include <cstdint>

enum e_IPOut : int {
    IPO_IP_OFF = 0,
    IPO_PROTOCOLO = 1,
    IPO_QOS = 2,
    IPO_TTL = 3,
    IPO_SAP_MODE = 4,
    IPO_SAP_TIME = 5,
    IPO_VLAN_MODE = 6,
    IPO_VLAN_ID = 7,
    IPO_VLAN_TPID = 8,
    IPO_MPTS_MODE = 9,
};

enum e_str_IPOut : int {
    IPOS_SAP_IP = 0,
    IPOS_SAP_USER = 1,
};

// Returns the column's number; 0 without exactly one row and for any other selector.
int get_IPOut(e_IPOut selector);

// Returns 0 when there is exactly one row, else -1. Any other selector writes nothing.
int set_IPOut(e_IPOut selector, int value);

// Clears the `size` bytes at `buffer` and copies the text. The address may fill the buffer without
// a NUL, the user always ends in one. Any other selector is IPOS_SAP_IP.
void getstr_IPOut(e_str_IPOut selector, std::uint8_t* buffer, int size);

// Stores at most size - 1 characters of `text`; no more than these are read. Returns 0 when there
// is exactly one row, else -1. Any other selector is IPOS_SAP_IP.
int setstr_IPOut(e_str_IPOut selector, const char* text, unsigned size);
