// What the columns behind the selectors are called in the databases, for those who show them.
#pragma once

#include "params/ConfiguracionGen.h"
#include "params/EntradaAV.h"
#include "params/IPOut.h"
#include "params/RFOut.h"
#include "params/Red.h"
#include "params/ServiciosSalida.h"

struct ColumnName {
    const char* table;
    const char* column;  // null when the selector stands for no column
};

ColumnName column_name(e_ConfiguracionGen selector);
ColumnName column_name(e_str_ConfiguracionGen selector);
ColumnName column_name(e_EntradaAV selector);
ColumnName column_name(e_RFOut selector);
ColumnName column_name(e_ServiciosSalida selector);
ColumnName column_name(e_str_ServiciosSalida selector);
ColumnName column_name(e_Red selector);
ColumnName column_name(e_str_Red selector);
ColumnName column_name(e_IPOut selector);
ColumnName column_name(e_str_IPOut selector);
