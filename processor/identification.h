// The identification block: who the device is, read once and sent on each request.
#pragma once

struct mensaje;

// Fills the block from the device's files and scripts. A source that fails is logged (general
// messages) and leaves its bytes as they were.
void fill_identification();

// Puts the block and its length into `answer`.
void put_identification(mensaje& answer);
