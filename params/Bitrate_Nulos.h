// The null-packet figures of the multiplexer stand in a single row, which other processes measure.
#pragma once

// Boards may name the columns otherwise, so a selector stands for a position: BN_SEL_0 is the sixth
// column, the others are the second to the fifth.
enum e_bitrate_nulos : int {
    BN_SEL_0 = 0,
    BN_SEL_1 = 1,
    BN_SEL_2 = 2,
    BN_SEL_3 = 3,
    BN_SEL_4 = 4,
};

// Returns the column's number; 0 without exactly one row and for any other selector.
int get_Bitrate_Nulos(e_bitrate_nulos selector);
