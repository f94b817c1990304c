// What depends on the country: the channel of the RF output, and the change of country itself.
#pragma once

#include <string_view>

// Tune the RF output by channel number, or by frequency in kHz, which is stored as it is and not
// moved to the channel's centre. Channel and frequency are both written, the frequency only when
// the channel could be; -1 when one of them could not.
int set_output_channel(int channel);
int set_output_frequency(int frequency);

// Stores the country of this name and its regional defaults; nothing when it is the stored one. A
// name that is not known has empty and zero defaults. Writes that fail are logged and do not stop
// the others.
void change_country(std::string_view name);
