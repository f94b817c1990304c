// What a parameter of the processor's tables is called, for the golden listings.
#pragma once

#include <string>

#include "processor/parameters.h"

// Table, channel or service, column, and what is stored for a 0 on the wire when that is another:
// "EntradaAV 0 Brillo", "RFOut 0 Constelacion from 1", "stream 1 video", "Red none".
std::string name_of(const Number& number);
std::string name_of(const Text& text);
