// The status answer: alarms, input and encoder states, output bitrates.
#pragma once

struct mensaje;

// Puts the values of this moment and their length into a zero-filled answer. A value that
// cannot be read is sent as 0.
void put_status(mensaje& answer);
