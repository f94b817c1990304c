// What depends on the country: the channel of the RF output, and the change of country itself.
#pragma once

struct mensaje;

// Tune the RF output by channel number, or by frequency in kHz, which is stored as it is and not
// moved to the channel's centre. Channel and frequency are both written, the frequency only when
// the channel could be; -1 when one of them could not.
int set_output_channel(int channel);
int set_output_frequency(int frequency);

// Stores the country named in the request and its regional defaults; nothing when it is the stored
// one. A name that is not known has empty and zero defaults. Writes that fail are logged and do not
// stop the others.
void change_country(const mensaje& request, mensaje& answer);
