// What parameters are called where people see them: as in the databases.
#pragma once

#include <string>

#include "processor/parameters.h"

// "Table.Column", between them the channel or service where there is more than one:
// "EntradaAV.0.Brillo", "RFOut.Frecuencia", "PIDsSalida.0.2.Seleccionado" (the audio of service 0).
std::string name_of(const Number& number);
std::string name_of(const Text& text);

// False for one that is taken and not stored.
bool has_column(const Number& number);
