// The null-packet figures of the multiplexer. A single row that other processes measure.
#pragma once

enum e_bitrate_nulos : int {
    BN_SEL_0 = 0,  // the sixth column
    BN_SEL_1 = 1,  // the second to the fifth
    BN_SEL_2 = 2,
    BN_SEL_3 = 3,
    BN_SEL_4 = 4,
};

// The column's number; 0 without exactly one row and for any other selector.
int get_Bitrate_Nulos(e_bitrate_nulos selector);
